#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

// What full-disk and the test that preloads it share through a file.
struct FullDiskState {
    int failing;   // the number of the call that fails, counted from 1
    bool onlyOne;  // else all after it fail too
    bool failed = false;
    int calls = 0;
};

inline std::string ReadAll(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

inline void WriteAll(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// "ok" for a sound SQLite database. Waits for a killed program that still holds it.
std::string CheckDatabase(const char* path);

// How often, in the ordinary run or in the long one.
inline int FaultCount(int ordinary) {
    const char* const wanted = std::getenv("SIGWEAVE_FAULTS");
    return wanted != nullptr ? std::atoi(wanted) : ordinary;
}

inline bool IsLongForm() {
    return std::getenv("SIGWEAVE_FAULTS") != nullptr;
}

// The exit code of a shell command; messages and output go to files of these names.
inline int Shell(const std::string& command, const std::string& environment = "") {
    const int status =
        std::system(("(LC_ALL=C.UTF-8 " + environment + " " + command + ") </dev/null >out 2>err").c_str());
    return status >> 8;
}
