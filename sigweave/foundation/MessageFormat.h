#pragma once

#include <cstdarg>
#include <string>

namespace tc {

// Prints a message with numbered inserts, so that a translation may change their order:
//   %1 .. %99     the argument of that number as text
//   %1!spec!      the same by the rules of printf, as %1!d! or %2!-8.3f!; a "*" in it takes the argument of
//                 that number and shifts the others after it: %1!*s! is argument 2 in the width of argument
//                 1
//   %n %r %t      line feed, carriage return, tab
//   %0            ends the message
//   %% and any other character: that character
// An argument may be used several times, always as the same kind; one that is not used must be of the size of
// a pointer or an int. False, with `out` undefined, for any other format.
bool FormatMessage(const char* format, va_list arguments, std::string& out);

}  // namespace tc
