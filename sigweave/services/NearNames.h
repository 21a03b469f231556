#pragma once

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"

namespace tc {

// The candidates that a mistyped name may have meant, nearest first, at most three. Near is a name that
// differs only in case, begins with what was typed, or differs by a few typing mistakes (one in three
// characters: wrong, missing, added, or two exchanged).
TC_API CStringArray NearestNames(const CString& name, const CStringArray& candidates);

// The remedy for an unknown name, as part of a message: "did you mean 'block' or 'clock'?", or when nothing
// is near all candidates, "known are block, factor", or "there are none".
TC_API CString SuggestNames(const CString& name, const CStringArray& candidates);

}  // namespace tc
