#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "sigweave/platform/Export.h"

namespace tc {

// A message to people in English and German, defined where it is used:
//
//     constexpr tc::Bilingual NO_FILE("there is no file '%1'", "es gibt keine Datei '%1'");
//     report(NO_FILE.With({path}));
//
// "%1" to "%9" are replaced by the inserts, in any order. Both texts must have the same ones, or it does not
// compile. What machines read (names, codes, numbers, files) is never translated. Stateless; any thread.
class Bilingual {
 public:
    // One text for both languages.
    consteval Bilingual(const char* text) : Bilingual(text, text) {}
    consteval Bilingual(const char* englishText, const char* germanText)
        : english(englishText), german(germanText) {
        if (Inserts(english) != Inserts(german)) throw "the two texts have different inserts";
    }

    // Of a text that is not known before the program runs, as one that a user wrote: it is that text in both
    // languages, must live as long as the message, and nobody has checked its inserts.
    static constexpr Bilingual OfOneText(const char* text) { return {Unchecked(), text}; }

    // In the language in use (`TCGetResourceLanguage`). A missing insert is empty.
    TC_API std::string With(std::initializer_list<std::string_view> inserts) const;
    // Of a message without inserts.
    TC_API const char* Text() const;

 private:
    struct Unchecked {};
    constexpr Bilingual(Unchecked, const char* text) : english(text), german(text) {}

    static constexpr bool IsInsert(const char* text) {
        return text[0] == '%' && text[1] >= '1' && text[1] <= '9';
    }
    static consteval unsigned Inserts(const char* text) {
        unsigned found = 0;
        for (; *text != '\0'; ++text)
            if (IsInsert(text)) found |= 1u << (text[1] - '0');
        return found;
    }

    const char* english;
    const char* german;
};

}  // namespace tc
