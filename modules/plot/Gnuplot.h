#pragma once

#include <string>

namespace tc {

// False when no program "gnuplot" is found through PATH.
bool HasGnuplot();

// Runs the script, which writes to the standard output, and puts the picture at `path`, whole or not at
// all (see tc::ReplacedFile). False with the reason in `error`.
bool RunGnuplot(const std::string& script, const std::string& path, std::string& error);

// Why the picture could not be put there, found by trying; empty when it can. A file that is there is kept.
std::string WhyNotReplaceable(const std::string& path);

}  // namespace tc
