#pragma once

#include <string>

namespace tc {

// False when no program "gnuplot" is found through PATH.
bool HasGnuplot();

// Runs the script, which writes to the standard output, and puts the picture at `path`, whole or not at
// all. False with the reason in `error`.
bool RunGnuplot(const std::string& script, const std::string& path, std::string& error);

// False with the reason in `error` when no file can be made beside `path`. A file that is there is kept.
bool CanWriteBeside(const std::string& path, std::string& error);

}  // namespace tc
