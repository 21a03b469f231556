#pragma once

#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace tc {

// How a program is started: in a process group of its own, with no signal blocked or ignored.
class ProgramStart {
 public:
    ProgramStart() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(
            &attributes,
            static_cast<short>(POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
    }
    ~ProgramStart() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    ProgramStart(const ProgramStart&) = delete;
    ProgramStart& operator=(const ProgramStart&) = delete;

    // The program gets `descriptor` as `number`; in the order of the calls, so that one that was given before
    // may be handed on.
    void Give(int descriptor, int number) { posix_spawn_file_actions_adddup2(&actions, descriptor, number); }

    // Nothing from that number on is handed over, such as connections that a library made without saying so;
    // after what is given.
    void CloseFrom(int number) { posix_spawn_file_actions_addclosefrom_np(&actions, number); }

    // Answers 0, or the error number.
    int Run(const std::string& path, const std::vector<std::string>& arguments, pid_t& child) const {
        std::vector<char*> words = {const_cast<char*>(path.c_str())};
        for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        return posix_spawn(&child, path.c_str(), &actions, &attributes, words.data(), environ);
    }

 private:
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace tc
