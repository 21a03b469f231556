#include "sigweave/services/Bilingual.h"

#include "sigweave/services/StringResources.h"

namespace tc {

const char* Bilingual::Text() const {
    return TCGetResourceLanguage() == 1 ? german : english;
}

std::string Bilingual::With(std::initializer_list<std::string_view> inserts) const {
    std::string message;
    for (const char* text = Text(); *text != '\0'; ++text) {
        if (!IsInsert(text)) {
            message += *text;
            continue;
        }
        const auto index = static_cast<std::size_t>(*++text - '1');
        if (index < inserts.size()) message += inserts.begin()[index];
    }
    return message;
}

}  // namespace tc
