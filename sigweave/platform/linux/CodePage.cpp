#include "sigweave/platform/CodePage.h"

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>

namespace tc {
namespace {

constexpr char32_t MALFORMED = 0xFFFFFF00;
constexpr std::string_view PLAIN_CHARSET = "ANSI_X3.4-1968";
constexpr std::string_view UTF8 = "UTF-8";
constexpr const char* UTF16 = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";

std::string_view LocaleCharset() {
    return nl_langinfo(CODESET);
}

bool IsPlainLocale() {
    return LocaleCharset() == PLAIN_CHARSET;
}

bool IsUtf8Locale() {
    const std::string_view charset = LocaleCharset();
    return charset == UTF8 || charset == PLAIN_CHARSET;
}

// The character classes of Unicode for the plain locale, which has none of its own.
locale_t UnicodeLocale() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

template <class Here, class InLocale>
auto Classify(char32_t code, Here here, InLocale inLocale) {
    const wint_t wide = code;
    if (IsPlainLocale() && UnicodeLocale() != nullptr) return inLocale(wide, UnicodeLocale());
    return here(wide);
}

bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

Character Malformed(const char* p) {
    return {1, MALFORMED | static_cast<unsigned char>(*p)};
}

// One row per length: the bits of the first byte that mark it, and the smallest code that needs it.
struct Utf8Form {
    unsigned char mask, mark;
    char32_t smallest;
};
constexpr std::array<Utf8Form, 3> UTF8_FORMS = {
    {{0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}}};

Character Utf8CharacterAt(const char* p, const char* end) {
    const unsigned char first = static_cast<unsigned char>(*p);
    for (std::size_t i = 0; i < UTF8_FORMS.size(); ++i) {
        const Utf8Form& form = UTF8_FORMS[i];
        if ((first & form.mask) != form.mark) continue;
        const int bytes = static_cast<int>(i) + 2;
        if (end - p < bytes || !std::all_of(p + 1, p + bytes, IsContinuation)) break;
        char32_t code = first & static_cast<unsigned char>(~form.mask);
        for (int k = 1; k < bytes; ++k) code = code << 6 | (static_cast<unsigned char>(p[k]) & 0x3F);
        const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
        if (code < form.smallest || code > 0x10FFFF || surrogate) break;
        return {bytes, code};
    }
    return Malformed(p);
}

// The numbers whose converter name is not "CP" and the number.
struct NamedCodePage {
    unsigned number;
    const char* name;
};
constexpr NamedCodePage NAMED_CODE_PAGES[] = {
    {1200, "UTF-16LE"}, {1201, "UTF-16BE"}, {20127, "US-ASCII"}, {20866, "KOI8-R"}, {21866, "KOI8-U"},
    {51932, "EUC-JP"},  {51949, "EUC-KR"},  {54936, "GB18030"},  {65000, "UTF-7"},  {65001, "UTF-8"},
};

std::string ConverterName(unsigned codePage) {
    if (codePage == 0) return std::string(IsUtf8Locale() ? UTF8 : LocaleCharset());
    if (codePage >= 28591 && codePage <= 28606) return "ISO-8859-" + std::to_string(codePage - 28590);
    for (const NamedCodePage& page : NAMED_CODE_PAGES)
        if (page.number == codePage) return page.name;
    return "CP" + std::to_string(codePage);
}

class Converter {
 public:
    Converter(const char* to, const char* from) : handle(iconv_open(to, from)) {}
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter() {
        if (IsOpen()) iconv_close(handle);
    }

    bool IsOpen() const { return handle != reinterpret_cast<iconv_t>(-1); }

    // Appends what it can convert to `to`; answers whether that was all, else `from` begins with what it
    // could not.
    template <class String>
    bool Convert(std::string_view& from, String& to) {
        char* in = const_cast<char*>(from.data());  // not written to
        std::size_t left = from.size();
        const bool all = Run(&in, &left, to);
        from.remove_prefix(from.size() - left);
        return all;
    }

    // Ends the text, for code pages with shift states.
    template <class String>
    void Finish(String& to) {
        Run(nullptr, nullptr, to);
    }

 private:
    template <class String>
    bool Run(char** in, std::size_t* inLeft, String& to) {
        std::array<typename String::value_type, 1024> part;
        for (;;) {
            char* out = reinterpret_cast<char*>(part.data());
            std::size_t outLeft = sizeof part;
            const bool done = iconv(handle, in, inLeft, &out, &outLeft) != static_cast<std::size_t>(-1);
            const bool full = !done && errno == E2BIG;
            to.append(part.data(), (sizeof part - outLeft) / sizeof part[0]);
            if (!full) return done;
        }
    }

    iconv_t handle;
};

std::string_view Bytes(std::u16string_view text) {
    return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)};
}

// The bytes of the first character of UTF-16 text: 4 for a surrogate pair.
std::size_t FirstCharacterBytes(std::string_view utf16) {
    char16_t units[2] = {};
    std::memcpy(units, utf16.data(), std::min(utf16.size(), sizeof units));
    const bool pair = (units[0] & 0xFC00) == 0xD800 && (units[1] & 0xFC00) == 0xDC00;
    return pair ? 4 : 2;
}

}  // namespace

Character MultibyteCharacterAt(const char* p, const char* end) {
    if (IsUtf8Locale()) return Utf8CharacterAt(p, end);
    mbstate_t state{};
    wchar_t wide = 0;
    const std::size_t bytes = mbrtowc(&wide, p, static_cast<std::size_t>(end - p), &state);
    if (bytes == 0 || bytes > MB_LEN_MAX) return Malformed(p);
    return {static_cast<int>(bytes), static_cast<char32_t>(wide)};
}

Character CharacterAt(const char* p) {
    return CharacterAt(p, p + strnlen(p, MB_LEN_MAX));
}

const char* SkipSpace(const char* p) {
    while (*p != '\0') {
        const Character character = CharacterAt(p);
        if (!IsSpace(character.code)) break;
        p += character.bytes;
    }
    return p;
}

bool BeginsCharacter(char byte) {
    return IsUtf8Locale() ? !IsContinuation(byte) : MB_CUR_MAX == 1;
}

bool IsSpace(char32_t code) {
    if (code < 0x80) return code == ' ' || (code >= '\t' && code <= '\r');
    return code < MALFORMED && Classify(code, iswspace, iswspace_l) != 0;
}

char32_t ToUpper(char32_t code) {
    if (code < 0x80) return code >= 'a' && code <= 'z' ? code - 'a' + 'A' : code;
    return code < MALFORMED ? Classify(code, towupper, towupper_l) : code;
}

char32_t ToLower(char32_t code) {
    if (code < 0x80) return code >= 'A' && code <= 'Z' ? code - 'A' + 'a' : code;
    return code < MALFORMED ? Classify(code, towlower, towlower_l) : code;
}

std::size_t PrefixNoCase(std::string_view text, std::string_view start) {
    const char* at = text.data();
    const char* const end = at + text.size();
    for (const char *p = start.data(), *last = p + start.size(); p < last;) {
        if (at == end) return std::string_view::npos;
        const Character wanted = CharacterAt(p, last);
        const Character found = CharacterAt(at, end);
        if (!EqualNoCase(wanted.code, found.code)) return std::string_view::npos;
        p += wanted.bytes;
        at += found.bytes;
    }
    return static_cast<std::size_t>(at - text.data());
}

bool AppendCharacter(std::string& text, char32_t code) {
    if (IsUtf8Locale()) {
        if (code > 0x10FFFF) return false;
        AppendUtf8(text, code);
        return true;
    }
    char bytes[MB_LEN_MAX];
    mbstate_t state{};
    const std::size_t count = wcrtomb(bytes, static_cast<wchar_t>(code), &state);
    if (count > MB_LEN_MAX) return false;
    text.append(bytes, count);
    return true;
}

void AppendUtf8(std::string& text, char32_t code) {
    const auto tail = [&](int shift) { text += static_cast<char>(0x80 | (code >> shift & 0x3F)); };
    if (code < 0x80) {
        text += static_cast<char>(code);
        return;
    }
    const int form = code < 0x800 ? 0 : code < 0x10000 ? 1 : 2;
    text += static_cast<char>(UTF8_FORMS[static_cast<std::size_t>(form)].mark | code >> 6 * (form + 1));
    for (int shift = 6 * form; shift >= 0; shift -= 6) tail(shift);
}

bool MultibyteToUtf16(std::string_view from, unsigned codePage, std::u16string& to) {
    Converter converter(UTF16, ConverterName(codePage).c_str());
    to.clear();
    if (!converter.IsOpen()) return false;
    while (!from.empty() && !converter.Convert(from, to)) {
        from.remove_prefix(1);
        to += u'\uFFFD';
    }
    return true;
}

bool Utf16ToMultibyte(std::u16string_view from, unsigned codePage, std::string& to) {
    const std::string name = ConverterName(codePage);
    Converter converter(name.c_str(), UTF16);
    to.clear();
    if (!converter.IsOpen()) return false;
    std::string_view rest = Bytes(from);
    while (!rest.empty() && !converter.Convert(rest, to)) {
        rest.remove_prefix(FirstCharacterBytes(rest));
        std::string_view substitute = Bytes(name == UTF8 ? u"\uFFFD" : u"?");
        converter.Convert(substitute, to);
    }
    converter.Finish(to);
    return true;
}

}  // namespace tc
