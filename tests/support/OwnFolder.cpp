#include "tests/support/OwnFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "sigweave/platform/OwnedFolder.h"

namespace fs = std::filesystem;

namespace {

fs::path programFolder;

// Every test program works in a temporary folder of its own, with profiles, time zone and locale of its own:
// wherever and as whoever it is started, it finds the same and leaves nothing behind.
class OwnFolder : public testing::Environment {
 public:
    void SetUp() override {
        std::error_code failed;
        folder = tc::OwnedFolder::MakeTemporary("sigweave-test-", failed);
        ASSERT_NE(folder, nullptr) << failed.message();
        programFolder = folder->Path();
        before = fs::current_path();
        fs::current_path(folder->Path());
        setenv("SIGWEAVE_USER_HIVE", (folder->Path() / "user.db").c_str(), 1);
        setenv("SIGWEAVE_MACHINE_HIVE", (folder->Path() / "machine.db").c_str(), 1);
        setenv("TZ", "UTC", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
    }
    void TearDown() override {
        if (folder == nullptr) return;
        fs::current_path(before);
        folder->Remove();
    }

 private:
    std::unique_ptr<tc::OwnedFolder> folder;
    fs::path before;
};

const testing::Environment* const ownFolder = testing::AddGlobalTestEnvironment(new OwnFolder);

}  // namespace

const fs::path& ProgramFolder() {
    return programFolder;
}
