// Each write of each command that writes fails once, as on a full disk: the command must say so, and neither
// crash nor harm what was there.
#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>

#include "sigweave/signal/forms/StreamRecord.h"
#include "tests/faults/FaultBench.h"

namespace {

using testing::AnyOf;

const std::string OLD = "old\n";
const std::string HOST = SIGWEAVE_HOST;

// The address sanitizer wants to be loaded first.
const std::string PRELOADED =
    "ASAN_OPTIONS=$ASAN_OPTIONS:verify_asan_link_order=0 FULL_DISK_STATE=\"$PWD/state\" "
    "LD_PRELOAD=" FULL_DISK;

const std::string SOURCE =
    "[a]\nmodule=Generator\nform=noise\nblock=500\nrate=1000\nduration=1.5\nstart=2026-03-01T12:00:00Z\n";
const std::string MEASURED = SOURCE + "[w]\nmodule=Statistics\n[lines]\na.Signal=w.Signal\n";
// Much waits for what comes later.
const std::string WAITING =
    SOURCE +
    "[b]\nmodule=Generator\nform=dc\nblock=30000\nrate=1000\nduration=200\nstart=2026-03-01T12:03:00Z\n"
    "[w]\nmodule=Align\nmode=pad\n[l]\nmodule=Statistics\n[lines]\na.Signal=w.Signal 1\nb.Signal=w.Signal 2\n"
    "w.Signal 1=l.Signal 1\nw.Signal 2=l.Signal 2\n";

std::string WrittenBy(const std::string& module) {
    return SOURCE + "[w]\n" + module + "\n[lines]\na.Signal=w.Signal\n";
}

// What is there when the command has failed.
enum class Left { OLD_OR_WHOLE, READABLE_RECORDING, SOME };

struct Case {
    const char* name;
    std::string graph;      // in test.graph
    std::string before;     // a shell command
    std::string arguments;  // of the host
    std::string show;       // a shell command that shows what was made
    Left left;
    bool alone = false;  // each write also fails alone, not in the long form only
};

const Case CASES[] = {
    {"Table", WrittenBy("module=CsvWriter\nfile=made\noverwrite=yes"), "echo old >made", "run test.graph",
     "cat made", Left::OLD_OR_WHOLE},
    {"Picture", WrittenBy("module=Plot\nfile=made.svg"), "echo old >made.svg", "run test.graph",
     "cat made.svg", Left::OLD_OR_WHOLE},
    {"Text", MEASURED, HOST + " convert test.graph test.xml && echo old >made", "convert test.xml made",
     "cat made", Left::OLD_OR_WHOLE},
    {"Document", MEASURED, "echo old >made", "convert test.graph made", "cat made", Left::OLD_OR_WHOLE},
    {"Profile", "", HOST + " profile set section entry old", "profile set section entry new",
     HOST + " profile get section entry", Left::OLD_OR_WHOLE},
    {"Recording", WrittenBy("module=XmlRecorder\nfile=made.xml"), "rm -f made.xml", "run test.graph",
     "cat made.xml", Left::READABLE_RECORDING},
    {"RecordingAnew", WrittenBy("module=XmlRecorder\nfile=made.xml\noverwrite=yes"),
     "echo '<Stream><Port><Type Items=\"1\">DOUBLE[]{X}</Type></Port></Stream>' >made.xml", "run test.graph",
     "cat made.xml", Left::READABLE_RECORDING},
    {"PackedRecording", WrittenBy("module=Recorder\nfile=made.mcap"), "rm -f made.mcap", "run test.graph",
     HOST + " info --check made.mcap | head -n 1", Left::SOME},
    {"Export", WrittenBy("module=Recorder\nfile=made.mcap\noverwrite=yes"),
     "test -f made.mcap || " + HOST + " run test.graph >/dev/null; echo old >made",
     "export made.mcap --to mat --overwrite --output made", "cat made", Left::OLD_OR_WHOLE, true},
    {"Report", MEASURED, ":", "run test.graph --report json", "cat out", Left::SOME},
    {"Waiting", WAITING, ":", "run test.graph", "cat out", Left::SOME},
    // The log's entries about itself are all that may be missing without a word.
    {"Log", MEASURED, "rm -f made", "run test.graph --log made", "grep -v TCLogFile:: made", Left::SOME},
};

void PrintTo(const Case& shown, std::ostream* out) {
    *out << shown.name;
}

// Times of the day, durations and process numbers differ from run to run, also in length.
std::string WithoutDigits(std::string text) {
    std::erase_if(text,
                  [](char c) { return std::string_view("0123456789.e- ").find(c) != std::string::npos; });
    return text;
}

bool IsReadable(const char* recording) {
    tc::StreamRecordReader reader;
    if (!reader.Open(recording)) return false;
    int read = 1;
    while (read > 0) read = reader.Next();
    return read == 0;
}

class FullDisk : public testing::TestWithParam<Case> {
 protected:
    void SetUp() override { WriteAll("test.graph", GetParam().graph); }

    void Run(int failing, bool onlyOne) {
        ASSERT_EQ(Shell(GetParam().before), 0) << ReadAll("err");
        FullDiskState state{failing, onlyOne};
        WriteAll("state", std::string(reinterpret_cast<const char*>(&state), sizeof state));
        code = Shell(HOST + " " + GetParam().arguments, PRELOADED);
        std::memcpy(&state, ReadAll("state").data(), sizeof state);
        failed = state.failed;
        told = ReadAll("err") + (code == 0 ? "" : ReadAll("out"));
        ASSERT_NE(std::system((GetParam().show + " >made.txt 2>&1").c_str()), -1);
        made = ReadAll("made.txt");
    }

    void ExpectNoHarm(const std::string& whole) {
        ASSERT_THAT(code, AnyOf(0, 1, 2)) << told;
        const Left left = GetParam().left;
        const bool isWhole = WithoutDigits(made) == WithoutDigits(whole);
        EXPECT_TRUE(isWhole || !told.empty()) << made;
        EXPECT_TRUE(isWhole || code != 0 || told.find("the log is incomplete") != std::string::npos) << made;
        EXPECT_TRUE(left != Left::OLD_OR_WHOLE || isWhole || made == OLD) << made;
        EXPECT_TRUE(left != Left::READABLE_RECORDING || code == 0 || !std::filesystem::exists("made.xml") ||
                    IsReadable("made.xml"))
            << made;
    }

    int code = 0;
    bool failed = false;
    std::string told, made;
};

TEST_P(FullDisk, IsToldAndDoesNoHarm) {
    Run(1000000, true);
    if (told.starts_with("--to: 'mat'")) GTEST_SKIP() << "needs libmatio";
    ASSERT_EQ(code, 0) << told;
    const std::string whole = made;
    for (int onlyOne = 0; onlyOne <= (IsLongForm() || GetParam().alone ? 1 : 0); ++onlyOne) {
        failed = true;
        for (int failing = 1; failed; ++failing) {
            SCOPED_TRACE(std::to_string(failing) + (onlyOne ? " alone" : " and all behind it"));
            Run(failing, onlyOne != 0);
            ExpectNoHarm(whole);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, FullDisk, testing::ValuesIn(CASES),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
