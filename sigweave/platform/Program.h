#pragma once

#include <string>
#include <vector>

#include "sigweave/platform/Export.h"

// Other programs that a module needs, as one that draws. Any thread.
namespace tc {

// The path of a program that PATH leads to; empty when there is none.
TC_API std::string FindProgram(const std::string& name);

struct ProgramEnd {
    bool started = false;
    int code = 0;           // of its exit, 128 and the signal when one ended it, or the error number when it
                            // did not start
    std::string output;     // what it wrote to standard output
    std::string complaint;  // and to standard error; then the name of the signal that ended it
};

// Starts the program, without a shell, gives it the input at its standard input, and waits for its end. It is
// in a process group of its own, so that what is typed at the terminal ends the caller alone, and signals
// that the caller ignores or blocks have their usual effect in it. The caller's own signals stay as they are.
TC_API ProgramEnd RunProgram(const std::string& path, const std::vector<std::string>& arguments,
                             const std::string& input);

}  // namespace tc
