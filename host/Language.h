#pragma once

#include <string>
#include <vector>

namespace host {

// The language in which people are told something: that of an option --language en|de of the command line,
// else of the entry "Language" of the section "Host" in the user's profile, else in the machine's profile,
// else of the locale that the environment names for messages (LC_ALL, LC_MESSAGES, LANG). Nothing that
// machines read depends on it.
//
// Takes the option out of the arguments, wherever it stands before "--"; the last one counts. False, and the
// reason told, when it names no known language. An unknown language in a profile is warned about and passed
// over.
bool ChooseLanguage(std::vector<std::string>& arguments);

}  // namespace host
