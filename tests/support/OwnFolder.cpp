#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

// Every test program works in a temporary folder of its own, with profiles, time zone and locale of its own:
// wherever and as whoever it is started, it finds the same and leaves nothing behind.
class OwnFolder : public testing::Environment {
 public:
    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "sigweave-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr) << name;
        folder = name;
        before = fs::current_path();
        fs::current_path(folder);
        setenv("SIGWEAVE_USER_HIVE", (folder / "user.db").c_str(), 1);
        setenv("SIGWEAVE_MACHINE_HIVE", (folder / "machine.db").c_str(), 1);
        setenv("TZ", "UTC", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
    }
    void TearDown() override {
        if (folder.empty()) return;
        fs::current_path(before);
        fs::remove_all(folder);
    }

 private:
    fs::path folder;
    fs::path before;
};

const testing::Environment* const ownFolder = testing::AddGlobalTestEnvironment(new OwnFolder);

}  // namespace
