#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "sigweave/platform/Confinement.h"

// Work that may go wrong in any way, done in a process of its own. A part of the seam that the library does
// not need: it is built into the host.
namespace tc {

struct ChildPlan {
    std::chrono::milliseconds time{10000};          // by the clock on the wall; then the child is killed
    std::size_t memory = std::size_t{2} << 30;      // address space, besides the parent's
    std::size_t fileSize = std::size_t{256} << 20;  // of each file that it writes
    std::vector<std::string> fileVariables;  // environment variables that name files in the child's folder
    Confinement confinement;                 // all of it, or the child does not begin
};

// With this the child reports to its parent while it works.
class ChildReport {
 public:
    explicit ChildReport(int pipeEnd) : descriptor(pipeEnd) {}
    // `kind` is the caller's, but not 0. When nobody can hear it any more, because the work closed what it
    // had not opened, the child ends.
    void Tell(char kind, std::string_view text) const;

 private:
    int descriptor;
};

// The child's folder, and what other code in the child may have done to it and to the standard streams.
class ChildPlace {
 public:
    ChildPlace();

    // Makes an empty folder and enters it; nothing is taken away. False when that cannot be done.
    bool EnterFresh();

    enum class Change {
        None,
        Elsewhere,  // the working directory is another one
        Replaced,   // the folder has another name now, or none
        Closed,     // a standard stream
        Redirected  // a standard stream
    };
    struct Finding {
        Change change = Change::None;
        std::string what;  // Elsewhere: the working directory now; Closed, Redirected: "1"
    };
    // What is not as it was, the first that is found.
    Finding WhatChanged() const;

 private:
    struct Identity {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        bool operator==(const Identity&) const = default;
    };
    static bool Identify(int descriptor, Identity& identity);

    int work;  // descriptor of the folder in which the empty ones are made
    Identity workIdentity;
    Identity folder;
    Identity streams[3];
    std::string name;
    int made = 0;
};

struct ChildEnd {
    // Signalled: it sent a signal to the process that watches it.
    enum class Kind { Finished, Exited, Killed, TimedOut, Silenced, NotStarted, Signalled };
    // What a child that was not started stumbled at.
    enum class Step { Folder, Process, Confinement, Entry };
    Kind kind = Kind::NotStarted;
    Step step = Step::Folder;
    int number = 0;      // Exited: the exit code; Killed: the signal; NotStarted: the error number
    std::string signal;  // Killed, Signalled: its name, as "SIGSEGV", if it is known
    std::string output;  // what it wrote to standard output, cut when it is long
    std::string errors;  // and to standard error
    std::string left;    // the path of a temporary folder that could not be taken away whole
};

// Forks, does the work in the child and waits for its end. The child begins in an empty folder, reads nothing
// from standard input, leaves no core file, and takes the processes that it started with it. Its folder, and
// those that variables name for temporary and own files, lie in a temporary folder that was made for it; this
// one is taken away when no process of the child is left. A child that could not enter its folder, or not be
// confined as planned, does not begin. `onReport` is called in the parent for each report of the child,
// in order. The work's return is the end Finished, whatever static objects there are; exit() in it is Exited.
//
// To be called while the process has one thread.
ChildEnd RunInChild(const ChildPlan& plan, const std::function<void(const ChildReport&, ChildPlace&)>& work,
                    const std::function<void(char kind, std::string_view text)>& onReport);

// The most that works here, found by trying. `end` is that of the last trial: not Finished when no child can
// be started at all. As RunInChild.
Confinement FindConfinement(ChildEnd& end);

// Bytes of the heap that are in use in this process; -1 where it is not known.
std::int64_t HeapInUse();

}  // namespace tc
