#include "sigweave/foundation/HexDouble.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/foundation/StringConversion.h"
#include "sigweave/platform/CodePage.h"
#include "sigweave/platform/NumberText.h"

namespace {

constexpr int LONGEST_TEXT = 25;
constexpr int BIAS = 1023;
constexpr int EXPONENT_MASK = 0x7FF;
constexpr int MANTISSA_BITS = 52;
constexpr int MANTISSA_DIGITS = MANTISSA_BITS / 4;
constexpr std::uint64_t MANTISSA_MASK = (std::uint64_t{1} << MANTISSA_BITS) - 1;
constexpr std::uint64_t SIGN = std::uint64_t{1} << 63;
constexpr double NOT_A_NUMBER = std::bit_cast<double>(std::uint64_t{0xFFF8000000000000});

// What a character means among the digits: the value of a hex digit, 0 for any other, or that they end.
constexpr signed char END_OF_DIGITS = -1;
constexpr std::array<signed char, 256> HEX_VALUES = [] {
    std::array<signed char, 256> values{};
    for (unsigned i = 0; i < 10; ++i) values['0' + i] = static_cast<signed char>(i);
    for (unsigned i = 0; i < 6; ++i) values['a' + i] = values['A' + i] = static_cast<signed char>(10 + i);
    values['p'] = values['P'] = values['\0'] = END_OF_DIGITS;
    return values;
}();

constexpr char HEX_DIGITS[] = "0123456789abcdef";

// Both digits of every byte.
constexpr std::array<std::array<char, 2>, 256> HEX_PAIRS = [] {
    std::array<std::array<char, 2>, 256> pairs{};
    for (unsigned i = 0; i < 256; ++i) pairs[i] = {HEX_DIGITS[i / 16], HEX_DIGITS[i % 16]};
    return pairs;
}();

char* WriteMantissa(char* p, std::uint64_t mantissa) {
    *p++ = HEX_DIGITS[mantissa >> (MANTISSA_BITS - 4)];
    for (int shift = MANTISSA_BITS - 12; shift >= 0; shift -= 8, p += 2)
        std::memcpy(p, HEX_PAIRS[mantissa >> shift & 0xFF].data(), 2);
    return p;
}

// Without a branch, since the signs of measured values are hard to foretell.
const char* SkipSign(const char* text) {
    return text + (static_cast<int>(*text == '-') | static_cast<int>(*text == '+'));
}

bool IsHexPrefix(const char* text) {
    return text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

// The exponent mark ends the digits early; any other character that is no digit counts as zero.
const char* ReadMantissa(const char* text, std::uint64_t& mantissa) {
    int left = MANTISSA_DIGITS;
    for (; left > 0; --left, ++text) {
        const int digit = HEX_VALUES[static_cast<unsigned char>(*text)];
        if (digit == END_OF_DIGITS) break;
        mantissa = mantissa << 4 | static_cast<unsigned>(digit);
    }
    mantissa <<= 4 * left;
    return text;
}

// Exponents of the usual length take a short way to what `GetNumber` answers.
int ReadExponent(const char* text, char** end) {
    constexpr int USUAL_DIGITS = 8;
    const char* const digits = SkipSign(text);
    const char* p = digits;
    int value = 0;
    while (tc::IsDigit(*p) && p - digits <= USUAL_DIGITS) value = 10 * value + (*p++ - '0');
    if (*text == '-') value = -value;
    if (p == digits || p - digits > USUAL_DIGITS) value = GetNumber(p = text, 10);
    if (end != nullptr) *end = const_cast<char*>(p);
    return value;
}

static_assert(std::endian::native == std::endian::little, "the first digit is in the lowest byte of a word");

using Bytes [[gnu::vector_size(16)]] = unsigned char;
using Words [[gnu::vector_size(16)]] = std::uint64_t;

// The 13 lowercase hex digits of a mantissa at once; false when one of them is none. The first eight are in
// one word, the last eight in the other: three belong to both.
bool ReadDigits(const char* text, std::uint64_t& mantissa) {
    constexpr int APART = MANTISSA_DIGITS - 8;
    std::uint64_t first, last;
    std::memcpy(&first, text, sizeof first);
    std::memcpy(&last, text + APART, sizeof last);
    const auto characters = reinterpret_cast<Bytes>(Words{first, last});
    const Bytes number = characters - '0';
    const Bytes letter = characters - 'a';
    const auto isNumber = reinterpret_cast<Bytes>(number < 10);
    const auto isLetter = reinterpret_cast<Bytes>(letter < 6);
    const auto none = reinterpret_cast<Words>(~(isNumber | isLetter));
    if ((none[0] | none[1]) != 0) return false;
    auto digits = reinterpret_cast<Words>((number & isNumber) | ((letter + 10) & isLetter));
    digits = (digits << 4 | digits >> 8) & 0x00FF00FF00FF00FF;
    digits = (digits << 8 | digits >> 16) & 0x0000FFFF0000FFFF;
    digits = (digits << 16 | digits >> 32) & 0xFFFFFFFF;
    mantissa = digits[0] << 4 * APART | (digits[1] & ((std::uint64_t{1} << 4 * APART) - 1));
    return true;
}

// A normal value as it is written, with a blank after it; null for any other text. `text` has the length of
// the longest one at least.
inline const char* ReadWritten(const char* text, double& value) {
    const std::uint64_t sign = *text == '-' ? SIGN : 0;
    text += *text == '-' ? 1 : 0;
    std::uint64_t mantissa;
    if (std::memcmp(text, "0x1.", 4) != 0 || !ReadDigits(text + 4, mantissa) || text[17] != 'p')
        return nullptr;
    const char* p = SkipSign(text + 18);
    if (p == text + 18) return nullptr;
    int exponent = 0;
    while (tc::IsDigit(*p) && p < text + 23) exponent = 10 * exponent + (*p++ - '0');
    if (text[18] == '-') exponent = -exponent;
    if (p == text + 19 || *p != ' ' || exponent <= -BIAS || exponent > BIAS) return nullptr;
    value =
        std::bit_cast<double>(sign | mantissa | static_cast<std::uint64_t>(exponent + BIAS) << MANTISSA_BITS);
    return p;
}

}  // namespace

char* DoubleToHexString(char* dst, int size, const double& value) {
    dst[0] = '\0';
    if (size < LONGEST_TEXT) return dst;
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const int biased = static_cast<int>(bits >> MANTISSA_BITS) & EXPONENT_MASK;
    const std::uint64_t mantissa = bits & MANTISSA_MASK;
    if (biased == EXPONENT_MASK) return std::strcpy(dst, "-1.#IND");

    char* p = dst;
    if ((bits & SIGN) != 0) *p++ = '-';
    std::memcpy(p, biased != 0 ? "0x1." : "0x0.", 4);
    p += 4;
    p = WriteMantissa(p, mantissa);
    const int exponent = biased != 0 ? biased - BIAS : mantissa != 0 ? 1 - BIAS : 0;
    *p++ = 'p';
    if (exponent >= 0) *p++ = '+';
    *std::to_chars(p, dst + LONGEST_TEXT, exponent).ptr = '\0';
    return dst;
}

double HexString2Double(const char* text, char** end) {
    if (text == nullptr) return NOT_A_NUMBER;
    const std::uint64_t sign = *text == '-' ? SIGN : 0;
    text = SkipSign(text);
    if (!IsHexPrefix(text) || (text[2] != '0' && text[2] != '1') || text[3] != '.') return NOT_A_NUMBER;
    const bool leadingOne = text[2] == '1';
    std::uint64_t mantissa = 0;
    text = ReadMantissa(text + 4, mantissa);
    if (*text != 'p' && *text != 'P') return NOT_A_NUMBER;
    const int exponent = ReadExponent(text + 1, end);
    if ((exponent == 0 && !leadingOne) || exponent == -BIAS) return std::bit_cast<double>(sign | mantissa);
    const auto biased = static_cast<std::uint32_t>(exponent) + (leadingOne ? BIAS : BIAS - 1);
    return std::bit_cast<double>(sign | mantissa | std::uint64_t{biased & EXPONENT_MASK} << MANTISSA_BITS);
}

double StringToDouble(const char* text, char** end) {
    if (text == nullptr) return NOT_A_NUMBER;
    const char* const start = tc::SkipSpace(text);
    if (IsHexPrefix(SkipSign(start))) return HexString2Double(start, end);
    const double value = tc::ReadDouble(start, end);
    if (end != nullptr && *end == start) *end = const_cast<char*>(text);
    return value;
}

char* itoh(char* dst, unsigned int value) {
    *std::to_chars(dst, dst + 8, value, 16).ptr = '\0';
    return dst;
}

int tc::ReadWrittenDoubles(const char*& text, const char* end, double* values, int count) {
    int read = 0;
    for (; read < count && end - text >= LONGEST_TEXT; ++read) {
        const char* blank = ReadWritten(text, values[read]);
        if (blank == nullptr) break;
        text = blank + 1;
    }
    return read;
}
