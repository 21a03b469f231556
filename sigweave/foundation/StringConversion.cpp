#include "sigweave/foundation/StringConversion.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/foundation/TextFinder.h"
#include "sigweave/platform/CodePage.h"
#include "sigweave/platform/NumberText.h"

namespace {

constexpr unsigned UTF8 = 65001;

// The 32-bit limits are those of the files and settings that hold the numbers.
int LimitToInt(long long value) {
    return static_cast<int>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

// As a 32-bit word: a negative number wraps around.
unsigned long LimitToUnsigned(long long value) {
    const bool fits = value >= -std::int64_t{UINT32_MAX} && value <= std::int64_t{UINT32_MAX};
    return fits ? static_cast<std::uint32_t>(value) : UINT32_MAX;
}

// Settles base 0 by the prefix and skips that; false when there is no number or no such base.
bool FindBase(const char*& p, int& base) {
    if (p == nullptr) return false;
    if (base != 0) return base >= 2 && base <= 36;
    if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
        base = 16;
        p += 2;
        return true;
    }
    base = 10;
    return tc::IsSign(*p) || tc::IsDigit(*p);
}

template <class Limit>
auto ReadInteger(const char*& p, int base, Limit limit) {
    if (!FindBase(p, base)) return limit(0);
    char* end = const_cast<char*>(p);
    const long long value = std::strtoll(p, &end, base);
    p = end;
    return limit(value);
}

int DigitValue(char c, int base) {
    const int value = tc::IsDigit(c)           ? c - '0'
                      : (c >= 'a' && c <= 'f') ? c - 'a' + 10
                      : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                               : base;
    return value < base ? value : -1;
}

// Reads up to `most` digits from the front of the text; answers how many there were.
int TakeDigits(std::string_view& text, int base, int most, int& value) {
    int count = 0;
    value = 0;
    for (int digit; count < most && !text.empty() && (digit = DigitValue(text[0], base)) >= 0; ++count) {
        value = value * base + digit;
        text.remove_prefix(1);
    }
    return count;
}

// With storage for `room` bytes, since such texts are often filled again.
TCString& Assign(TCString& dst, std::string_view text, std::size_t room) {
    if (room < INT32_MAX) dst.GetBuffer(static_cast<int>(room));
    return dst.AllocCopy(text);
}

// Escapes of one character: what follows the backslash and the byte it means, at the same index.
constexpr std::string_view ESCAPES = "\"'?\\abcfnrtv";
constexpr std::string_view ESCAPED = "\"'?\\\a\b\x11\f\n\r\t\v";
static_assert(ESCAPES.size() == ESCAPED.size());

// `text` begins after the backslash. Appends what the escape means; false when it is wrong.
bool TakeEscape(std::string_view& text, std::string& out) {
    if (text.empty()) {
        out += '\\';
        return false;
    }
    int value = 0;
    if (TakeDigits(text, 8, 3, value) > 0) {
        out += static_cast<char>(value);
        return value <= 0xFF;
    }
    const char kind = text[0];
    text.remove_prefix(1);
    if (kind == 'x') {
        if (TakeDigits(text, 16, 2, value) == 0) return false;
        out += static_cast<char>(value);
        return true;
    }
    const std::size_t index = ESCAPES.find(kind);
    out += index != std::string_view::npos ? ESCAPED[index] : kind;
    return index != std::string_view::npos;
}

void AppendHex(std::string& text, char byte, const char* digits) {
    text += digits[static_cast<unsigned char>(byte) >> 4];
    text += digits[static_cast<unsigned char>(byte) & 15];
}

void AppendQuoted(std::string& text, char byte) {
    constexpr std::string_view CONTROLS = "\a\b\t\n\v\f\r\\", LETTERS = "abtnvfr\\";
    const std::size_t index = CONTROLS.find(byte);
    if (index != std::string_view::npos) {
        text += '\\';
        text += LETTERS[index];
    } else if (static_cast<unsigned char>(byte) < 32) {
        text += "\\x";
        AppendHex(text, byte, "0123456789abcdef");
    } else {
        text += byte;
    }
}

constexpr int MOST_SPACES = 100;
constexpr auto SPACES = [] {
    std::array<char, MOST_SPACES + 1> spaces{};
    std::fill_n(spaces.begin(), MOST_SPACES, ' ');
    return spaces;
}();

// What follows the "=" behind the line that begins with the name; null when there is none.
const char* FindParam(const char* text, const char* name) {
    if (text == nullptr) return nullptr;
    TCString wanted(name), begin;
    wanted.TrimLeft().TrimRight();
    for (const char* line = text; line != nullptr; line = GetLine(line)) {
        begin.AllocCopy(line, static_cast<int>(strnlen(line, static_cast<std::size_t>(wanted.GetLength()))));
        if (begin.CompareNoCase(wanted) != 0) continue;
        const char* equals = std::strchr(line, '=');
        return equals != nullptr ? equals + 1 : nullptr;
    }
    return nullptr;
}

TCString ParamValue(const char* text, int maxLen) {
    if (maxLen != -1)
        return TCString(text, static_cast<int>(strnlen(text, static_cast<std::size_t>(std::max(maxLen, 0)))));
    const char* lineFeed = std::strchr(text, '\n');
    TCString value(text, lineFeed != nullptr ? static_cast<int>(lineFeed - text) : 0);
    value.TrimLeft().TrimRight();
    return value;
}

// The two list families under the same names.
template <class T, class Arg>
void Clear(TCArray<T, Arg>& list) {
    list.RemoveAll();
}
template <class T>
void Clear(std::vector<T>& list) {
    list.clear();
}

void AddText(TCArray<TCString, const TCString&>& list, std::string_view text) {
    list.Add(TCString(text.data(), static_cast<int>(text.size())));
}
void AddText(CStringArray& list, std::string_view text) {
    list.emplace_back(text);
}

template <class T, class Arg>
void AddNumber(TCArray<T, Arg>& list, T value) {
    list.Add(value);
}
template <class T>
void AddNumber(std::vector<T>& list, T value) {
    list.push_back(value);
}

template <class T, class Arg>
int Count(const TCArray<T, Arg>& list) {
    return list.GetSize();
}
template <class T>
int Count(const std::vector<T>& list) {
    return static_cast<int>(list.size());
}

template <class List>
int SplitTexts(const char* text, List& out, const char* separator, bool keepSeparator) {
    // Both may be elements of the list.
    const std::string source(text != nullptr ? text : ""), between(separator != nullptr ? separator : "");
    std::string_view rest = source;
    Clear(out);
    if (between.empty()) {
        AddText(out, rest);
        return Count(out);
    }
    const tc::TextFinder finder(between);
    while (!rest.empty()) {
        const char* const end = rest.data() + rest.size();
        const char* const hit = finder.Find(rest.data(), end);
        const auto length = static_cast<std::size_t>(hit - rest.data());
        const std::size_t consumed = std::min(length + between.size(), rest.size());
        AddText(out, rest.substr(0, keepSeparator ? consumed : length));
        rest.remove_prefix(consumed);
    }
    return Count(out);
}

// Calls `read` wherever one of the characters `begin` is, then steps over that character and all that are
// in `within`.
template <class Read>
void ForEachNumber(const char* p, const char* begin, const char* within, Read read) {
    while (*p != '\0') {
        if (std::strchr(begin, *p) == nullptr) {
            p += tc::CharacterAt(p).bytes;
            continue;
        }
        read(p);
        ++p;
        p += std::strspn(p, within);
    }
}

template <class List>
int ReadIntegers(const char* text, List& out) {
    Clear(out);
    if (text == nullptr) return 0;
    ForEachNumber(text, "0123456789+-", "0123456789", [&](const char* p) {
        const char* end = p;
        const int value = GetNumber(end, 10);
        if (end != p) AddNumber(out, value);
    });
    return Count(out);
}

// Where strtod reads the number at the front, the conversion of scanf may read further and then find no
// number: 0x without a digit or point, and what begins like "infinity".
bool IsBrokenOff(const char* p, const char* end) {
    if (tc::IsSign(*p)) ++p;
    const auto lower = [](char c) { return static_cast<char>(c | ' '); };
    if (lower(*p) == 'i') return end - p == 3 && lower(*end) == 'i';
    return *p == '0' && end - p == 1 && lower(*end) == 'x' && end[1] != '.';
}

template <class List>
int ReadDoubles(const char* text, List& out, bool decimalComma) {
    Clear(out);
    if (text == nullptr) return 0;
    TCString points;
    if (decimalComma) {
        points = text;
        points.Remove('.');
        points.Replace(',', '.');
        text = points;
    }
    ForEachNumber(text, "0123456789+-.", "0123456789+-.eE", [&](const char* p) {
        char* end = nullptr;
        const double value = tc::ReadDouble(p, &end);
        if (end != p && !IsBrokenOff(p, end)) AddNumber(out, value);
    });
    return Count(out);
}

bool HasMark(std::string_view text, std::string_view mark) {
    return text.substr(0, mark.size()) == mark;
}

// UTF-16 bytes after the mark, with a 16-bit zero after them that counts.
void CopyUtf16(TCString& dst, std::string_view bytes, bool swap) {
    std::string copy(bytes);
    if (swap)
        for (std::size_t i = 0; i + 1 < copy.size(); i += 2) std::swap(copy[i], copy[i + 1]);
    copy.append(2, '\0');
    dst.AllocCopy(copy);
}

unsigned DeclaredCodePage(const char* text) {
    const TCString declaration = TCString(text).RightOf("<?", -1).LeftOf("?>");
    TCString encoding = declaration.RightOf("encoding", -1).RightOf("\"", -1).LeftOf("\"");
    for (const char white : {' ', '\t', '\r', '\n', '\v', '\f'}) encoding.Remove(white);
    return encoding.CompareNoCase("UTF-8") == 0 ? UTF8 : 0;
}

}  // namespace

int GetNumber(const char*& p, int base) {
    return ReadInteger(p, base, LimitToInt);
}

unsigned long GetNumberU(const char*& p, int base) {
    return ReadInteger(p, base, LimitToUnsigned);
}

bool UnQuoteEscapeChar(TCString& dst, const TCString& src) {
    std::string out;
    bool valid = true;
    for (std::string_view text = tc::ViewOf(src); !text.empty();) {
        const char byte = text[0];
        text.remove_prefix(1);
        if (byte != '\\')
            out += byte;
        else
            valid &= TakeEscape(text, out);
    }
    dst.AllocCopy(out);
    return valid;
}

TCString& QuoteControlChar(TCString& dst, const TCString& src) {
    std::string out;
    const std::string_view text = tc::ViewOf(src);
    for (const char byte : text) AppendQuoted(out, byte);
    return Assign(dst, out, 2 * text.size());
}

TCString& URLEncode(TCString& dst, const char* src) {
    std::string out;
    const std::string_view text(src != nullptr ? src : "");
    for (const char byte : text) {
        if (tc::IsLetter(byte) || tc::IsDigit(byte) ||
            std::string_view("-_.~").find(byte) != std::string_view::npos) {
            out += byte;
        } else {
            out += '%';
            AppendHex(out, byte, "0123456789ABCDEF");
        }
    }
    return Assign(dst, out, 3 * text.size());
}

TCString& URLDecode(TCString& dst, const char* src) {
    std::string out;
    for (std::string_view text(src != nullptr ? src : ""); !text.empty();) {
        std::string_view digits = text.substr(1, 2);
        int value = 0;
        const bool encoded = text[0] == '%' && TakeDigits(digits, 16, 2, value) == 2;
        out += encoded ? static_cast<char>(value) : text[0];
        text.remove_prefix(encoded ? 3 : 1);
    }
    return dst.AllocCopy(out);
}

const char* TCIndentSpaces(int n) {
    return SPACES.data() + MOST_SPACES - std::clamp(n, 0, MOST_SPACES);
}

const char* GetLine(const char* p) {
    const char* const lineFeed = p != nullptr ? std::strchr(p, '\n') : nullptr;
    if (lineFeed == nullptr) return nullptr;
    const char* const line = tc::SkipSpace(lineFeed);
    return *line != '\0' ? line : nullptr;
}

bool ParseParam(const char* text, const char* name, TCString& value, int maxLen) {
    const char* const found = FindParam(text, name);
    if (found == nullptr) return false;
    value = ParamValue(found, maxLen);
    return true;
}

bool ParseParam(const char* text, const char* name, CString& value, int maxLen) {
    TCString found;
    if (!ParseParam(text, name, found, maxLen)) return false;
    value = TCString::TCString2BinCString(found);
    return true;
}

bool ParseParam(const char* text, const char* name, int& value) {
    TCString found;
    if (!ParseParam(text, name, found)) return false;
    const char* p = found;
    value = GetNumber(p, 10);
    return true;
}

bool ParseParam(const char* text, const char* name, double& value) {
    TCString found;
    if (!ParseParam(text, name, found)) return false;
    value = tc::ReadDouble(found, nullptr);
    return true;
}

int ConvertStringToStrArray(const char* text, TCArray<TCString, const TCString&>& out, const char* separator,
                            bool keepSeparator) {
    return SplitTexts(text, out, separator, keepSeparator);
}
int ConvertStringToStrArray(const char* text, CStringArray& out, const char* separator, bool keepSeparator) {
    return SplitTexts(text, out, separator, keepSeparator);
}

int ConvertStringToIntArray(const char* text, TCArray<int, int>& out) {
    return ReadIntegers(text, out);
}
int ConvertStringToIntArray(const char* text, TCArray<int, const int&>& out) {
    return ReadIntegers(text, out);
}
int ConvertStringToIntArray(const char* text, CArray<int>& out) {
    return ReadIntegers(text, out);
}

int ConvertStringToDblArray(const char* text, TCArray<double, double>& out, bool decimalComma) {
    return ReadDoubles(text, out, decimalComma);
}
int ConvertStringToDblArray(const char* text, TCArray<double, const double&>& out, bool decimalComma) {
    return ReadDoubles(text, out, decimalComma);
}
int ConvertStringToDblArray(const char* text, CArray<double>& out, bool decimalComma) {
    return ReadDoubles(text, out, decimalComma);
}

const char16_t* XMLToUnicode(TCString& dst, const char* text) {
    const std::string source(text != nullptr ? text : "");  // `dst` may hold the text
    const std::string_view bytes = source;
    if (HasMark(bytes, "\xEF\xBB\xBF")) return dst.ToUnicode(source.c_str() + 3, -1, UTF8);
    const bool swap = HasMark(bytes, "\xFE\xFF");
    if (!swap && !HasMark(bytes, "\xFF\xFE"))
        return dst.ToUnicode(source.c_str(), -1, DeclaredCodePage(source.c_str()));
    CopyUtf16(dst, bytes.substr(2), swap);
    return reinterpret_cast<const char16_t*>(static_cast<const char*>(dst));
}
