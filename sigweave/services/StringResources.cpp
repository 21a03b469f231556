#include "sigweave/services/StringResources.h"

#include <algorithm>
#include <span>
#include <utility>

#include "sigweave/platform/Language.h"

namespace {

constexpr int AUTOMATIC = -1;

int languageSetting = AUTOMATIC;
HINSTANCE resourceModule = nullptr;

}  // namespace

int TCGetResourceLanguage() {
    if (languageSetting != AUTOMATIC) return languageSetting;
    return tc::IsThreadLocaleGerman() ? 1 : 0;
}

int TCSetLoadStrResLanguage(int language) {
    return std::exchange(languageSetting, std::clamp(language, 0, 1));
}

const char* LoadStrRes(int id, int language, int count, const _TC_StrResource* table) {
    if (count < 1 || table == nullptr) return "";
    const std::span rows(table, static_cast<std::size_t>(count));
    const auto row = std::ranges::find(rows, id, &_TC_StrResource::id);
    if (row == rows.end()) return "";
    if (language > 0 && row->language1 != nullptr) return row->language1;
    return row->language0 != nullptr ? row->language0 : "";
}

const char* LoadStrRes(int id, int count, const _TC_StrResource* table) {
    return LoadStrRes(id, TCGetResourceLanguage(), count, table);
}

CString LoadStrRes(unsigned int resourceId, HINSTANCE module) {
    const HINSTANCE source = module != nullptr ? module : resourceModule;
    const auto* count = static_cast<const int*>(GetProcAddress(source, "TCStringResourceCount"));
    const auto* table = static_cast<const _TC_StrResource*>(GetProcAddress(source, "TCStringResources"));
    if (count == nullptr) return {};
    return LoadStrRes(static_cast<int>(resourceId), *count, table);
}

HINSTANCE TCSetResourceModule(HINSTANCE module) {
    return std::exchange(resourceModule, module);
}
