#pragma once

#include <filesystem>
#include <memory>
#include <system_error>

#include "sigweave/platform/OwnedFolder.h"

// The temporary folder in which the test program works, by its whole path: what a test removes is named from
// here.
const std::filesystem::path& ProgramFolder();

// An empty folder for one test, that goes with it.
inline std::unique_ptr<tc::OwnedFolder> MakeOwnFolder() {
    std::error_code failed;
    std::unique_ptr<tc::OwnedFolder> folder = tc::OwnedFolder::MakeTemporary("sigweave-test-", failed);
    if (folder == nullptr) throw std::system_error(failed, "a folder for the test");
    return folder;
}
