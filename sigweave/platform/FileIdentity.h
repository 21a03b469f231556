#pragma once

#include <cstdint>

namespace tc {

// Tells whether a path still leads to the same file. All zero for a file that is not there.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t number = 0;
    bool operator==(const FileIdentity&) const = default;
};

FileIdentity IdentifyFile(const char* path);

}  // namespace tc
