#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "sigweave/services/Profile.h"
#include "sigweave/services/ProfileEntries.h"
#include "tests/support/OwnFolder.h"

namespace {

namespace fs = std::filesystem;

// Both hives in a fresh folder of the test.
class Profile : public testing::Test {
 protected:
    Profile() : own(MakeOwnFolder()), folder(own->Path() / "hives") { UseHives("a"); }
    void UseHives(const std::string& subfolder) {
        setenv("SIGWEAVE_USER_HIVE", File(subfolder + "/user.db").c_str(), 1);
        setenv("SIGWEAVE_MACHINE_HIVE", File(subfolder + "/machine.db").c_str(), 1);
    }
    std::string File(const std::string& name) const { return (folder / name).string(); }
    static std::string Content(const std::string& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    std::unique_ptr<tc::OwnedFolder> own;
    fs::path folder;  // not there yet
};

// Answers the child's process number. The child leaves at once: other threads' memory is not its to give
// back.
pid_t InChild(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child != 0) return child;
    work();
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

bool EndsWell(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(Profile, KeepsTypedValuesOfTwoHives) {
    SaveUserProfileInt("S", "number", -5);
    SaveUserProfileString("S", "text", "caf\xe9 'x'");
    SaveMachineProfileInt("S", "number", 2147483647);
    EXPECT_EQ(LoadUserProfileInt("S", "number", 1), -5);
    EXPECT_EQ(LoadMachineProfileInt("S", "number", 1), 2147483647);
    EXPECT_STREQ(LoadUserProfileString("s", "TEXT"), "caf\xe9 'x'");
    EXPECT_EQ(LoadUserProfileInt("S", "text", 7), 7);
    EXPECT_STREQ(LoadUserProfileString("S", "number"), "");
    EXPECT_EQ(LoadUserProfileInt("T", "number", 8), 8);
    EXPECT_STREQ(LoadMachineProfileString("S", "text"), "");
    SaveUserProfileString("S", "NUMBER", "now a text");
    EXPECT_STREQ(LoadUserProfileString("S", "number"), "now a text");
    DeleteUserProfileInt("s", "Number");
    EXPECT_FALSE(ExistsUserProfileKey("S", "number"));
    EXPECT_TRUE(ExistsMachineProfileKey("S", "number"));
    SaveUserProfileString(nullptr, nullptr, nullptr);
    EXPECT_TRUE(ExistsUserProfileKey("", ""));
}

TEST_F(Profile, ComparesWithoutCaseByUnicode) {
    SaveUserProfileInt(
        "Gr\xC3\xB6\xC3\x9F"
        "e",
        "\xC3\x84nderung", 1);
    SaveUserProfileInt(
        "GR\xC3\x96\xC3\x9F"
        "E",
        "\xC3\xA4NDERUNG", 2);
    EXPECT_EQ(LoadUserProfileInt("gr\xC3\xB6\xC3\x9F"
                                 "e",
                                 "\xC3\x84nderung", 0),
              2);
    EXPECT_EQ(LoadUserProfileInt("gr\xC3\xB8\xC3\x9F"
                                 "e",
                                 "\xC3\x84nderung", 0),
              0);
    ASSERT_EQ(tc::ReadProfile(tc::Hive::User)->size(), 1U) << "one entry of one section";
    EXPECT_EQ((*tc::ReadProfile(tc::Hive::User))[0].name, "\xC3\x84nderung");
    DeleteUserProfileInt(
        "GR\xC3\x96\xC3\x9F"
        "E",
        "\xC3\xA4nderung");
    EXPECT_FALSE(
        ExistsUserProfileKey("Gr\xC3\xB6\xC3\x9F"
                             "e",
                             "\xC3\x84nderung"));
    SaveUserProfileInt("S", "\xE4", 1);
    SaveUserProfileInt("S", "\xC4", 2);
    EXPECT_EQ(LoadUserProfileInt("S", "\xE4", 0), 1) << "no characters, so without case";
    ChangeRegistryPath("software\\\xC3\x84");
    SaveUserProfileInt("", "a", 1);
    ChangeRegistryPath("Software\\\xC3\xA4");
    EXPECT_EQ(tc::ReadProfile(tc::Hive::User)->size(), 1U);
    ChangeRegistryPath("Software\\Varnholt\\SIGWEAVE\\");
}

TEST_F(Profile, SeesOnlyEntriesOfUpTo255Bytes) {
    SaveUserProfileString("S", "fits", std::string(254, 'x').c_str());
    SaveUserProfileString("S", "long", std::string(255, 'x').c_str());
    EXPECT_TRUE(ExistsUserProfileKey("S", "fits"));
    EXPECT_FALSE(ExistsUserProfileKey("S", "long"));
    EXPECT_EQ(LoadUserProfileString("S", "long").GetLength(), 255);
}

TEST_F(Profile, PutsSectionsRightAfterThePath) {
    EXPECT_STREQ(GetRegistryPath(), "Software\\Varnholt\\SIGWEAVE\\");
    SaveUserProfileInt("Filter", "a", 1);
    EXPECT_STREQ(ChangeRegistryPath("Software\\Varnholt\\SIGWEAVE\\Fil"), "Software\\Varnholt\\SIGWEAVE\\");
    EXPECT_EQ(LoadUserProfileInt("ter", "a", 0), 1);
    ChangeRegistryPath("Software\\Varnholt\\SIGWEAVE\\");
}

TEST_F(Profile, MakesKeysByDeletingAndNothingByReading) {
    EXPECT_EQ(LoadMachineProfileInt("Empty section", "a", 3), 3);
    EXPECT_FALSE(fs::exists(folder));
    DeleteMachineProfileString("Empty section", "a");
    EXPECT_NE(Content(File("a/machine.db")).find("SIGWEAVE\\Empty section"), std::string::npos);
    EXPECT_FALSE(ExistsMachineProfileKey("Empty section", "a"));
}

TEST_F(Profile, FollowsItsFile) {
    SaveUserProfileInt("S", "a", 1);
    UseHives("b");
    EXPECT_EQ(LoadUserProfileInt("S", "a", 0), 0);
    UseHives("a");
    EXPECT_EQ(LoadUserProfileInt("S", "a", 0), 1);
    fs::rename(folder, own->Path() / "another name");
    EXPECT_EQ(LoadUserProfileInt("S", "a", 0), 0);
    SaveUserProfileInt("S", "a", 2);
    EXPECT_EQ(LoadUserProfileInt("S", "a", 0), 2);
    EXPECT_TRUE(fs::exists(File("a/user.db")));
    SaveMachineProfileInt("S", "a", 1);
    fs::resize_file(File("a/machine.db"), 0);
    SaveMachineProfileInt("S", "a", 2);
    SaveMachineProfileInt("S", "a", 3);
    EXPECT_EQ(LoadMachineProfileInt("S", "a", 0), 3);
    unsetenv("SIGWEAVE_USER_HIVE");
    setenv("XDG_CONFIG_HOME", File("config").c_str(), 1);
    SaveUserProfileInt("S", "a", 3);
    EXPECT_TRUE(fs::exists(File("config/sigweave/profile.db")));
}

TEST_F(Profile, LeavesForeignFilesAlone) {
    fs::create_directories(folder / "a");
    const std::string text = "this is no profile, and it is longer than the header of one would be";
    std::ofstream(File("a/user.db")) << text;
    fs::create_directories(folder / "a/machine.db");
    SaveUserProfileInt("S", "a", 1);
    SaveMachineProfileInt("S", "a", 1);
    EXPECT_EQ(LoadUserProfileInt("S", "a", 5), 5);
    EXPECT_EQ(LoadMachineProfileInt("S", "a", 6), 6);
    EXPECT_EQ(Content(File("a/user.db")), text);
}

// As a user who may read everything and write nothing.
TEST_F(Profile, ReadsWhereNothingMayBeWritten) {
    SaveUserProfileInt("S", "a", 1);
    SaveMachineProfileInt("S", "a", 2);
    for (const fs::path& path : {fs::current_path(), own->Path()}) fs::permissions(path, fs::perms(0755));
    const auto setWritable = [&](bool writable) {
        for (const char* file : {"a/user.db", "a/machine.db"})
            fs::permissions(File(file), fs::perms(writable ? 0644 : 0444));
        fs::permissions(folder / "a", fs::perms(writable ? 0755 : 0555));
    };
    UseHives("none");
    EXPECT_EQ(LoadUserProfileInt("S", "a", 0), 0) << "closes the hives";
    EXPECT_EQ(LoadMachineProfileInt("S", "a", 0), 0);
    UseHives("a");
    setWritable(false);
    EXPECT_TRUE(EndsWell(InChild([] {
        constexpr uid_t NOBODY = 65534;
        if (geteuid() == 0) {
            ASSERT_EQ(setuid(NOBODY), 0);
        }
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(LoadUserProfileInt("S", "a", 0), 1);
            EXPECT_EQ(LoadMachineProfileInt("S", "a", 0), 2);
            EXPECT_FALSE(tc::SaveProfileEntry(tc::Hive::User, "S", "a", 3));
            EXPECT_FALSE(tc::DeleteProfileEntry(tc::Hive::Machine, "S", "a"));
        }
        EXPECT_EQ(tc::ReadProfile(tc::Hive::User)->size(), 1U);
    })));
    setWritable(true);
}

// Threads that nobody waits for save until the process is gone.
TEST_F(Profile, SavesRightKeysWhileTheProcessEnds) {
    for (int round = 0; round < 15; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            for (const char* name : {"a", "b"})
                std::thread([name] {
                    for (int i = 0;; ++i) SaveUserProfileInt("S", name, i);
                }).detach();
            while (!ExistsUserProfileKey("S", "b")) continue;
            std::exit(0);
        }
        EXPECT_TRUE(EndsWell(child));
    }
    ChangeRegistryPath("");
    const auto entries = tc::ReadProfile(tc::Hive::User);
    ChangeRegistryPath("Software\\Varnholt\\SIGWEAVE\\");
    ASSERT_TRUE(entries.has_value());
    for (const tc::ProfileEntry& entry : *entries)
        EXPECT_EQ(entry.section, "Software\\Varnholt\\SIGWEAVE\\S");
}

// A process of its own that changes the machine hive when told to, and answers when it has.
class OtherProcess {
 public:
    explicit OtherProcess(const std::vector<std::function<void()>>& changes) {
        EXPECT_EQ(pipe(orders), 0);
        EXPECT_EQ(pipe(answers), 0);
        child = InChild([&] {
            char word = 0;
            for (const auto& change : changes) {
                if (read(orders[0], &word, 1) != 1) return;
                change();
                if (write(answers[1], &word, 1) != 1) return;
            }
        });
    }
    ~OtherProcess() { EXPECT_TRUE(EndsWell(child)); }
    void Next() {
        char word = 'x';
        ASSERT_EQ(write(orders[1], &word, 1), 1);
        ASSERT_EQ(read(answers[0], &word, 1), 1);
    }

 private:
    int orders[2], answers[2];
    pid_t child;
};

TEST_F(Profile, SeesAtOnceWhatAnotherProcessChanged) {
    SaveMachineProfileInt("S", "a", 1);
    OtherProcess other({[] { SaveMachineProfileInt("S", "a", 2); }, [] { DeleteMachineProfileInt("S", "A"); },
                        [] { SaveMachineProfileString("S", "a", "text"); },
                        [] { SaveMachineProfileString("S", "b", std::string(5000, 'b').c_str()); }});
    for (const int expected : {1, 2, -1, -1}) {
        for (int i = 0; i < 3; ++i) EXPECT_EQ(LoadMachineProfileInt("S", "a", -1), expected);
        other.Next();
    }
    EXPECT_STREQ(LoadMachineProfileString("S", "a"), "text");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(LoadMachineProfileString("S", "b").GetLength(), 5000);
    SaveMachineProfileInt("S", "a", 4);
    EXPECT_EQ(LoadMachineProfileInt("S", "a", -1), 4);
}

constexpr int WRITERS = 4;
constexpr int WRITES = 25;

void WriteMany(int writer) {
    const std::string section = "writer " + std::to_string(writer);
    for (int i = 0; i < WRITES; ++i) {
        SaveUserProfileInt(section.c_str(), std::to_string(i).c_str(), i);
        SaveMachineProfileInt("shared", std::to_string(i).c_str(), writer);
        EXPECT_EQ(LoadUserProfileInt(section.c_str(), std::to_string(i).c_str(), -1), i);
    }
}

void ExpectAllWritten() {
    for (int i = 0; i < WRITERS * WRITES; ++i) {
        const std::string section = "writer " + std::to_string(i / WRITES);
        const int entry = i % WRITES;
        ASSERT_EQ(LoadUserProfileInt(section.c_str(), std::to_string(entry).c_str(), -1), entry) << section;
        EXPECT_TRUE(ExistsMachineProfileKey("shared", std::to_string(entry).c_str()));
    }
}

// The parent has both hives open and goes on writing itself.
TEST_F(Profile, LosesNothingWhenForkedProcessesWriteAtOnce) {
    SaveUserProfileInt("parent", "before", 1);
    SaveMachineProfileInt("parent", "before", 1);
    std::vector<pid_t> children;
    for (int writer = 1; writer < WRITERS; ++writer) children.push_back(InChild([=] { WriteMany(writer); }));
    WriteMany(0);
    for (const pid_t child : children) EXPECT_TRUE(EndsWell(child));
    ExpectAllWritten();
    EXPECT_EQ(LoadUserProfileInt("parent", "before", 0), 1);
}

TEST_F(Profile, StartsHivesFromSeveralProcesses) {
    std::vector<pid_t> children;
    for (int writer = 0; writer < WRITERS; ++writer) children.push_back(InChild([=] { WriteMany(writer); }));
    for (const pid_t child : children) EXPECT_TRUE(EndsWell(child));
    ExpectAllWritten();
}

// Each learns that its own save succeeded, whichever value is there in the end.
TEST_F(Profile, SavesOneEntryFromManyProcesses) {
    std::vector<pid_t> children;
    for (int i = 0; i < 20; ++i)
        children.push_back(InChild([i] {
            for (const tc::Hive hive : {tc::Hive::User, tc::Hive::Machine})
                for (int k = 0; k < 3; ++k) EXPECT_TRUE(tc::SaveProfileEntry(hive, "S", "one", i));
        }));
    for (const pid_t child : children) EXPECT_TRUE(EndsWell(child));
}

TEST_F(Profile, LosesNothingWhenThreadsWriteAndOneForks) {
    std::vector<std::thread> threads;
    for (int writer = 0; writer < WRITERS; ++writer) threads.emplace_back(WriteMany, writer);
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(EndsWell(InChild([i] { SaveUserProfileInt("child", std::to_string(i).c_str(), i); })));
    }
    for (std::thread& thread : threads) thread.join();
    ExpectAllWritten();
    for (int i = 0; i < 10; ++i) EXPECT_EQ(LoadUserProfileInt("child", std::to_string(i).c_str(), -1), i);
}

TEST_F(Profile, SurvivesAKilledWriter) {
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const pid_t child = InChild([&] {
        for (int i = 0;; ++i) {
            SaveUserProfileInt("S", "last", i);
            if (write(pipeEnds[1], &i, sizeof i) < 0) return;
        }
    });
    int last = 0;
    while (last < 200 && read(pipeEnds[0], &last, sizeof last) > 0) continue;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_GE(LoadUserProfileInt("S", "last", -1), last);
    SaveUserProfileInt("S", "last", -7);
    EXPECT_EQ(LoadUserProfileInt("S", "last", -1), -7);
}

}  // namespace
