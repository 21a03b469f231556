#pragma once

#include "sigweave/platform/Export.h"

// Numbers as hexadecimal text. The form of the doubles is exact: what is written reads back to the same bits,
// for every finite value, negative zero and subnormal values included. Settings are stored in it.
//
//   [-]0x1.hhhhhhhhhhhhhp+e    13 hex digits after the point, the exponent of two in decimal
//   [-]0x0.hhhhhhhhhhhhhp+0    zero; with p-1022 a subnormal value
//   -1.#IND                    infinity and not-a-number (reads back as not-a-number)

// Writes the value with a terminating zero byte into the `size` bytes at `dst` and answers `dst`. Below the
// 25 bytes that the longest text needs, the text is empty (one byte is always written).
TC_API char* DoubleToHexString(char* dst, int size, const double& value);

// Reads that form, also with fewer digits or in upper case. `end` (may be null) receives where the text goes
// on. A null or empty text or a syntax error answers not-a-number and leaves `end` alone. Deliberately
// lenient, so that a damaged digit loses no setting: any other character among the digits counts as the digit
// 0, and exponents are not checked against the range of a double.
TC_API double HexString2Double(const char* text, char** end);

// Reads a hexadecimal double by its prefix 0x, else a decimal one (with a point in every locale); leading
// white space is skipped. `end` as in `HexString2Double` and in strtod: without a decimal number it receives
// `text` itself. A null text answers not-a-number.
TC_API double StringToDouble(const char* text, char** end);

// Writes lowercase hex digits without leading zeros and a terminating zero byte into `dst`, which needs room
// for 9 bytes; answers `dst`.
TC_API char* itoh(char* dst, unsigned int value);

namespace tc {

// The short way through long texts: reads up to `count` normal values in exactly the form that is written,
// each with one blank after it, and answers how many there were; `text` then is after the last blank. It
// ends before anything else, be it a number or not, and within the last 25 bytes; `StringToDouble` reads what
// is there.
TC_API int ReadWrittenDoubles(const char*& text, const char* end, double* values, int count);

}  // namespace tc
