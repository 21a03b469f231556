#pragma once

#include <cstdint>
#include <string_view>

namespace tc {

struct SiSymbol {
    std::string_view text;
    std::int8_t exponents[7];  // in the order of TCSI_Unit::BaseUnit
};

// The index is the token number. The first seven symbols are the base units.
inline constexpr SiSymbol SI_SYMBOLS[] = {
    {"", {}},
    {"m", {1}},
    {"kg", {0, 1}},
    {"s", {0, 0, 1}},
    {"A", {0, 0, 0, 1}},
    {"K", {0, 0, 0, 0, 1}},
    {"mol", {0, 0, 0, 0, 0, 1}},
    {"cd", {0, 0, 0, 0, 0, 0, 1}},
    {"N", {1, 1, -2}},
    {"P", {-1, 1, -2}},
    {"J", {2, 1, -2}},
    {"W", {2, 1, -3}},
    {"C", {0, 0, 1, 1}},
    {"V", {2, 1, -3, -1}},
    {"Ohm", {2, 1, -3, -2}},
    {"S", {-2, -1, 3, 2}},
    {"F", {-2, -1, 4, 2}},
    {"Wb", {2, 1, -2, -1}},
    {"H", {2, 1, -2, -2}},
    {"T", {0, 1, -2, -1}},
    {"lm", {0, 0, 0, 0, 0, 0, 1}},
    {"lx", {-2, 0, 0, 0, 0, 0, 1}},
    {"Hz", {0, 0, -1}},
    {"Bq", {0, 0, -1}},
    {"Gy", {1, 0, -2}},
};

inline constexpr int SI_SYMBOL_COUNT = sizeof SI_SYMBOLS / sizeof SI_SYMBOLS[0];
inline constexpr int SI_CANDELA = 7;
inline constexpr int SI_GRAY = 24;
// What is written as "Gy"; see TCSI_Convert.
inline constexpr std::int8_t SI_GRAY_WRITTEN[7] = {2, 0, -2};
static_assert(SI_SYMBOL_COUNT == SI_GRAY + 1);

}  // namespace tc
