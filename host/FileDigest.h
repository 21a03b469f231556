#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace host {

struct FileDigest {
    std::int64_t bytes = 0;
    std::string sha256;  // 64 hexadecimal digits
};

// False for a file that cannot be read, and for what is no ordinary file.
bool ComputeDigest(const std::string& path, FileDigest& digest);

// The SHA-256 of a text, as 64 hexadecimal digits.
std::string ComputeDigest(std::string_view text);

}  // namespace host
