// Messages with numbered inserts, and the log's own way to print. Parts of an input: a message, a conversion
// of printf without its percent sign, and the number or text that it prints.
#include <cstdarg>
#include <cstring>

#include "fuzz/Fuzz.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/services/PrintText.h"

namespace {

constexpr const char* UNTOUCHED = "untouched";

bool HasOnly(const std::string& text, const char* set) {
    return text.find_first_not_of(set) == std::string::npos;
}

// Widths of a thousand characters are enough.
bool HasLongNumber(const std::string& text) {
    std::size_t digits = 0;
    for (const char c : text) {
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        if (digits > 3) return true;
    }
    return false;
}

std::string Print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char text[4096];
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

// What the log prints; missing where it leaves the format to the C library.
bool PrintFast(TCString& text, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const bool isPrinted = tc::PrintText(text, format, arguments);
    va_end(arguments);
    return isPrinted;
}

template <typename Value>
void PrintAllWays(const std::string& spec, Value value) {
    const std::string format = "[%" + spec + "]";
    const std::string expected = Print(format.c_str(), value);
    if (expected.size() + 1 == 4096) return;
    fuzz::RequireSame(static_cast<const char*>(TCString::FormatS(format.c_str(), value)), expected,
                      "a string formats as printf does");
    TCString fast;
    if (PrintFast(fast, format.c_str(), value))
        fuzz::RequireSame(fuzz::Bytes(fast), expected, "the log prints as printf does");
    TCString message(UNTOUCHED);
    message.FormatMessageA(("[%1!" + spec + "!]").c_str(), value);
    if (!(message == UNTOUCHED))
        fuzz::RequireSame(fuzz::Bytes(message), expected, "an insert prints as printf does");
}

void PrintOne(const std::string& spec, const std::string& argument) {
    if (spec.empty() || HasLongNumber(spec)) return;
    const char letter = spec.back();
    const std::string flags = spec.substr(0, spec.size() - 1);
    const long number = std::strtol(argument.c_str(), nullptr, 10);
    if (std::strchr("diuxXo", letter) != nullptr && HasOnly(flags, "-+ #0123456789.hlzjt")) {
        if (HasOnly(flags, "-+ #0123456789.h")) return PrintAllWays(spec, static_cast<int>(number));
        return PrintAllWays(spec, number);
    }
    if (!HasOnly(flags, "-+ #0123456789.")) return;
    if (std::strchr("eEfFgGaA", letter) != nullptr)
        PrintAllWays(spec, std::strtod(argument.c_str(), nullptr));
    else if (letter == 's')
        PrintAllWays(spec, argument.c_str());
}

// Every insert has an argument of its kind: texts serve as numbers too.
void TellMessage(const std::string& message) {
    if (HasLongNumber(message) || message.find('*') != std::string::npos) return;
    for (std::size_t i = 0; i + 2 < message.size(); ++i)
        if (message[i] == '%' && HasOnly(message.substr(i + 1, 2), "0123456789")) return;
    TCString told(UNTOUCHED);
    const char* const text = "inserted";
    told.FormatMessageA(message.c_str(), text, text, text, text, text, text, text, text, text, 0.5, 1.5, 2.5,
                        3.5, 4.5, 5.5, 6.5, 7.5, 8.5);
    if (message.find('%') == std::string::npos)
        fuzz::RequireSame(fuzz::Bytes(told), message, "a plain message stays");
    std::string escaped;
    for (const char c : message) escaped += c == '%' ? "%%" : std::string(1, c);
    told.FormatMessageA(escaped.c_str());
    fuzz::RequireSame(fuzz::Bytes(told), message, "percent signs can be written");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    TellMessage(parts.Next());
    const std::string spec = parts.Next();
    PrintOne(spec, parts.Next());
    return 0;
}
