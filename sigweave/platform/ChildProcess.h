#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// Work that may go wrong in any way, done in a process of its own. A part of the seam that only the host
// needs, so it is built into the host and is none of the library's interface.
namespace tc {

struct ChildPlan {
    std::chrono::milliseconds time{10000};          // by the clock on the wall; then the child is killed
    std::size_t memory = std::size_t{2} << 30;      // address space beside what the parent has
    std::size_t fileSize = std::size_t{256} << 20;  // of each file that it writes
    std::vector<std::string> fileVariables;  // environment variables that name files in the child's folder
};

// The child's way to tell its parent something while it works.
class ChildReport {
 public:
    explicit ChildReport(int pipeEnd) : descriptor(pipeEnd) {}
    // `kind` is the caller's, but not 0. When nobody can hear it any more, because the work closed what it
    // had not opened, the child ends.
    void Tell(char kind, std::string_view text) const;

 private:
    int descriptor;
};

struct ChildEnd {
    enum class Kind { Finished, Exited, Killed, TimedOut, Silenced, NotStarted };
    Kind kind = Kind::NotStarted;
    int number = 0;      // Exited: the exit code; Killed: the signal; NotStarted: the error number
    std::string signal;  // Killed: its name, as "SIGSEGV"
    std::string output;  // what it wrote to standard output, cut when it is long
    std::string errors;  // and to standard error
};

// Forks, does the work in the child and waits for its end. The child works in an empty temporary folder that
// goes with it, reads nothing from standard input, leaves no core file, and takes the processes that it
// started with it. `onReport` is called in the parent for everything that the child told, in order. The
// work's return is the end Finished, whatever static objects there are; exit() in it is Exited.
//
// To be called while the process has one thread.
ChildEnd RunInChild(const ChildPlan& plan, const std::function<void(const ChildReport&)>& work,
                    const std::function<void(char kind, std::string_view text)>& onReport);

// Bytes of the heap that are in use in this process; -1 where that cannot be told.
std::int64_t HeapInUse();

}  // namespace tc
