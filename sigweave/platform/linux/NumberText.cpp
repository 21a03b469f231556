#include "sigweave/platform/NumberText.h"

#include <langinfo.h>
#include <locale.h>
#include <stdlib.h>

namespace tc {

double ReadDouble(const char* text, char** end) {
    static const locale_t point = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(text, end, point);
}

bool PrintsDecimalPoint() {
    const char* const sign = nl_langinfo(RADIXCHAR);
    return sign[0] == '.' && sign[1] == '\0';
}

}  // namespace tc
