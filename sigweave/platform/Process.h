#pragma once

#include <cstdint>
#include <string>

#include "sigweave/platform/Export.h"

// What a program asks about the process that it runs in. Any thread.

enum class StandardStream : int { Input = 0, Output = 1, Error = 2 };

// Whether a person sits at the other end.
TC_API bool TCIsTerminal(StandardStream stream);

// The folder of the running program's file, links resolved; empty when the system does not tell.
TC_API std::string TCGetProgramFolder();

namespace tc {

// Of the whole machine, whoever uses it.
std::int64_t MachineMemoryBytes();

}  // namespace tc
