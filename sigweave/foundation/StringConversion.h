#pragma once

#include "sigweave/foundation/TCArray.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"

// Text into values and back: integers, escaped and URL texts, name=value lines, lists, XML text. Free of
// state; any thread. Unless said otherwise `dst` may be the text that is read.

// --- Integers

// Read an integer of 32 bits at `p` and move `p` past it; beyond the range the nearest limit is answered.
// With base 0 a prefix 0x means 16 and a sign or a digit 10; on anything else, for a null `p` and for a base
// that is not 2 to 36, the answer is 0 and `p` stays.
TC_API int GetNumber(const char*& p, int base);
TC_API unsigned long GetNumberU(const char*& p, int base);

// --- Escaping

// Resolves the backslash escapes of `src`: \" \' \? \\ \a \b \f \n \r \t \v, \x with one or two hex digits,
// one to three octal digits, and \c for the byte 17 (deliberately, for the files written with it). False when
// an escape was wrong; what could be read of it is kept.
TC_API bool UnQuoteEscapeChar(TCString& dst, const TCString& src);

// Escapes control characters and the backslash; `UnQuoteEscapeChar` restores every byte string from it.
// Quotes stay as they are (deliberately: callers that put the text in quotes escape them themselves). Answers
// `dst`.
TC_API TCString& QuoteControlChar(TCString& dst, const TCString& src);

// All bytes but ASCII letters, digits and "-_.~" become %XX. Both answer `dst`; a null text is empty.
TC_API TCString& URLEncode(TCString& dst, const char* src);
// What is not a percent sign with two hex digits stays, plus signs too.
TC_API TCString& URLDecode(TCString& dst, const char* src);

// --- Lines

// A constant text of `n` spaces, at most 100.
TC_API const char* TCIndentSpaces(int n);

// The first character of the next line that is not blank, or null when there is none.
TC_API const char* GetLine(const char* p);

// Looks for a line that begins with the name, without regard to case, and answers in `value` what follows the
// next "=". The line need not go on with "=" (deliberately: a line gainx=1 answers to gain, and callers
// order their names). With `maxLen` -1 the value ends at the line feed and is trimmed; without a line feed
// after it the value is empty (deliberately: texts end with a line feed). Any other `maxLen` takes that many
// bytes as they are. False, and `value` unchanged, when there is no such line or no "=".
TC_API bool ParseParam(const char* text, const char* name, TCString& value, int maxLen = -1);
TC_API bool ParseParam(const char* text, const char* name, CString& value, int maxLen = -1);
// A value without digits is 0.
TC_API bool ParseParam(const char* text, const char* name, int& value);
TC_API bool ParseParam(const char* text, const char* name, double& value);

// --- Lists: fill `out` anew and answer the number of elements

// The texts between the separators; with `keepSeparator` each ends with its separator. A separator at the end
// begins no further element. With an empty separator the whole text is one element. Text and separator may be
// elements of `out`.
TC_API int ConvertStringToStrArray(const char* text, TCArray<TCString, const TCString&>& out,
                                   const char* separator, bool keepSeparator);
TC_API int ConvertStringToStrArray(const char* text, CStringArray& out, const char* separator,
                                   bool keepSeparator);

// The decimal integers of the text, whatever is between them.
TC_API int ConvertStringToIntArray(const char* text, TCArray<int, int>& out);
TC_API int ConvertStringToIntArray(const char* text, TCArray<int, const int&>& out);
TC_API int ConvertStringToIntArray(const char* text, CArray<int>& out);

// The floating-point numbers of the text, as scanf reads them (hexadecimal ones and infinities too; 0x alone
// is none). With `decimalComma` commas are decimal signs and points are
// ignored. Two numbers joined only by a sign are one number.
TC_API int ConvertStringToDblArray(const char* text, TCArray<double, double>& out, bool decimalComma);
TC_API int ConvertStringToDblArray(const char* text, TCArray<double, const double&>& out, bool decimalComma);
TC_API int ConvertStringToDblArray(const char* text, CArray<double>& out, bool decimalComma);

// --- XML

// The text (up to its first zero byte) as UTF-16 in `dst`, whose buffer is answered. A byte order mark
// decides how the text is encoded, then an encoding="UTF-8" (in double quotes) in its declaration, else it is
// code page 0. After a mark of UTF-16 the length of `dst` takes in the 16-bit zero that ends the text.
TC_API const char16_t* XMLToUnicode(TCString& dst, const char* text);
