#pragma once

#include <string>

// Internal.
namespace tc {

// The base folders of the user, by the rules of the XDG base directories: the environment's if it is an
// absolute path, else the usual one below the home folder. State is what outlives a restart and is worth
// little elsewhere, as histories.
enum class UserFolder { Home, Config, Data, Cache, State };

// Without a slash at its end; empty when the user has no home folder. Any thread.
std::string UserFolderPath(UserFolder folder);

// Empty for a variable that is not set.
std::string EnvironmentText(const char* name);

}  // namespace tc
