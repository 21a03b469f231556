#pragma once

#include "sigweave/platform/Framework.h"
#include "sigweave/services/Bilingual.h"

// What messages say about a value that is not allowed, alike for parameters, dialogs and modules. In the
// language in use; any thread.
namespace tc {

// One shape for all: "corner: '0' is not valid; expected more than 0 Hz". The value may be followed by its
// circumstances, as "'0' ... at 8000 samples per second".
CString NotValidText(const CString& name, const CString& value, const CString& expected,
                     const CString& circumstances = "");

enum class NumberKind { INTEGER, REAL };

// "a number from 0 to 1 (in V)". The ends of double are no limits, and those of int are the widest of an
// INTEGER. The unit may be empty.
CString DescribeNumbers(NumberKind kind, double minimum, double maximum, const CString& unit);
// "one of hann, hamming".
CString DescribeWords(const CStringArray& words);

inline constexpr Bilingual YES_OR_NO("yes or no", "yes oder no");
inline constexpr Bilingual A_FILE_NAME("a file name", "ein Dateiname");
inline constexpr Bilingual ANY_TEXT("any text", "ein beliebiger Text");
// After a refusal: the number with a point, which is allowed.
inline constexpr Bilingual WRITE_A_POINT("; write a point: %1", "; schreiben Sie einen Punkt: %1");

}  // namespace tc
