#pragma once

#include <string>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// How `ftoa` writes a number (stored in settings; never change).
enum StringFormat : int {
    FORMAT_FIXED = 0,        // `digits` decimals
    FORMAT_EXPONENTIAL = 1,  // `digits` decimals and an exponent of three digits, as 1.5e+003
    FORMAT_SIGNIFICANT = 2,  // `digits` significant digits, fixed or exponential, trailing zeros dropped
    FORMAT_AUTOMATIC = 3     // up to nine decimals, or exponential with five, trailing zeros dropped
};

// Writes the number, right-aligned in `width` characters, and the suffix (null: none; not counted in the
// width) after it; answers the number of characters. The decimal separator is a comma or a point, whatever
// the locale. Halves round away from zero; beyond 18 digits zeros follow. Infinities and not-a-number are
// written as printf does, without width and suffix. The buffer must have room for all of it and a terminating
// zero.
TC_API int ftoa(double value, char* buffer, StringFormat format, bool comma, const char* suffix, int width,
                int digits);

// Half away from zero. Values beyond the range of int give its limits, not-a-number gives 0.
TC_API int Round(double value);
// To `decimals` places: half away from zero, down, up. Negative `decimals` round to tens, hundreds and so on.
TC_API double Round(double value, int decimals);
TC_API double Round0(double value, int decimals);
TC_API double Round1(double value, int decimals);

// `value` times or divided by 10^`exponent`, without leaving the range of double on the way.
TC_API double ExpMul(double value, int exponent);
TC_API double ExpDiv(double value, int exponent);

namespace tc {
// As few digits as distinguish the value from every other double: without an exponent from 0.00001 on and
// below 10^16, as in 0.00001, 1500000 and 1e-06; "inf", "-inf" and "nan". For messages and settings, in every
// locale.
TC_API std::string ShortestText(double value);
}  // namespace tc

TC_API TCString ToString(int value);
// "true" or "false".
TC_API const char* ToString(bool value);
// Valid until the next call, from any thread: one buffer serves the process.
TC_API const char* ToStaticString(int value);
