#include "sigweave/services/PrintText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/platform/NumberText.h"

namespace tc {

namespace {

// Writes into the string's storage and enlarges it where needed.
class Output {
 public:
    explicit Output(TCString& target) : text(target) {
        constexpr int FIRST_ROOM = 256;
        text.SetLength(0);
        Provide(std::max(FIRST_ROOM, text.GetAllocLength() - 1));
    }

    void Text(std::string_view part) { std::memcpy(Advance(part.size()), part.data(), part.size()); }
    void Fill(char character, std::size_t count) { std::memset(Advance(count), character, count); }
    void Finish() { text.ReleaseBuffer(static_cast<int>(at - begin)); }

 private:
    void Provide(std::int64_t room) {
        begin = text.GetBuffer(static_cast<int>(std::min<std::int64_t>(room, INT32_MAX)));
        at = begin + text.GetLength();
        end = begin + room;
    }
    char* Advance(std::size_t count) {
        if (count > static_cast<std::size_t>(end - at)) {
            Finish();
            Provide(2 * (text.GetLength() + static_cast<std::int64_t>(count)));
        }
        at += count;
        return at - count;
    }

    TCString& text;
    char* begin;
    char* at;
    char* end;
};

// A conversion of a format: %[-][0][width][.precision][l][l][z]character.
struct Conversion {
    bool left = false;
    bool zeros = false;
    int width = 0;
    int precision = -1;  // -1: none
    bool isLong = false;
    char character = '\0';
};

// Larger ones are left to the C library.
constexpr int LARGEST_COUNT = 100;

int ReadCount(const char*& at) {
    int count = 0;
    for (; tc::IsDigit(*at) && count <= LARGEST_COUNT; ++at) count = 10 * count + (*at - '0');
    return count;
}

// From after the percent sign; `at` moves past the conversion.
Conversion ReadConversion(const char*& at) {
    Conversion conversion;
    for (; *at == '-' || *at == '0'; ++at) (*at == '-' ? conversion.left : conversion.zeros) = true;
    conversion.width = ReadCount(at);
    if (*at == '.') conversion.precision = ReadCount(++at);
    for (int i = 0; *at == 'l' && i < 2; ++i, ++at) conversion.isLong = true;
    if (*at == 'z' && !conversion.isLong) conversion.isLong = ++at != nullptr;
    conversion.character = *at;
    if (*at != '\0') ++at;
    return conversion;
}

// The arguments of a format, taken one after the other.
class Arguments {
 public:
    explicit Arguments(va_list given) { va_copy(list, given); }
    ~Arguments() { va_end(list); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    std::int64_t Signed(bool isLong) { return isLong ? va_arg(list, long) : va_arg(list, int); }
    std::uint64_t Unsigned(bool isLong) {
        return isLong ? va_arg(list, unsigned long) : va_arg(list, unsigned);
    }
    double Double() { return va_arg(list, double); }
    const char* Text() { return va_arg(list, const char*); }

 private:
    va_list list;
};

void PutPadded(Output& out, const Conversion& conversion, std::string_view text) {
    const auto width = static_cast<std::size_t>(conversion.width);
    const std::size_t padding = width > text.size() ? width - text.size() : 0;
    if (padding == 0) return out.Text(text);
    if (conversion.left) {
        out.Text(text);
        return out.Fill(' ', padding);
    }
    if (conversion.zeros && text[0] == '-') {
        out.Text("-");
        text.remove_prefix(1);
    }
    out.Fill(conversion.zeros ? '0' : ' ', padding);
    out.Text(text);
}

template <typename... Form>
void PutNumber(Output& out, const Conversion& conversion, auto number, Form... form) {
    char digits[512];
    const std::to_chars_result end = std::to_chars(std::begin(digits), std::end(digits), number, form...);
    PutPadded(out, conversion, {digits, static_cast<std::size_t>(end.ptr - digits)});
}

bool PutInteger(Output& out, const Conversion& conversion, Arguments& arguments) {
    if (conversion.precision >= 0) return false;
    if (conversion.character == 'u')
        PutNumber(out, conversion, arguments.Unsigned(conversion.isLong));
    else if (conversion.character == 'x')
        PutNumber(out, conversion, arguments.Unsigned(conversion.isLong), 16);
    else
        PutNumber(out, conversion, arguments.Signed(conversion.isLong));
    return true;
}

// Exact, as printf is: the product is known with its rounding error, which decides where the product itself
// lies halfway. False where its digits would not fit.
bool PutFixed(Output& out, const Conversion& conversion, double number, int precision) {
    constexpr double POWERS[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
    constexpr double LIMIT = 1e15;  // below it, halves are exact
    if (precision >= static_cast<int>(std::size(POWERS))) return false;
    const double magnitude = std::abs(number);
    const double product = magnitude * POWERS[precision];
    if (product >= LIMIT) return false;
    const double error = std::fma(magnitude, POWERS[precision], -product);
    auto digits = static_cast<std::uint64_t>(product);
    const double beyondHalf = product - static_cast<double>(digits) - 0.5;
    const bool odd = digits % 2 == 1;
    if (beyondHalf > 0 || (beyondHalf == 0 && (error > 0 || (error == 0 && odd)))) ++digits;
    char text[32];
    char* const last = std::end(text);
    char* first = last;
    for (int count = 0; digits != 0 || count <= precision; digits /= 10) {
        if (count == precision && precision > 0) *--first = '.';
        *--first = static_cast<char>('0' + digits % 10);
        ++count;
    }
    if (std::signbit(number)) *--first = '-';
    PutPadded(out, conversion, {first, static_cast<std::size_t>(last - first)});
    return true;
}

bool PutDouble(Output& out, const Conversion& conversion, Arguments& arguments) {
    constexpr int DEFAULT_PRECISION = 6;
    const double number = arguments.Double();
    const int precision = conversion.precision >= 0 ? conversion.precision : DEFAULT_PRECISION;
    if (!std::isfinite(number) || conversion.isLong || !PrintsDecimalPoint()) return false;
    if (conversion.character == 'f' && PutFixed(out, conversion, number, precision)) return true;
    const std::chars_format form = conversion.character == 'f'   ? std::chars_format::fixed
                                   : conversion.character == 'g' ? std::chars_format::general
                                                                 : std::chars_format::scientific;
    PutNumber(out, conversion, number, form, precision);
    return true;
}

bool PutText(Output& out, const Conversion& conversion, Arguments& arguments) {
    const char* const text = arguments.Text();
    if (text == nullptr || conversion.zeros || conversion.precision >= 0 || conversion.isLong) return false;
    PutPadded(out, conversion, text);
    return true;
}

// False for what is left to the C library.
bool PutConversion(Output& out, const Conversion& conversion, Arguments& arguments) {
    if (conversion.width > LARGEST_COUNT || conversion.precision > LARGEST_COUNT) return false;
    switch (conversion.character) {
        case 'd':
        case 'i':
        case 'u':
        case 'x':
            return PutInteger(out, conversion, arguments);
        case 'f':
        case 'g':
        case 'e':
            return PutDouble(out, conversion, arguments);
        case 's':
            return PutText(out, conversion, arguments);
        default:
            return false;
    }
}

}  // namespace

bool PrintText(TCString& text, const char* format, va_list given) {
    Arguments arguments(given);
    Output out(text);
    while (true) {
        const char* const percent = strchrnul(format, '%');
        out.Text({format, static_cast<std::size_t>(percent - format)});
        if (*percent == '\0') break;
        format = percent + 1;
        if (*format == '%') {
            if (std::strncmp(format + 1, "lpPtr", 5) == 0) return false;
            out.Text("%");
            ++format;
        } else if (!PutConversion(out, ReadConversion(format), arguments)) {
            return false;
        }
    }
    out.Finish();
    return true;
}

}  // namespace tc
