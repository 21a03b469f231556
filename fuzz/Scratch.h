#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace fuzz {

// A name in a folder that is the process's own and goes with it.
inline std::string ScratchFile(const std::string& name) {
    struct Folder {
        Folder() : path(Base() / ("sigweave-fuzz-" + std::to_string(getpid()))) {
            std::filesystem::create_directories(path);
        }
        ~Folder() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
        // In memory where the system has such a folder.
        static std::filesystem::path Base() {
            std::error_code ignored;
            return std::filesystem::is_directory("/dev/shm", ignored)
                       ? std::filesystem::path("/dev/shm")
                       : std::filesystem::temp_directory_path();
        }
        std::filesystem::path path;
    };
    static const Folder folder;
    return (folder.path / name).string();
}

// The input as a file.
inline std::string WriteScratch(const std::string& name, const std::string& bytes) {
    const std::string path = ScratchFile(name);
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
}

}  // namespace fuzz
