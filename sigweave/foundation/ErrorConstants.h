#pragma once

#include <cstdint>

// The symbolic names of the system's error numbers. Internal.
namespace tc {

struct ErrorConstant {
    std::uint32_t number;
    const char* name;
};

inline constexpr int ERROR_CONSTANT_COUNT = 2540;

// Strictly ascending by number.
extern const ErrorConstant ERROR_CONSTANTS[ERROR_CONSTANT_COUNT];

}  // namespace tc
