// The program's check of module libraries: what is faulty is named, and nothing takes the checker down.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Answer {
    int code = -1;
    std::string text;
    Json report;
};

std::string ReadAll(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

Answer Check(const std::string& arguments, const std::string& variables = "") {
    Answer answer;
    const std::string command = variables +
                                " ASAN_OPTIONS=handle_segv=0 '" SIGWEAVE_PROGRAM "' check-module " +
                                arguments + " >out 2>err </dev/null; echo $? >code";
    EXPECT_EQ(std::system(command.c_str()), 0);
    answer.code = std::stoi(ReadAll("code"));
    answer.report = Json::parse(ReadAll("out"), nullptr, false);
    answer.text = ReadAll("out") + ReadAll("err");
    return answer;
}

std::vector<Json> ChecksOf(const Answer& answer, const char* status) {
    std::vector<Json> found;
    for (const Json& check : answer.report["checks"])
        if (check["status"] == status) found.push_back(check);
    return found;
}

struct Faulty {
    const char* library;
    const char* check;
    const char* reason;
};

void PrintTo(const Faulty& faulty, std::ostream* out) {
    *out << faulty.check;
}

class FaultyLibrary : public testing::TestWithParam<Faulty> {};

TEST_P(FaultyLibrary, IsCaughtByTheRightCheckAlone) {
    const auto& [library, check, reason] = GetParam();
    const Answer answer =
        Check(std::string(TEST_LIBRARIES "/") + library + ".so --report json --time-limit 8");
    if (answer.text.find("under a sanitizer") != std::string::npos && check == std::string("leaks"))
        GTEST_SKIP() << "memory is not measured";
    ASSERT_EQ(answer.code, 1) << answer.text;
    const std::vector<Json> failed = ChecksOf(answer, "failed");
    ASSERT_EQ(failed.size(), 1u) << answer.text;
    EXPECT_EQ(failed[0]["check"], check);
    EXPECT_THAT(failed[0]["reason"], HasSubstr(reason));
    EXPECT_NE(failed[0]["remedy"], "");
}

constexpr Faulty FAULTY[] = {
    {"broken/NoEntryPoints", "entry-points", "TCModuleLibrary_GetCount"},
    {"broken/NewerVersion", "versions", "900"},
    {"broken/OlderVersion", "versions", "800"},
    {"faulty/DuplicateId", "ids", "twice"},
    {"faulty/MalformedType", "ports", "FLOAT["},
    {"faulty/DefaultOutsideLimits", "parameters", "200"},
    {"faulty/SuggestionOutsideLimits", "parameters", "'101' is not allowed"},
    {"faulty/UnknownCondition", "parameters", "'mode' is 'on', which it cannot be"},
    {"faulty/ChangedParameter", "parameters", "'100' comes back as '50'"},
    {"faulty/ThrowsInExecute", "run", "nobody catches this"},
    {"faulty/ExitsInExecute", "run", "exit code 0"},
    {"faulty/LoopsInExecute", "run", "no end within 8 s"},
    {"faulty/ClosesEverything", "run", "file descriptors"},
    {"faulty/NoSecondInit", "init-done", "the device is in use"},
    {"faulty/UnequalRuns", "equal-runs", "output 0, block 1"},
    {"faulty/LeakedModules", "leaks", "deleted leaks"},
    {"faulty/CrashOnEmptyBlock", "empty-blocks", "SIGSEGV"},
    {"faulty/AbortOnHugeBlock", "huge-blocks", "SIGABRT"},
    {"faulty/LoopOnNotANumber", "not-a-number", "no end within 8 s"},
    {"faulty/CrashOnRareOrder", "random-calls", "SIGSEGV"},
    {"faulty/SwallowsEveryBlock", "run", "it makes no block, no result and no file"},
    {"faulty/PrintsToStandardOutput", "standard-output", "in 'run': look at me"},
};

std::string NameOf(const testing::TestParamInfo<Faulty>& info) {
    return fs::path(info.param.library).filename().string();
}

INSTANTIATE_TEST_SUITE_P(CheckModule, FaultyLibrary, testing::ValuesIn(FAULTY), NameOf);

TEST(CheckModule, WarnsOfAForgottenNameAndUnit) {
    const Answer answer = Check(TEST_LIBRARIES "/faulty/ForgetsItsInput.so --report json");
    EXPECT_EQ(answer.code, 0) << answer.text;
    const Json warning = ChecksOf(answer, "warning").at(0);
    EXPECT_EQ(warning["check"], "run");
    EXPECT_EQ(warning["reason"], "output 0 loses the name and the unit of its input");
    EXPECT_THAT(warning["remedy"].get<std::string>(), HasSubstr("UseTypeInfoFromInput"));
    EXPECT_EQ(answer.report["warnings"], 1);
    const Answer german = Check("--language de " TEST_LIBRARIES "/faulty/ForgetsItsInput.so");
    EXPECT_THAT(german.text, testing::ContainsRegex("run +Warnung +Ausgang 0 verliert Namen und Einheit"));
    EXPECT_THAT(german.text, HasSubstr(" entfallen, 1 Warnung, in "));
}

TEST(CheckModule, DoesNotBeginWhereNoTemporaryFolderCanBeMade) {
    const Answer answer = Check(SIGWEAVE_EXAMPLE_DIR "/gain.so", "TMPDIR=/proc/self/fdinfo");
    EXPECT_EQ(answer.code, 2);
    EXPECT_THAT(answer.text, testing::ContainsRegex("no temporary folder could be made .*TMPDIR"));
}

TEST(CheckModule, RepeatsTheRandomCallsOfASeed) {
    const std::string library = TEST_LIBRARIES "/faulty/CrashOnRareOrder.so --report json";
    const Json first = ChecksOf(Check(library), "failed").at(0);
    const Answer again = Check(library + " --reproduce " + first["seed"].get<std::string>());
    EXPECT_EQ(again.code, 1);
    EXPECT_EQ(ChecksOf(again, "failed").at(0)["step"], first["step"]);
    EXPECT_EQ(again.report["calls"].back(), "Interrupt");
}

TEST(CheckModule, RandomCallsBringAllThatAHostMayDo) {
    std::set<std::string> calls;
    std::string inOrder;
    for (const char* seed : {"1", "2", "3", "4", "5"}) {
        const Answer listed =
            Check(TEST_LIBRARIES "/faulty/Witness.so --report json --reproduce " + std::string(seed));
        EXPECT_EQ(listed.code, 0) << listed.text;
        for (const std::string call : listed.report["calls"])
            calls.insert(call.substr(call.find(": ") == call.npos ? 0 : call.find(": ")));
        for (const std::string call : listed.report["calls"]) inOrder += call + "; ";
        EXPECT_THAT(listed.report["calls"],
                    testing::Contains(std::string("seed ") + seed + ", step 61: the end"));
    }
    EXPECT_THAT(inOrder, HasSubstr("a line drawn and removed; ValidatePortType; AddLine; DelLine; "));
    EXPECT_THAT(calls, testing::IsSupersetOf({"SetParameter",
                                              "ApplySettings",
                                              "SetSettings",
                                              "GetMessageA",
                                              "ValidatePortType",
                                              "AddLine",
                                              "DelLine",
                                              "SetInputStream",
                                              "AddOutputStream",
                                              "DeleteStreams",
                                              "ComputeValidationData",
                                              "Init",
                                              "Fetch",
                                              "Execute",
                                              "Interrupt",
                                              "Done",
                                              "queries",
                                              "TCModuleLibrary_Create",
                                              ": a parameter",
                                              ": the settings",
                                              ": a block",
                                              ": a step",
                                              ": all steps",
                                              ": all lines",
                                              ": no lines",
                                              ": a line drawn and removed",
                                              ": the beginning of a run",
                                              ": the end of the run",
                                              ": an interruption",
                                              ": questions",
                                              ": a message",
                                              ": another module",
                                              ": the number of inputs"}));
    const Answer answer = Check(TEST_LIBRARIES "/faulty/Witness.so --report json", "WITNESS=1");
    const std::vector<Json> failed = ChecksOf(answer, "failed");
    ASSERT_EQ(failed.size(), 1u) << answer.text;
    EXPECT_EQ(failed[0]["check"], "random-calls");
    EXPECT_THAT(failed[0]["reason"], HasSubstr("it has seen everything"));
}

TEST(CheckModule, SaysWhatItLookedAt) {
    const Answer answer = Check(TEST_LIBRARIES "/faulty/Witness.so --report json --time-limit 100");
    const std::pair<const char*, const char*> rows[] = {
        {"ids", "1, all different"},
        {"creation", "Minds how it is called"},
        {"ports", "1 inputs, 1 outputs"},
        {"parameters", "3, each with its limits"},
        {"run", "2 of 2 types, 22 blocks made; with label=signal, log=output.csv"},
        {"equal-runs", "three runs on each of 2 types"},
        {"empty-blocks", "taken on 2 of 2 types"},
        {"huge-blocks", "taken on 2 of 2 types"},
        {"not-a-number", "taken on 2 of 2 types"},
        {"random-calls", "100 sequences of 60 steps, seeds 1 to 100"},
        {"standard-output", "left alone"}};
    std::map<std::string, std::string> reasons;
    for (const Json& check : ChecksOf(answer, "passed")) reasons[check["check"]] = check["reason"];
    for (const auto& [name, reason] : rows) EXPECT_EQ(reasons[name], reason) << answer.text;
    EXPECT_EQ(answer.code, 0);
}

TEST(CheckModule, TellsPlainlyWhatIsNotThere) {
    const std::string gain = SIGWEAVE_EXAMPLE_DIR "/gain.so ";
    EXPECT_EQ(Check("no-such-library.so").code, 2);
    EXPECT_EQ(Check(gain + "--time-limit 0").code, 2);
    EXPECT_THAT(Check(gain + "--set factr=3").text, HasSubstr("did you mean 'factor'?"));
    EXPECT_THAT(Check(gain + "--module Gian").text, HasSubstr("did you mean 'Gain'?"));
    const Answer german = Check("--language de " SIGWEAVE_MODULE_DIR "/sound-file.so");
    EXPECT_EQ(german.code, 0);
    EXPECT_THAT(german.text, HasSubstr("nie gelaufen: SoundFile"));
}

struct Good {
    const char* library;
    const char* settings;
    std::vector<std::string> notApplicable;
};

void PrintTo(const Good& good, std::ostream* out) {
    *out << good.library;
}

// Under a sanitizer without the check of leaks, which cannot be made there.
std::vector<std::string> NotApplicable(const Answer& answer) {
    std::vector<std::string> names;
    for (const Json& check : ChecksOf(answer, "not applicable"))
        if (check["reason"] != "memory cannot be measured under a sanitizer") names.push_back(check["check"]);
    return names;
}

class GoodLibrary : public testing::TestWithParam<Good> {};

TEST_P(GoodLibrary, PassesEveryCheckThatApplies) {
    const auto& [library, settings, notApplicable] = GetParam();
    const Answer answer = Check(std::string(library) + ".so --report json --time-limit 100 " + settings);
    EXPECT_EQ(answer.code, 0) << answer.text;
    EXPECT_EQ(NotApplicable(answer), notApplicable) << answer.text;
}

const std::vector<std::string> OF_A_SOURCE = {"empty-blocks", "huge-blocks", "not-a-number"};

const Good GOOD[] = {
    {SIGWEAVE_EXAMPLE_DIR "/gain", "", {}},
    {SIGWEAVE_MODULE_DIR "/align", "", {}},
    {SIGWEAVE_MODULE_DIR "/bus-join", "", {"parameters"}},
    {SIGWEAVE_MODULE_DIR "/bus-select", "", {}},
    {SIGWEAVE_MODULE_DIR "/bus-trigger", "", {}},
    {SIGWEAVE_MODULE_DIR "/csv-writer", "", {}},
    {SIGWEAVE_MODULE_DIR "/delay", "", {}},
    {SIGWEAVE_MODULE_DIR "/filter", "", {}},
    {SIGWEAVE_MODULE_DIR "/generator", "", OF_A_SOURCE},
    {SIGWEAVE_MODULE_DIR "/histogram", "", {}},
    {SIGWEAVE_MODULE_DIR "/integrate", "", {}},
    {SIGWEAVE_MODULE_DIR "/level", "", {}},
    {SIGWEAVE_MODULE_DIR "/math", "", {}},
    {SIGWEAVE_MODULE_DIR "/octave", "", {}},
    {SIGWEAVE_MODULE_DIR "/peaks", "", {}},
    {SIGWEAVE_MODULE_DIR "/plot", "", {}},
    {SIGWEAVE_MODULE_DIR "/reblock", "", {}},
    {SIGWEAVE_MODULE_DIR "/recorder", "", {}},
    {SIGWEAVE_MODULE_DIR "/resample", "--set rate=300", {}},
    {SIGWEAVE_MODULE_DIR "/spectrogram", "", {}},
    {SIGWEAVE_MODULE_DIR "/spectrum", "", {}},
    {SIGWEAVE_MODULE_DIR "/statistics", "", {"parameters"}},
    {SIGWEAVE_MODULE_DIR "/transfer", "", {}},
    {SIGWEAVE_MODULE_DIR "/trigger", "", {}},
    {SIGWEAVE_MODULE_DIR "/weighting", "", {}},
    {SIGWEAVE_MODULE_DIR "/xml-player", "--set file=" SIGWEAVE_EXAMPLES "/steps.xml", OF_A_SOURCE},
    {SIGWEAVE_MODULE_DIR "/xml-recorder", "", {}},
};

std::string NameOfGood(const testing::TestParamInfo<Good>& tested) {
    std::string name = fs::path(tested.param.library).filename().string();
    std::erase(name, '-');
    return name;
}

INSTANTIATE_TEST_SUITE_P(CheckModule, GoodLibrary, testing::ValuesIn(GOOD), NameOfGood);

TEST(CheckModule, RunsASourceWithTheFileThatItIsGiven) {
    // RIFF, 1 channel of 8 bits at 8000 Hz, 64 samples
    std::string wav(
        "RIFF\x64\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1F\0\0\x40\x1F\0\0\1\0\x08\0data\x40\0\0\0", 44);
    std::ofstream("tone.wav", std::ios::binary) << wav + std::string(64, 'a');
    const Answer answer =
        Check(SIGWEAVE_MODULE_DIR "/sound-file.so --set file=tone.wav --report json --time-limit 100");
    EXPECT_EQ(answer.code, 0) << answer.text;
    EXPECT_EQ(NotApplicable(answer), OF_A_SOURCE) << answer.text;
}

}  // namespace
