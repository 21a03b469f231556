#pragma once

#include <string>
#include <vector>

namespace host {

// The language of messages: that of an option --language en|de of the command line,
// else of the entry "Language" of the section "Host" in the user's profile, else in the machine's profile,
// else of the locale that the environment names for messages (LC_ALL, LC_MESSAGES, LANG). Nothing that
// machines read depends on it.
//
// Takes the option out of the arguments, wherever it is before "--"; the last one counts. False, after an
// error message, when it names no known language. An unknown language in a profile is ignored with a warning.
bool ChooseLanguage(std::vector<std::string>& arguments);

}  // namespace host
