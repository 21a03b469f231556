#pragma once

#include <cstdint>
#include <string>

#include "sigweave/platform/Export.h"

// What a program asks about the process that it runs in. Any thread.

enum class StandardStream : int { Input = 0, Output = 1, Error = 2 };

// Whether a person sits at the other end.
TC_API bool TCIsTerminal(StandardStream stream);

// The folder of the running program's file, links resolved; empty when the system does not say.
TC_API std::string TCGetProgramFolder();

// What happens to a waiting call of the system, such as for a pipe, when a signal comes.
enum class WaitingCalls { GoOn, Fail };

// Calls the handler when the program is asked to end: by Ctrl-C, by the system, or because its terminal goes
// away (which is left ignored where it is, as nohup does). Only the first time: the next one ends the program
// at once. The handler runs in the middle of anything, so it may only set atomic values and events.
TC_API void TCOnInterrupt(void (*handler)(), WaitingCalls calls);

namespace tc {

// Of the whole machine, whoever uses it.
std::int64_t MachineMemoryBytes();

}  // namespace tc
