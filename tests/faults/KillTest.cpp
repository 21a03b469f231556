// What a program leaves that is killed at a random moment.
#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <regex>

#include "sigweave/services/Profile.h"
#include "tests/faults/FaultBench.h"
#include "tests/support/OwnFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::ContainsRegex;
using testing::MatchesRegex;

constexpr int KILLED = 137;
constexpr int BLOCKS = 400;
constexpr int PACKED_BLOCKS = 8000;

const std::string GRAPH =
    "[noise]\nmodule=Generator\nform=noise\nblock=256\nrate=1000\nduration=102.4\nstart=2026-03-01T12:00:"
    "00Z\n"
    "[record]\nmodule=XmlRecorder\nfile=take.xml\noverwrite=yes\n"
    "[table]\nmodule=CsvWriter\nfile=take.csv\noverwrite=yes\n"
    "[lines]\nnoise.Signal=record.Signal\nnoise.Signal=table.Signal\n";
const std::string PLAY =
    "[take]\nmodule=XmlPlayer\nfile=take.xml\n[levels]\nmodule=Statistics\n[lines]\n"
    "take.Signal=levels.Signal\n";

// Runs a command until it ends or a random moment has come, at most `longest` seconds from its start.
int RunAndKill(const std::string& command, double longest) {
    static std::mt19937 random(1);
    const double moment = std::uniform_real_distribution(0.001, longest)(random);
    // In the foreground it outlives the command, whose files are closed then.
    return Shell("timeout --foreground --preserve-status -s KILL " + std::to_string(moment) + " " + command);
}

// The blocks of take.xml, which must be the first ones of whole.xml.
int CountBlocks() {
    const int code = Shell(SIGWEAVE_HOST " diff whole.xml take.xml");
    const std::string told = ReadAll("out") + ReadAll("err");
    if (code == 0) return BLOCKS;
    const std::string before = "differ: block ";
    EXPECT_THAT(told, MatchesRegex("whole.xml and take.xml differ: block [0-9]+ is only in whole.xml\n"));
    const auto place = told.find(before);
    return place != std::string::npos ? std::stoi(told.substr(place + before.size())) - 1 : -1;
}

void ExpectPlayable(int blocks) {
    EXPECT_EQ(Shell(SIGWEAVE_HOST " run play.graph"), 0) << ReadAll("err");
    EXPECT_THAT(ReadAll("out"), ContainsRegex("samples +" + std::to_string(256 * blocks) + "\n"));
    const std::string warning = "breaks off after block " + std::to_string(blocks);
    EXPECT_EQ(ReadAll("err").find(warning) != std::string::npos, blocks < BLOCKS) << ReadAll("err");
}

// A table under its name is whole; one that is still under the other name is right as far as it goes.
void ExpectTableRight(const std::string& whole, int code) {
    EXPECT_TRUE(!fs::exists("take.csv") || ReadAll("take.csv") == whole);
    EXPECT_TRUE(whole.starts_with(ReadAll("take.csv.part")));
    EXPECT_TRUE(code == KILLED || (fs::exists("take.csv") && !fs::exists("take.csv.part")));
}

TEST(Kill, LeavesWhatWasRecorded) {
    WriteAll("noise.graph", GRAPH);
    WriteAll("play.graph", PLAY);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(Shell(SIGWEAVE_HOST " run noise.graph"), 0) << ReadAll("err");
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    fs::rename("take.xml", "whole.xml");
    const std::string table = ReadAll("take.csv");
    int partial = 0;
    for (int kills = FaultCount(8); kills > 0; --kills) {
        for (const char* file : {"take.xml", "take.csv", "take.csv.part"}) fs::remove(ProgramFolder() / file);
        const int code = RunAndKill(SIGWEAVE_HOST " run noise.graph", seconds);
        ASSERT_THAT(code, AnyOf(0, KILLED)) << ReadAll("err");
        ExpectTableRight(table, code);
        if (!fs::exists("take.xml") || fs::file_size("take.xml") == 0) continue;
        const int blocks = CountBlocks();
        EXPECT_TRUE(code == KILLED || blocks == BLOCKS) << blocks;
        if (blocks > 0) ExpectPlayable(blocks);
        partial += blocks > 0 && blocks < BLOCKS;
    }
    RecordProperty("recordings_that_break_off", partial);
}

// How many blocks sigweave info finds, by its first line.
int CountPacked(int& code) {
    code = Shell(SIGWEAVE_HOST " info --check take.mcap");
    std::smatch match;
    const std::string told = ReadAll("out");
    const std::regex ends("^take.mcap: ends (?:with|after) block ([0-9,]+)");
    EXPECT_TRUE(std::regex_search(told, match, ends)) << told << ReadAll("err");
    EXPECT_THAT(told, testing::Not(testing::HasSubstr("damaged:")));
    std::string number = match.empty() ? "-1" : match[1].str();
    std::erase(number, ',');
    return std::stoi(number);
}

TEST(Kill, LeavesEveryBlockOfAPackedRecording) {
    WriteAll("packed.graph",
             "[noise]\nmodule=Generator\nform=noise\nblock=1024\nrate=1000\nduration=8192\n"
             "start=2026-03-01T12:00:00Z\n[record]\nmodule=Recorder\nfile=take.mcap\noverwrite=yes\n"
             "[lines]\nnoise.Signal=record.Signal\n");
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(Shell(SIGWEAVE_HOST " run packed.graph"), 0) << ReadAll("err");
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    fs::rename(ProgramFolder() / "take.mcap", ProgramFolder() / "whole.mcap");
    int partial = 0;
    for (int kills = FaultCount(8); kills > 0; --kills) {
        fs::remove(ProgramFolder() / "take.mcap");
        const int code = RunAndKill(SIGWEAVE_HOST " run packed.graph", seconds);
        ASSERT_THAT(code, AnyOf(0, KILLED)) << ReadAll("err");
        if (!fs::exists("take.mcap")) continue;
        int checked = 0;
        const int blocks = CountPacked(checked);
        const bool isClosed = ReadAll("out").find("and was closed") != std::string::npos;
        EXPECT_EQ(checked, isClosed ? 0 : 1) << ReadAll("out");
        EXPECT_TRUE(code == KILLED || (isClosed && blocks == PACKED_BLOCKS)) << blocks;
        partial += blocks > 0 && blocks < PACKED_BLOCKS;
        if (blocks == PACKED_BLOCKS) continue;
        EXPECT_EQ(Shell(SIGWEAVE_HOST " diff whole.mcap take.mcap"), 1);
        EXPECT_THAT(ReadAll("out"),
                    testing::HasSubstr("block " + std::to_string(blocks + 1) + " is only in whole.mcap"));
    }
    RecordProperty("recordings_that_break_off", partial);
}

TEST(Kill, LeavesTheProfileWithAllThatWasSaved) {
    int saved = 0;
    for (int kills = FaultCount(8); kills > 0; --kills) {
        EXPECT_EQ(RunAndKill(PROFILE_WRITER " " + std::to_string(saved + 1), 0.3), KILLED);
        EXPECT_EQ(CheckDatabase(std::getenv("SIGWEAVE_USER_HIVE")), "ok");
        EXPECT_EQ(CheckDatabase(std::getenv("SIGWEAVE_MACHINE_HIVE")), "ok");
        std::istringstream told(ReadAll("out"));
        for (std::string number; std::getline(told, number);) {
            saved = std::stoi(number);
            EXPECT_EQ(LoadUserProfileInt("killed", number.c_str(), 0), saved);
            EXPECT_EQ(LoadMachineProfileString("killed", number.c_str()), number.c_str());
        }
    }
    for (int number = 1; number <= saved; ++number)
        ASSERT_EQ(LoadUserProfileInt("killed", std::to_string(number).c_str(), 0), number);
    RecordProperty("saved", saved);
}

}  // namespace
