#include "sigweave/platform/Language.h"

#include <langinfo.h>
#include <locale.h>

#include <clocale>

namespace tc {

namespace {
const char* ThreadLocaleName() {
    const locale_t own = uselocale(nullptr);
    return own == LC_GLOBAL_LOCALE ? std::setlocale(LC_MESSAGES, nullptr)
                                   : nl_langinfo_l(NL_LOCALE_NAME(LC_MESSAGES), own);
}
}  // namespace

bool IsGermanLocaleName(std::string_view name) {
    const std::string_view language = name.substr(0, name.find_first_of("_.@"));
    return language == "de" || language == "german" || language == "German" || language == "deutsch";
}

bool IsThreadLocaleGerman() {
    const char* name = ThreadLocaleName();
    return name != nullptr && IsGermanLocaleName(name);
}

}  // namespace tc
