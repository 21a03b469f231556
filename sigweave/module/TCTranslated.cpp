#include "sigweave/module/TCTranslated.h"

namespace {
TCTranslated::Handler translationHandler = nullptr;
}

void TCTranslated::SetHandler(Handler handler) {
    translationHandler = handler;
}

long TCTranslated::GetMessageA(unsigned id, long param) {
    return translationHandler != nullptr ? translationHandler(id, param) : 0;
}
