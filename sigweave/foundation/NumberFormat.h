#pragma once

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// How `ftoa` writes a number (stored in settings; never change).
enum StringFormat : int {
    FORMAT_FIXED = 0,        // `digits` decimals
    FORMAT_EXPONENTIAL = 1,  // `digits` decimals and an exponent of three digits, as 1.5e+003
    FORMAT_SIGNIFICANT = 2,  // `digits` significant digits, fixed or exponential, trailing zeros dropped
    FORMAT_AUTOMATIC = 3  // nine significant digits or exponential with five decimals, trailing zeros dropped
};

// Writes the number, right-aligned in `width` characters, and the suffix (null: none; not counted in the
// width) behind it; answers the number of characters. The buffer must have room for all of them and a
// terminating zero.
TC_API int ftoa(double value, char* buffer, StringFormat format, bool comma, const char* suffix, int width,
                int digits);
