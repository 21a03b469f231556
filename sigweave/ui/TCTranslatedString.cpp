#include "sigweave/ui/TCTranslatedString.h"

#include "sigweave/services/StringResources.h"

namespace {

CString Copy(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

TCTranslatedString::TCTranslatedString(const char* text) : TCTranslatedString(text, text) {}

TCTranslatedString::TCTranslatedString(const char* english, const char* german)
    : texts{Copy(english), Copy(german)} {}

TCTranslatedString::TCTranslatedString(const tc::Bilingual& bilingual) : message(bilingual) {}

TCTranslatedString::TCTranslatedString(unsigned resourceId, HINSTANCE resourceModule)
    : resource(resourceId), module(resourceModule) {}

CString TCTranslatedString::Get() const {
    if (resource) return LoadStrRes(*resource, module);
    if (message) return message->Text();
    return texts[TCGetResourceLanguage() == 1 ? 1 : 0];
}
