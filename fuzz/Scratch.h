#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

#include "sigweave/platform/OwnedFolder.h"

namespace fuzz {

// In memory where the system has such a folder.
inline std::filesystem::path ScratchBase() {
    std::error_code ignored;
    const bool isThere = std::filesystem::is_directory("/dev/shm", ignored);
    return isThere ? std::filesystem::path("/dev/shm") : std::filesystem::temp_directory_path();
}

// A name in a folder that is the process's own and goes with it.
inline std::string ScratchFile(const std::string& name) {
    static std::error_code failed;
    static const std::unique_ptr<tc::OwnedFolder> folder =
        tc::OwnedFolder::MakeTemporary("sigweave-fuzz-", failed, ScratchBase());
    if (folder == nullptr) throw std::system_error(failed, "no scratch folder");
    return (folder->Path() / name).string();
}

// The input as a file.
inline std::string WriteScratch(const std::string& name, const std::string& bytes) {
    const std::string path = ScratchFile(name);
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
}

}  // namespace fuzz
