#pragma once

#include <string>

namespace tc {

// Why a source cannot read what has that name: it is not there, a folder, or an empty file. With the remedy;
// empty when nothing is wrong.
std::string WhyNoInput(const std::string& path);
// The same where only an ordinary file can be read.
std::string WhyNoInputFile(const std::string& path);
// Of a file that is there and could not be opened.
std::string NotReadable(const std::string& path);

}  // namespace tc
