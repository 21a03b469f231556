#pragma once

#include <string>

namespace host {

struct NewModuleOptions {
    std::string name;    // the module's class, id and library
    std::string folder;  // of the new project; empty: one with the module's name
};

// Writes a project of its own for a module: the example module under another name, with a build file, a graph
// and tests. Refuses a name that C++, CMake or another module has, and a folder that is there already.
// Answers the exit code; nothing is left when a file cannot be written.
int WriteNewModule(const NewModuleOptions& options);

}  // namespace host
