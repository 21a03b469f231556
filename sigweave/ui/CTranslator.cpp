#include "sigweave/ui/CTranslator.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "sigweave/services/StringResources.h"

namespace {

std::vector<CTranslator*>& Living() {
    static std::vector<CTranslator*> living;
    return living;
}

}  // namespace

CTranslator::CTranslator(std::function<void()> whenChanged) : onChange(std::move(whenChanged)) {
    Living().push_back(this);
}

CTranslator::~CTranslator() {
    std::erase(Living(), this);
}

int CTranslator::SetLanguage(int language) {
    const int before = TCSetLoadStrResLanguage(language);
    Update();
    return before;
}

void CTranslator::Update() {
    const std::vector<CTranslator*> atFirst = Living();
    for (CTranslator* translator : atFirst)
        if (std::ranges::find(Living(), translator) != Living().end() && translator->onChange)
            translator->onChange();
}

long CTranslator::GetMessageA(unsigned id, long param) {
    if (id == LANGUAGE) return SetLanguage(static_cast<int>(std::clamp(param, 0L, 1L)));
    if (id == CHANGED) Update();
    return 0;
}
