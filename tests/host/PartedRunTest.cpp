// A graph on several threads gives what it gives on one, to the last byte. SIGWEAVE_PARTED_GRAPHS is how many
// random graphs, SIGWEAVE_RANDOM_SEED the first.
#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "host/Console.h"
#include "host/Graph.h"
#include "host/Report.h"
#include "host/parts/PartPlan.h"
#include "sigweave/platform/OwnedFolder.h"
#include "tests/host/RandomGraph.h"
#include "tests/host/RunnerBench.h"
#include "tests/host/TestModules.h"

namespace {

namespace fs = std::filesystem;
using host::RunReport;
using host::Verdict;
using testing::HasSubstr;

// --- The plan

constexpr auto FIRST = TCBaseModuleEx::FIRST_THREAD;
constexpr auto ANY = TCBaseModuleEx::ANY_THREAD;
constexpr auto JOINS = TCBaseModuleEx::ANY_THREAD_JOINS;

struct PlanCase {
    const char* name;
    std::vector<host::PlannedModule> modules;
    std::vector<host::PlannedLine> lines;
    int most;
    std::vector<int> parts;
    std::vector<int> uncut;  // lines
};

host::PlannedModule Source(const char* pinned = "") {
    return {"s", true, FIRST, pinned};
}

host::PlannedModule Other(TCBaseModuleEx::PLACEMENT placement, const char* pinned = "") {
    return {"m", false, placement, pinned};
}

const PlanCase PLAN_CASES[] = {
    {"a chain in halves",
     {Source(), Other(ANY), Other(ANY), Other(ANY)},
     {{0, 1}, {1, 2}, {2, 3}},
     2,
     {0, 0, 1, 1},
     {}},
    {"branches as a whole",
     {Source(), Other(ANY), Other(ANY), Other(ANY), Other(ANY)},
     {{0, 1}, {1, 2}, {0, 3}, {3, 4}},
     2,
     {0, 0, 0, 1, 1},
     {}},
    {"no more parts than pay", {Source(), Other(ANY)}, {{0, 1}}, 8, {0, 1}, {}},
    {"one thread", {Source(), Other(ANY)}, {{0, 1}}, 1, {0, 0}, {}},
    {"what declares nothing holds all before it",
     {Source(), Other(ANY), Other(FIRST), Other(ANY), Other(ANY)},
     {{0, 1}, {1, 2}, {0, 3}, {3, 4}},
     2,
     {0, 0, 0, 1, 1},
     {0, 1}},
    {"a pinned end", {Source(), Other(ANY), Other(ANY, "a pipe")}, {{0, 1}, {1, 2}}, 2, {0, 0, 0}, {0, 1}},
    {"a join of two sources, and what comes after it",
     {Source(), Source(), Other(ANY), Other(JOINS), Other(ANY), Other(ANY), Other(ANY)},
     {{0, 2}, {2, 3}, {1, 3}, {3, 4}, {4, 5}, {5, 6}},
     2,
     {0, 0, 0, 0, 1, 1, 1},
     {0, 1, 2}},
    {"a join of one source stays with what it joins",
     {Source(), Other(ANY), Other(ANY), Other(ANY), Other(JOINS)},
     {{0, 1}, {0, 2}, {0, 3}, {2, 4}, {3, 4}},
     2,
     {0, 0, 1, 1, 1},
     {3, 4}},
    {"a join of one source where a module declares nothing",
     {Source(), Other(ANY), Other(JOINS), Other(FIRST), Other(ANY)},
     {{0, 1}, {1, 2}, {0, 3}, {0, 4}},
     2,
     {0, 0, 0, 0, 1},
     {0, 1, 2}},
    {"addresses",
     {Source(), Other(ANY), Other(ANY), Other(ANY)},
     {{0, 1}, {1, 2, true}, {2, 3}},
     3,
     {0, 1, 1, 2},
     {1}},
};

TEST(PartPlan, CutsWhereTheOrderStays) {
    for (const PlanCase& row : PLAN_CASES) {
        const host::PartPlan plan = host::MakePartPlan(row.modules, row.lines, row.most);
        EXPECT_EQ(plan.partOf, row.parts) << row.name;
        std::vector<int> uncut;
        for (const host::UncutLine& line : plan.uncut) uncut.push_back(line.line);
        EXPECT_EQ(uncut, row.uncut) << row.name;
    }
}

// --- Random graphs

long FromEnvironment(const char* name, long otherwise) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::atol(value) : otherwise;
}

std::map<std::string, std::string> FilesIn(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        std::ostringstream text;
        text << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        files[entry.path().filename().string()] = text.str();
    }
    return files;
}

// What must be the same, however many threads there are.
struct Told {
    Verdict verdict = Verdict::Mistakes;
    std::string report;  // as JSON, with the messages
    std::vector<std::string> said;
    std::map<std::string, std::string> files;
    int cut = 0;  // whether the run was cut at all

    bool operator==(const Told& other) const {
        return report == other.report && said == other.said && files == other.files;
    }
};

// Sleeps, yields and does neither, by chance: as unlike as can be in each run.
void Dawdle() {
    static std::atomic<std::uint64_t> state{1};
    const std::uint64_t chance = state.fetch_add(0x9E3779B97F4A7C15) >> 32U;
    if (chance % 7 == 0) std::this_thread::yield();
    if (chance % 61 == 0) std::this_thread::sleep_for(std::chrono::microseconds(chance % 300));
}

class RandomParts : public testing::Test {
 protected:
    void SetUp() override {
        std::error_code failed;
        folder = tc::OwnedFolder::MakeTemporary("sigweave-parts-", failed);
        ASSERT_NE(folder, nullptr) << failed.message();
    }

    Told Run(const std::string& text, int threads) {
        host::messages::Collection collection;
        host::HostWindow window;
        host::Mistakes mistakes;
        const host::GraphFile file = host::GraphFile::Parse("random.graph", text, mistakes);
        const host::Graph graph(file, catalogue, window, mistakes);
        for (const host::Mistake& mistake : mistakes.InOrder()) ADD_FAILURE() << mistake.text;
        if (HasFailure()) return {};
        Told told;
        host::RunOptions options;
        options.threads = threads;
        options.onHandOver = Dawdle;
        options.onState = [&](const std::string& instance, const std::string& state) {
            told.said.push_back(instance + ": " + state);
        };
        options.onWarning = [&](const std::string& warning) { told.said.push_back(warning); };
        options.onNote = [&](const std::string& note) { told.cut += note.find("; 2: ") != note.npos; };
        RunReport report = host::Runner(graph.Modules(), graph.Lines(), options).Run();
        report.messages = collection.list.Take(report.messagesLeftOut);
        report.seconds = 0.0;
        told.verdict = report.verdict;
        told.report = host::WriteJson(report, "random.graph");
        told.files = FilesIn(folder->Path());
        return told;
    }

    host::ModuleCatalogue catalogue{{SIGWEAVE_MODULE_DIR}};
    std::unique_ptr<tc::OwnedFolder> folder;
};

TEST_F(RandomParts, GiveWhatOneThreadGives) {
    constexpr double MILLISECONDS = 6000.0;
    const bool isLongForm = std::getenv("SIGWEAVE_PARTED_GRAPHS") != nullptr;
    const long count = FromEnvironment("SIGWEAVE_PARTED_GRAPHS", 25);
    const long first = FromEnvironment("SIGWEAVE_RANDOM_SEED", 1);
    const double due = tc::MachineClock().Milliseconds() + MILLISECONDS;
    long done = 0;
    long cut = 0;
    for (; done < count && !HasFailure(); ++done) {
        if (!isLongForm && tc::MachineClock().Milliseconds() > due) break;
        const RandomGraph random =
            MakeRandomGraphWithFiles(static_cast<std::uint64_t>(first + done), folder->Path().string());
        SCOPED_TRACE("seed " + std::to_string(first + done) + "\n" + random.text);
        const Told one = Run(random.text, 1);
        // auto, which is 0, decides by the time that it takes
        for (const int threads : {2, static_cast<int>((first + done) % 5) * 3 % 5}) {
            const Told several = Run(random.text, threads);
            cut += several.cut;
            EXPECT_EQ(several.report, one.report) << threads;
            EXPECT_EQ(several.said, one.said) << threads;
            EXPECT_TRUE(several.files == one.files) << threads;
        }
    }
    RecordProperty("graphs", static_cast<int>(done));
    EXPECT_GE(done, std::min(count, 5L)) << "too slow to say anything";
    EXPECT_GE(cut, done / 2) << "too few were cut to say anything";
}

// --- What modules declare

struct Placements : RandomParts {
    // Many blocks come to the module at once, and a recorder takes all that it makes.
    std::string Graph(const std::string& module, const std::string& settings,
                      const std::vector<std::string>& outputs) const {
        const bool isOfBus = module.starts_with("Bus");
        const std::string file = folder->Path().string() + "/";
        std::string text =
            "[source]\nmodule=Generator\nform=noise\nrate=8000\nduration=0.5\nblock=2048\nstart=2026-01-01\n"
            "[cut]\nmodule=Reblock\nsize=64\n[m]\nmodule=" +
            module + "\n" + settings;
        if (settings.ends_with("=")) text += file + "own.svg\n";
        if (isOfBus) text += "[join]\nmodule=BusJoin\n";
        if (!outputs.empty()) text += "[take]\nmodule=Recorder\noverwrite=yes\nfile=" + file + "take.mcap\n";
        text += "[lines]\nsource.Signal=cut.Signal\n";
        text += isOfBus ? "cut.Signal=join.Signal\njoin.Bus=m.Bus\n"
                        : "cut.Signal=m.Signal 1\ncut.Signal=m.Signal 2\n";
        int number = 0;
        for (const std::string& output : outputs) {
            const std::string input = "=take.Signal " + std::to_string(++number) + "\n";
            const std::string pick = "pick" + std::to_string(number);
            // The names in a bus hold the number of the object that made it, which each run has anew.
            if (output.starts_with("B")) {
                text.insert(text.find("[lines]"),
                            "[" + pick + "]\nmodule=BusSelect\nexpression=.\nsignals=1\n");
                text += "m." + output + "=" + pick + ".Bus\n" + pick + ".Channel 1" + input;
            } else {
                text += "m." + output + input;
            }
        }
        return text;
    }
};

TEST_F(Placements, HoldWhereManyBlocksComeAtOnce) {
    const std::vector<std::string> two = {"Signal 1", "Signal 2"};
    const struct {
        const char* module;
        const char* settings;
        std::vector<std::string> outputs;
    } rows[] = {
        {"BusSelect", "expression=.\nsignals=1\n", {"Bus", "Channel 1"}},
        {"BusTrigger", "level=0.9\nbefore=0\nafter=0.002\n", {"Bus"}},
        {"CsvWriter", "overwrite=yes\nfile=", {}},
        {"Delay", "by=samples\nsamples=300\n", two},
        {"Delay", "by=samples\nsamples=9000\n", two},
        {"Filter", "corner=200\n", two},
        {"Filter", "corner=200\nzero_phase=yes\n", two},
        {"Histogram", "", {"Histogram 1", "Edges 1", "Histogram 2", "Edges 2"}},
        {"Integrate", "", two},
        {"Level", "interval=0.001\n", two},
        {"Math", "operation=product\n", {"Signal"}},
        {"Octave", "interval=0.01\n", {"Bands 1", "Bands 2"}},
        {"Peaks", "height=0.5\n", two},
        {"Plot", "file=", {}},
        {"Reblock", "size=1\n", two},
        {"Recorder", "overwrite=yes\nfile=", {}},
        {"Spectrogram", "length=16\noverlap=0.75\n", two},
        {"Spectrum", "length=64\n", two},
        {"Statistics", "", {}},
        {"Transfer", "length=64\n", {"Magnitude", "Phase", "Coherence"}},
        {"Trigger", "level=0.9\nbefore=0\nafter=0.002\n", two},
        {"Weighting", "", two},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.module) + ": " + row.settings);
        const Told one = Run(Graph(row.module, row.settings, row.outputs), 1);
        EXPECT_EQ(one.verdict, Verdict::Complete) << one.report;
        const Told several = Run(Graph(row.module, row.settings, row.outputs), 3);
        EXPECT_EQ(several.cut, 1);
        EXPECT_EQ(several.report, one.report);
        EXPECT_TRUE(several.files == one.files);
    }
}

// --- What goes wrong

// Hands on what it gets, wherever the host wants; fails or talks at block `at`.
class TestMover final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TestMover";
    static constexpr TCModuleParameter PARAMETERS[] = {
        {"at", TCModuleParameter::INTEGER, "-1"},
        {"does", TCModuleParameter::CHOICE, "talk", "", "", 0, 0, "talk|fail|throw|fail in done|hoard"},
    };

    explicit TestMover(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        DeclarePlacement(ANY_THREAD);
        const unsigned type = portHelper->SetPort(INPUT, 0, "Signal", "", "", true);
        portHelper->AttachPort(OUTPUT, 0, "Signal", type);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Moves"; }
    const char* GetBaseName() const override { return "Test mover"; }

    int Execute() override {
        const CString& does = ParamText("does");
        const bool isDue = seen >= ParamInt("at") && ParamInt("at") >= 0;
        if (isDue && does == "fail") return Fail(-7, "the wire is broken");
        if (isDue && does == "throw") throw std::runtime_error("no wire");
        if (isDue && does == "hoard") return 0;
        if (isDue && does == "talk")
            host::console::FromModule(&host::console::WARNING_WORD, TCLogFile::WARNING, GetModuleName(),
                                      ("block " + std::to_string(seen)).c_str());
        ++seen;
        portHelper->ForwardBlock(0, 0);
        return 0;
    }

    int Done() override {
        if (ParamText("does") == "fail in done") return Fail(-8, "it cannot end");
        return TCBaseModuleEx::Done();
    }

 private:
    int seen = 0;
};

// source -> a -> b -> c -> d -> sink, and a second way from b to e.
struct Chain {
    RunnerBench bench;
    std::vector<std::string> said;

    explicit Chain(const std::map<std::string, std::string>& settings, const std::string& source) {
        bench.Add<TestSource>("source", source);
        std::string before = "source";
        for (const char* name : {"a", "b", "c", "d"}) {
            const auto found = settings.find(name);
            bench.Add<TestMover>(name, found != settings.end() ? found->second : "");
            bench.Wire(before, name);
            before = name;
        }
        bench.Add<TestMover>("e");
        bench.Wire("b", "e");
    }

    RunReport Run(int threads, host::Interruption* interruption = nullptr) {
        host::messages::Collection collection;
        host::RunOptions options;
        options.threads = threads;
        options.interruption = interruption;
        options.onHandOver = Dawdle;
        options.patience = std::chrono::milliseconds(20);
        options.onState = [&](const std::string& instance, const std::string& state) {
            said.push_back(instance + ": " + state);
        };
        options.onError = [&](const std::string& text) { said.push_back(text); };
        RunReport report = bench.Run(options);
        report.seconds = 0.0;
        report.messages = collection.list.Take(report.messagesLeftOut);
        return report;
    }
};

TEST(PartedRun, FailsAsOnOneThread) {
    const std::map<std::string, std::string> rows[] = {
        {{"a", "at=3\ndoes=fail\n"}},
        {{"b", "at=0\ndoes=throw\n"}},
        {{"c", "at=200\ndoes=throw\n"}},
        {{"d", "at=17\ndoes=fail\n"}},
        {{"d", "at=299\ndoes=fail\n"}, {"a", "at=150\ndoes=talk\n"}},
        {{"a", "at=120\ndoes=fail\n"}, {"d", "at=100\ndoes=fail\n"}},  // the earlier one counts
        {{"c", "at=100\ndoes=fail\n"}, {"d", "at=20\ndoes=talk\n"}, {"b", "at=90\ndoes=talk\n"}},
        {{"b", "does=fail in done\n"}, {"d", "does=fail in done\n"}},
        {{"a", "at=5\ndoes=talk\n"}, {"b", "at=7\ndoes=talk\n"}, {"d", "at=6\ndoes=talk\n"}},
    };
    int row = 0;
    int talked = 0;
    for (const auto& settings : rows) {
        SCOPED_TRACE(row++);
        Chain one(settings, "blocks=300\n");
        const RunReport expected = one.Run(1);
        for (const int threads : {2, 3, 5}) {
            Chain several(settings, "blocks=300\n");
            const RunReport report = several.Run(threads);
            EXPECT_EQ(report.verdict, expected.verdict) << threads;
            EXPECT_EQ(report.explanation, expected.explanation) << threads;
            EXPECT_EQ(several.said, one.said) << threads;
            ASSERT_EQ(report.messages.size(), expected.messages.size()) << threads;
            talked += static_cast<int>(report.messages.size());
            for (std::size_t i = 0; i < report.messages.size(); ++i)
                EXPECT_EQ(report.messages[i].text, expected.messages[i].text) << threads;
            ASSERT_EQ(report.failures.size(), expected.failures.size());
            for (std::size_t i = 0; i < report.failures.size(); ++i)
                EXPECT_EQ(report.failures[i].instance, expected.failures[i].instance);
            if (expected.verdict == Verdict::Complete) {
                EXPECT_EQ(host::WriteJson(report, "x"), host::WriteJson(expected, "x"));
            }
        }
    }
    EXPECT_GT(talked, 100);
}

TEST(PartedRun, IsInterruptedAsOnOneThread) {
    for (const int threads : {1, 2, 4}) {
        host::Interruption interruption;
        interruption.Raise();
        Chain one({}, "blocks=0\n");
        Chain several({}, "blocks=0\n");
        const RunReport expected = one.Run(1, &interruption);
        EXPECT_EQ(expected.verdict, Verdict::Interrupted);
        EXPECT_EQ(host::WriteJson(several.Run(threads, &interruption), "x"), host::WriteJson(expected, "x"));
        EXPECT_EQ(several.said, one.said);
    }
}

// A run that has no end is interrupted somewhere in the middle: all that was made comes to the end.
TEST(PartedRun, LosesNothingWhenItIsInterrupted) {
    host::Interruption interruption;
    Chain chain({}, "blocks=0\n");
    std::thread user([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        interruption.Raise();
    });
    const RunReport report = chain.Run(3, &interruption);
    user.join();
    EXPECT_EQ(report.verdict, Verdict::Interrupted) << report.explanation;
    for (const host::LineReport& line : report.lines)
        EXPECT_EQ(line.blocks, report.lines.front().blocks) << line.to;
}

// A module that does not do what it declared: blocks are left at its input.
TEST(PartedRun, StallsAsOnOneThread) {
    const std::map<std::string, std::string> settings = {{"d", "at=5\ndoes=hoard\n"}};
    Chain one(settings, "blocks=15\n");
    const RunReport expected = one.Run(1);
    EXPECT_EQ(expected.verdict, Verdict::Stalled);
    Chain several(settings, "blocks=15\n");
    EXPECT_EQ(host::WriteJson(several.Run(3), "x"), host::WriteJson(expected, "x"));
    Chain oneOfMany(settings, "blocks=100000\n");
    Chain severalOfMany(settings, "blocks=100000\n");
    const RunReport stopped = severalOfMany.Run(3);
    EXPECT_EQ(stopped.verdict, Verdict::Stalled);
    EXPECT_THAT(stopped.explanation, HasSubstr(oneOfMany.Run(1).explanation));
    EXPECT_LT(stopped.modules.front().blocksOut, 1000) << "memory is bounded";
}

}  // namespace
