#pragma once

#include "sigweave/foundation/TCLogFont.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"

// The text forms of the values of a dialog (see TCPropertyDialogInfo). Readers answer false, with the value
// unchanged, for a text that is none. Any thread.
namespace tc {

TC_API bool ReadPropertyInt(const CString& text, int& value);
// Finite.
TC_API bool ReadPropertyDouble(const CString& text, double& value);

// In milliseconds since 1970-01-01 00:00 UTC, to the millisecond, of the years 0 to 9999; others are empty.
TC_API CString WritePropertyTime(double time);
TC_API bool ReadPropertyTime(const CString& text, double& time);

// The face, the points on the screen and the styles; what the text does not say stays as it is.
TC_API CString WritePropertyFont(const TCLogFont& font);
TC_API bool ReadPropertyFont(const CString& text, TCLogFont& font);

// Red in the lowest byte, then green and blue.
TC_API CString WritePropertyColour(unsigned long colour);
TC_API bool ReadPropertyColour(const CString& text, unsigned long& colour);

// A row a line, which ends with a line feed; its cells are split by tabs. A backslash, a tab and the ends of
// lines in a cell are \\, \t, \n and \r.
TC_API CString WritePropertyRows(const CArray<CStringArray>& rows);
TC_API bool ReadPropertyRows(const CString& text, CArray<CStringArray>& rows);

}  // namespace tc
