#pragma once

#include <string>
#include <string_view>

namespace host {

// What the parser of the command line complains about, in the user's language; a complaint that is not known
// here stays as it is.
std::string ExplainCommandLine(std::string_view complaint);

}  // namespace host
