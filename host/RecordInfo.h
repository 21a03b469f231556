#pragma once

#include <string>

namespace host {

struct InfoOptions {
    std::string file;
    std::string fact;  // prints this one alone; empty: all
    bool check = false;
};

// Says what a recording holds and where it is damaged. 0: it is whole; 1: damaged or not ended, and read all
// the same; 2: it cannot be read or is no recording.
int ShowRecording(const InfoOptions& options);

}  // namespace host
