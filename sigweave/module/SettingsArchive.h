#pragma once

#include "sigweave/foundation/TCString.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/persistence/ArchiveParser.h"
#include "sigweave/platform/Export.h"

namespace tc {

// Stores all settings of a module in an archive, in the subsection that is open, or loads them from it: a
// String each, as the value was typed. Its number comes from the parameter's name, so that a table may be
// ordered anew. Secret values, and ones that must be given and were not, are left out; a value that the
// archive lacks stays as it was. False with `error` when a value that is loaded is not allowed; nothing has
// changed then. What was loaded becomes effective by ApplySettings.
TC_API bool SerializeSettings(ArchiveParser& archive, TCBaseModuleEx& module, TCString& error);

}  // namespace tc
