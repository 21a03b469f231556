#pragma once

namespace tc {

// Reads a floating-point number as strtod does, with a point as decimal sign whatever the locale is. `end`
// (may be null) receives where the number ends, `text` itself when there is none.
double ReadDouble(const char* text, char** end);

// Whether printf writes a point as decimal sign now.
bool PrintsDecimalPoint();

}  // namespace tc
