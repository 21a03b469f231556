#pragma once

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"

// A declarator with blanks, as it is written in a type string: blanks and backslashes get a backslash in
// front. `TCValidationUnQuote` gives back the declarator.
TC_API TCString TCValidationQuote(const TCString& declarator);
TC_API CString TCValidationQuote(const CString& declarator);
TC_API TCString TCValidationUnQuote(const TCString& quoted);
TC_API CString TCValidationUnQuote(const CString& quoted);
