#pragma once

#include <string>
#include <string_view>

// The characters of the process's locale and the conversion between code pages, for the library's own text
// code.
//
// Code page 0 is the character set of the locale (category LC_CTYPE); a locale with plain ASCII, as "C" and
// "POSIX" are, counts as UTF-8, its letters included. 65001 is UTF-8; any other number is looked up in the
// system's converter.
//
// Free of state; any thread, as long as none changes the locale meanwhile.
namespace tc {

// `code` is the Unicode code point. A malformed byte is a character of its own with a code beyond Unicode
// that no other byte shares, so it compares equal to itself only and has no case.
struct Character {
    int bytes;
    char32_t code;
};

Character MultibyteCharacterAt(const char* p, const char* end);

// The character that begins at `p`; `p` must be before `end`.
inline Character CharacterAt(const char* p, const char* end) {
    const unsigned char byte = static_cast<unsigned char>(*p);
    return byte < 0x80 ? Character{1, byte} : MultibyteCharacterAt(p, end);
}

// The same for text that ends with a zero byte, which `p` must not be at.
Character CharacterAt(const char* p);

// Past the white space at `p`, a text that ends with a zero byte.
const char* SkipSpace(const char* p);

// Whether a byte of this value is always the first of a character, so that a search may skip the stepping.
bool BeginsCharacter(char byte);

// False for malformed bytes.
bool IsSpace(char32_t code);

// The code itself when there is no other case. ASCII letters go in pairs whatever the locale is: under the
// Turkish one, where "i" and "I" are two letters, "int" still is "INT".
char32_t ToUpper(char32_t code);
char32_t ToLower(char32_t code);

// Whether two characters differ in nothing but their case.
inline bool EqualNoCase(char32_t a, char32_t b) {
    return a == b || ToLower(a) == ToLower(b);
}

// How many bytes at the beginning of the text differ from `start` in nothing but case; npos when it begins
// otherwise.
std::size_t PrefixNoCase(std::string_view text, std::string_view start);

// Appends the character in the locale's character set; false, with nothing appended, when it has no such
// character.
bool AppendCharacter(std::string& text, char32_t code);

// Appends the character, which is one of Unicode, in UTF-8.
void AppendUtf8(std::string& text, char32_t code);

// What cannot be converted becomes U+FFFD, or "?" where the code page has no such character. False, with `to`
// empty, for a code page that the system does not know.
bool MultibyteToUtf16(std::string_view from, unsigned codePage, std::u16string& to);
bool Utf16ToMultibyte(std::u16string_view from, unsigned codePage, std::string& to);

}  // namespace tc
