#pragma once

#include <string>

namespace tc {

// Why a source cannot read a file of that name from its start to its end: it is not there, a folder, empty,
// or no ordinary file. With the remedy; empty when nothing is wrong.
std::string WhyNoInputFile(const std::string& path);
// Of a file that is there and could not be opened.
std::string NotReadable(const std::string& path);

}  // namespace tc
