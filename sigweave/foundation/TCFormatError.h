#pragma once

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// Turns a system error number into one line of text, as in
//
//   5 (ERROR_ACCESS_DENIED): cannot open the file (Permission denied)
//
// Numbers are those of the error-constant table; see GetLastError. Nothing fails. Any thread.
class TC_API TCFormatError {
 public:
    TCFormatError() = delete;

    // The symbolic name, or "Unknown error". Never null, valid for good.
    static const char* GetErrorConstant(unsigned long error);
    // What the system says about the number, without trailing white space; empty when it does not know it.
    static TCString GetLastErrorText(unsigned long error);

    // The line above from its parts: `numberFormat` prints the number ("%d"); a null name is looked up, an
    // empty one is left out; user and system text are left out when null or empty.
    static TCString AsString(int error, const char* constantName, const char* userText,
                             const char* systemText, const char* numberFormat);
    // Printf-style user text; name and system text are looked up.
    TC_PRINTF(2, 3) static TCString ErrorAsString(int error, const char* format, ...);
    // The same for the calling thread's last system error, which is read first. One without a number of its
    // own has the number of a general failure and the text that the system has for it.
    TC_PRINTF(1, 2) static TCString LastErrorAsString(const char* format, ...);
};
