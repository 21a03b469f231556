// Numbers as text, read and written. Parts of an input: a text with numbers in it, a base, a format (0 to 3),
// a width, decimals, and the bytes of doubles.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include "fuzz/Fuzz.h"
#include "sigweave/foundation/HexDouble.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/foundation/StringConversion.h"
#include "sigweave/foundation/TCCompareDBL.h"

namespace {

bool HasSameBits(double a, double b) {
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

bool IsSame(double a, double b) {
    return HasSameBits(a, b) || (std::isnan(a) && std::isnan(b));
}

void ReadNumber(const char* text) {
    const char* const stop = text + std::strlen(text);
    char* end = const_cast<char*>(text);
    const double value = StringToDouble(text, &end);
    fuzz::Require(end >= text && end <= stop, "reading ends within the text");
    const char* const first = text + std::strspn(text, " \t\n\v\f\r+-");
    // White space of the locale beyond ASCII is skipped, too, which strtod does not know.
    const bool isBlank = static_cast<unsigned char>(first[0]) >= 0x80;
    if (isBlank || (first[0] == '0' && (first[1] | 0x20) == 'x')) return;
    char* expected = nullptr;
    fuzz::Require(IsSame(value, std::strtod(text, &expected)) && (end == expected || expected == text),
                  "decimal numbers are read as strtod reads them");
}

void ReadInteger(const std::string& text, int base) {
    const char* at = text.c_str();
    const int value = GetNumber(at, base);
    const char* unsignedAt = text.c_str();
    GetNumberU(unsignedAt, base);
    fuzz::Require(at >= text.c_str() && at <= text.c_str() + text.size(), "reading ends within the text");
    if (base < 2 || base > 36) return;
    const long expected = std::strtol(text.c_str(), nullptr, base);
    fuzz::Require(value == std::clamp<long>(expected, INT32_MIN, INT32_MAX),
                  "integers are those of strtol, limited");
}

void ReadLists(const char* text) {
    TCArray<int, int> integers;
    TCArray<int, const int&> sameIntegers;
    const int count = ConvertStringToIntArray(text, integers);
    fuzz::Require(count == integers.GetSize() && count == ConvertStringToIntArray(text, sameIntegers),
                  "lists of integers are of one length");
    for (const bool comma : {false, true}) {
        TCArray<double, double> numbers;
        CArray<double> sameNumbers;
        const int length = ConvertStringToDblArray(text, numbers, comma);
        fuzz::Require(length == ConvertStringToDblArray(text, sameNumbers, comma),
                      "lists of numbers are of one length");
        for (int i = 0; i < length; ++i)
            fuzz::Require(IsSame(numbers[i], sameNumbers[static_cast<std::size_t>(i)]), "and the same");
    }
}

// The short way must be the long one.
void ReadWritten(const std::string& text) {
    const char* at = text.data();
    const char* const end = at + text.size();
    double values[8];
    const int count = tc::ReadWrittenDoubles(at, end, values, 8);
    const char* slow = text.c_str();
    for (int i = 0; i < count; ++i) {
        char* next = nullptr;
        fuzz::Require(HasSameBits(StringToDouble(slow, &next), values[i]), "both ways read the same");
        slow = next + 1;
    }
    fuzz::Require(at == slow, "and end at the same place");
}

void WriteHexadecimal(double value) {
    char text[40];
    DoubleToHexString(text, sizeof text, value);
    if (!std::isfinite(value)) return fuzz::RequireSame(text, "-1.#IND", "what is not finite has one text");
    char printed[40];
    std::snprintf(printed, sizeof printed, "%.13a", value);
    fuzz::RequireSame(text, printed, "the text is that of printf");
    char* end = nullptr;
    fuzz::Require(HasSameBits(HexString2Double(text, &end), value) && *end == '\0',
                  "it reads back to the same bits");
}

void WriteDecimal(double value, StringFormat format, int width, int digits) {
    std::vector<char> buffer(static_cast<std::size_t>(width + digits + 340));
    const int length = ftoa(value, buffer.data(), format, true, nullptr, width, digits);
    std::string text(buffer.data());
    fuzz::Require(length == static_cast<int>(text.size()), "the answer is the length");
    if (!std::isfinite(value)) return;
    fuzz::Require(length >= width, "the width is filled");
    std::replace(text.begin(), text.end(), ',', '.');
    char* end = nullptr;
    const double read = std::strtod(text.c_str(), &end);
    fuzz::Require(*end == '\0', "what is written is a number");
    const double magnitude = std::abs(value);
    const bool isRelative = format == FORMAT_EXPONENTIAL;
    const double unit = std::pow(10.0, -std::min(digits, 17)) * (isRelative ? magnitude : 1.0);
    const bool isClose = std::abs(read - value) <= 0.5000001 * unit + magnitude * 1e-14 + 1e-323;
    fuzz::Require(isClose || format > FORMAT_EXPONENTIAL || std::isinf(read), "close to the value");
}

void RoundAndCompare(double a, double b, int decimals) {
    if (std::abs(a) < 1e290) {
        const double slack = std::abs(a) * 1e-14 + 1e-300;
        fuzz::Require(Round0(a, decimals) <= a + slack && Round1(a, decimals) >= a - slack,
                      "down is below, up is above");
    }
    const int order = TCCompareDBL::Compare(a, b, false);
    fuzz::Require(TCCompareDBL::Compare(b, a, false) == -order, "the order of two numbers is one");
    fuzz::Require(TCCompareDBL::IsEqual(a, b, false) == (order == 0 && !std::isnan(a)), "equal has no order");
}

double TakeDouble(std::string& bytes) {
    double value = 0.0;
    std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
    bytes.erase(0, sizeof value);
    return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    const std::string text = parts.Next();
    ReadNumber(text.c_str());
    ReadInteger(text, parts.NextInt(0, 36));
    ReadLists(text.c_str());
    ReadWritten(text);
    const auto format = static_cast<StringFormat>(parts.NextInt(0, 3));
    const int width = parts.NextInt(0, 50);
    const int digits = parts.NextInt(0, 700);
    double before = std::strtod(text.c_str(), nullptr);
    for (std::string bytes = parts.Rest();;) {
        WriteHexadecimal(before);
        WriteDecimal(before, format, width, digits);
        if (bytes.empty()) return 0;
        const double next = TakeDouble(bytes);
        RoundAndCompare(before, next, digits % 20 - 10);
        before = next;
    }
}
