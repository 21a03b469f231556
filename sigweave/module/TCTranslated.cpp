#include "sigweave/module/TCTranslated.h"

#include "sigweave/ui/CTranslator.h"

namespace {
TCTranslated::Handler translationHandler = &CTranslator::GetMessageA;
}

void TCTranslated::SetHandler(Handler handler) {
    translationHandler = handler != nullptr ? handler : &CTranslator::GetMessageA;
}

long TCTranslated::GetMessageA(unsigned id, long param) {
    return translationHandler(id, param);
}
