#pragma once

#include <string>

#include "sigweave/services/Bilingual.h"

namespace host {

// What messages call the two profiles.
inline constexpr tc::Bilingual USER_PROFILE("the user's profile", "das Profil des Benutzers");
inline constexpr tc::Bilingual MACHINE_PROFILE("the machine's profile", "das Profil des Rechners");

// What `sigweave profile` is to do with one of the two hives of the settings profile.
struct ProfileOptions {
    enum class Action { List, Get, Set, Delete };
    enum class Type { Automatic, Integer, Text };

    Action action = Action::List;
    bool machine = false;
    std::string section;  // of List: empty for all
    std::string entry;
    std::string value;
    Type type = Type::Automatic;  // Automatic: an integer when the value reads as one
};

// Answers the program's exit code: 1 for an entry that is not there and for a hive that cannot be read or
// written, 2 for a value that is not of the type asked for.
int RunProfileCommand(const ProfileOptions& options);

}  // namespace host
