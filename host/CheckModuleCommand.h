#pragma once

#include "host/check/CheckSubject.h"

namespace host {

// Answers the exit code of `sigweave check-module`: 0 when every check passed or does not apply, 1 when one
// failed, 2 for a library that cannot be read and for what it does not have.
int CheckModuleLibrary(const check::CheckOptions& options);

}  // namespace host
