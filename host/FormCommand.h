#pragma once

#include "host/SetCommand.h"

namespace host {

// Speaks the settings dialog of one instance on standard input and output (see FormSession), and writes what
// was changed into the graph file when it ends with OK. Answers the exit code.
int ShowForm(const SetOptions& set, const CommandOptions& options);

}  // namespace host
