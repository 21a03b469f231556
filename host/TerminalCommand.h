#pragma once

#include "host/Commands.h"
#include "host/SetCommand.h"

namespace host {

// Shows the settings dialog of an instance in the terminal and writes what was changed into the graph file,
// whole at its end with `ok`. A signal, the end of the input and `cancel` leave the file as it is, and it
// says so. Answers the exit code: wrong input where nobody can be asked.
int ShowTerminalForm(const SetOptions& set, const CommandOptions& options);

}  // namespace host
