#include "sigweave/platform/BecomeProgram.h"

#include <unistd.h>

#include <cerrno>

namespace tc {

int BecomeProgram(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<char*> words = {const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    execv(path.c_str(), words.data());
    return errno;
}

}  // namespace tc
