// A folder is taken away as what was made, and nothing else is.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "sigweave/platform/OwnedFolder.h"
#include "tests/support/OwnFolder.h"

namespace {

namespace fs = std::filesystem;

void Write(const fs::path& file) {
    std::ofstream(file) << "what somebody wrote";
}

// The folder `own/made`, and beside it a file that must stay.
class Owned : public testing::Test {
 protected:
    Owned() : around(MakeOwnFolder()), place(around->Path() / "made"), canary(around->Path() / "canary") {
        fs::create_directory(canary);
        Write(canary / "file");
        made = tc::OwnedFolder::Make(place, failed);
    }
    ~Owned() override { EXPECT_TRUE(fs::exists(canary / "file")); }

    std::unique_ptr<tc::OwnedFolder> around;
    fs::path place;
    fs::path canary;
    std::error_code failed;
    std::unique_ptr<tc::OwnedFolder> made;
};

TEST_F(Owned, GoesWithAllThatIsInIt) {
    fs::path deep = place;
    for (int level = 0; level < 150; ++level) fs::create_directory(deep /= "d");
    fs::create_symlink(canary, place / "link");
    fs::create_symlink(canary / "file", deep / "link");
    mkfifo((place / "fifo").c_str(), 0600);
    for (int i = 0; i < 500; ++i) Write(place / std::to_string(i));
    for (const char* name : {"closed", "closed/below", "closed/below/again"})
        fs::create_directory(place / name);
    for (const char* name : {"closed/below/again", "closed/below", "closed"})
        fs::permissions(place / name, fs::perms::none);
    fs::permissions(place, fs::perms::none);
    EXPECT_TRUE(made->Remove());
    EXPECT_FALSE(fs::exists(fs::symlink_status(place)));
    EXPECT_FALSE(made->Remove()) << "once";
}

TEST_F(Owned, IsNotWhatHasItsNameNow) {
    for (const bool isLink : {false, true}) {
        fs::rename(place, around->Path() / "renamed");
        isLink ? fs::create_directory_symlink(canary, place) : fs::copy(canary, place);
        EXPECT_FALSE(made->Remove());
        EXPECT_TRUE(fs::exists(place / "file"));
        fs::rename(place, around->Path() / (isLink ? "link" : "copy"));
        made = tc::OwnedFolder::Make(place, failed);
        ASSERT_NE(made, nullptr) << failed.message();
    }
}

TEST_F(Owned, IsNotMadeOverWhatIsThere) {
    for (const fs::path& taken : {place, canary, canary / "file"}) {
        EXPECT_EQ(tc::OwnedFolder::Make(taken, failed), nullptr);
        EXPECT_EQ(failed, std::errc::file_exists);
    }
    EXPECT_EQ(tc::OwnedFolder::Make(canary / "file" / "below", failed), nullptr);
    EXPECT_EQ(failed, std::errc::not_a_directory);
    const auto nested = tc::OwnedFolder::Make(around->Path() / "above/below/", failed);
    ASSERT_NE(nested, nullptr) << failed.message();
    EXPECT_EQ(nested->Path(), around->Path() / "above/below");
}

TEST_F(Owned, GivesBackItsFilesAndLeavesThoseOfOthers) {
    Write(place / "own");
    Write(place / "of somebody else");
    EXPECT_FALSE(made->RemoveFiles({"own", "../canary/file", "never written"}));
    EXPECT_FALSE(fs::exists(place / "own"));
    EXPECT_TRUE(fs::exists(place / "of somebody else"));
    const auto other = tc::OwnedFolder::Make(around->Path() / "other", failed);
    Write(other->Path() / "own");
    EXPECT_TRUE(other->RemoveFiles({"own"}));
    EXPECT_FALSE(fs::exists(around->Path() / "other"));
}

// The work's answer in a process of its own; -1 when that ended otherwise.
template <class Work>
int InChild(Work work) {
    const pid_t child = fork();
    if (child == 0) _exit(work());
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Owned, StaysWhenAForkedProcessEnds) {
    EXPECT_EQ(InChild([&] {
                  made.reset();
                  return 0;
              }),
              0);
    EXPECT_TRUE(fs::exists(place));
}

// From the same disk: its number says nothing of that.
TEST_F(Owned, KeepsOutOfWhatIsMountedInIt) {
    constexpr int NO_NAMESPACE = 2;
    const std::string users = "0 " + std::to_string(geteuid()) + " 1";
    const int answer = InChild([&] {
        const auto own = tc::OwnedFolder::Make(around->Path() / "mounted", failed);
        const fs::path mount = own->Path() / "place";
        fs::create_directory(mount);
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return NO_NAMESPACE;
        std::ofstream("/proc/self/uid_map") << users << std::flush;
        if (::mount(canary.c_str(), mount.c_str(), "none", MS_BIND, nullptr) != 0) return NO_NAMESPACE;
        return own->Remove() ? 1 : 0;
    });
    if (answer == NO_NAMESPACE) GTEST_SKIP() << "this system offers no namespaces";
    EXPECT_EQ(answer, 0);
}

}  // namespace
