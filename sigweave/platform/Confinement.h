#pragma once

#include <initializer_list>
#include <string>

// What keeps a child process from doing harm outside a folder. A part of the seam that the library does not
// need: it is built into the programs that do.
namespace tc {

struct Confinement {
    // All but its folder is read-only for it; it sees no processes, no network and no devices of others.
    bool namespaces = false;
    // The version of the system's own rules for files (Landlock), by which nothing outside its folder can be
    // written, made, renamed or taken away. 0: there are none. Below 3 they let files be emptied; all let
    // modes and times of files be changed.
    int fileRules = 0;

    bool IsNone() const { return !namespaces && fileRules == 0; }
};

// The version of the rules for files that the system knows; 0 for none. Any thread.
int FileRulesVersion();

// The following hold for the calling process and those that it starts later, for good. Each answers false
// when the system does not allow it; the process may then be half confined and must not go on. To be called
// while the process has one thread.

// Enters namespaces of its own, where all is read-only but the folder, whose path is absolute. The next
// process that is forked is the first one that sees only those forked from it; EnterProcesses is to be called
// in it.
bool EnterNamespaces(const char* folder);
void EnterProcesses();

// Gives up all that a superuser may do, save reading every file, and for good.
void GiveUpPrivileges();
// After GiveUpPrivileges. Everything may be read, nothing but the folder written, according to that version.
bool RestrictFiles(int version, const char* folder);
// After GiveUpPrivileges. A signal to one of these processes ends the caller with SIGSYS; false where that is
// not known, and the signal goes its way.
bool ForbidSignalsTo(std::initializer_list<int> processes);

}  // namespace tc
