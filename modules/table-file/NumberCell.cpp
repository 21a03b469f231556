#include "modules/table-file/NumberCell.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>

namespace tc {

namespace {

// Of numbers, and of nan and infinity.
constexpr std::array<bool, 256> MakeParts() {
    std::array<bool, 256> parts{};
    for (const char byte : std::string_view("0123456789+-eEnNaAiIfFtTyY"))
        parts[static_cast<unsigned char>(byte)] = true;
    return parts;
}
constexpr std::array<bool, 256> PARTS = MakeParts();

bool IsPart(char byte, char point) {
    return byte == point || PARTS[static_cast<unsigned char>(byte)];
}

// Null when there is no number. One that is too large is infinite, and one too small is 0.
const char* Convert(const char* begin, const char* end, double& value) {
    const auto [stop, failed] = std::from_chars(begin, end, value);
    if (failed == std::errc::invalid_argument) return nullptr;
    if (failed != std::errc::result_out_of_range) return stop;
    long double wide = 0.0L;
    const bool isSmall = std::string_view(begin, stop).find("e-") != std::string_view::npos ||
                         std::string_view(begin, stop).find("E-") != std::string_view::npos;
    if (std::from_chars(begin, stop, wide).ec == std::errc())
        value = static_cast<double>(wide);
    else
        value = isSmall ? 0.0 : std::numeric_limits<double>::infinity();
    if (*begin == '-') value = -std::fabs(value);
    return stop;
}

}  // namespace

const char* ReadAnyNumberCell(const char* text, char point, double& value) {
    const char* const begin = text + (*text == '+' && text[1] != '-');
    const char* end = begin;
    while (IsPart(*end, point)) ++end;
    if (point == '.') return Convert(begin, end, value);
    char near[64];
    std::string far;
    const auto length = static_cast<std::size_t>(end - begin);
    char* copy = near;
    if (length > sizeof near) {
        far.resize(length);
        copy = far.data();
    }
    std::replace_copy(begin, end, copy, point, '.');
    const char* const stop = Convert(copy, copy + length, value);
    return stop != nullptr ? begin + (stop - copy) : nullptr;
}

}  // namespace tc
