// A graph on several threads gives what it gives on one, to the last byte. SIGWEAVE_PARTED_GRAPHS is how many
// random graphs, SIGWEAVE_RANDOM_SEED the first.
#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "host/Console.h"
#include "host/Graph.h"
#include "host/Report.h"
#include "host/parts/PartPlan.h"
#include "sigweave/platform/OwnedFolder.h"
#include "tests/host/MemoryPlace.h"
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

// --- Random graphs in places, with sources at several of them

// A filter before each input of a join, so that a line from another place leads to one that takes every
// block.
std::string PutBeforeJoins(const std::string& text) {
    std::istringstream lines(text);
    std::string sections, wires, name;
    std::set<std::string> joins;
    int added = 0;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (line.starts_with("[")) name = line.substr(1, line.size() - 2);
        if (line == "module=Align" || line == "module=BusJoin") joins.insert(name);
        std::string& part = name == "lines" ? wires : sections;
        if (name == "lines" && equals != line.npos &&
            joins.contains(line.substr(equals + 1, line.find('.', equals) - equals - 1))) {
            const std::string filter = "p" + std::to_string(++added);
            sections += "[" + filter + "]\nmodule=Filter\ncorner=200\n";
            wires += line.substr(0, equals) + "=" + filter + ".Signal\n";
            line = filter + ".Signal" + line.substr(equals);
        }
        part += line + "\n";
    }
    return sections + wires;
}

// Equally long signals of which some come to a join late, so that its lines fill up and sources help others.
std::string MakeLateJoin(std::uint64_t seed, const std::string& folder) {
    std::mt19937_64 random(seed);
    const int count = 2 + static_cast<int>(random() % 3);
    std::string text, lines;
    for (int i = 1; i <= count; ++i) {
        const std::string number = std::to_string(i);
        std::string port = "s" + number + ".Signal=";
        text += "[s" + number + "]\nmodule=Generator\nform=noise\nname=s" + number + "\nseed=" + number +
                "\nrate=8000\nduration=0.512\nblock=" + std::to_string(16U << random() % 3) +
                "\nstart=2026-01-01\n";
        if (random() % 2 > 0) {
            text +=
                "[late" + number + "]\nmodule=Reblock\nsize=" + std::to_string(64U << random() % 6) + "\n";
            lines += port + "late" + number + ".Signal\n";
            port = "late" + number + ".Signal=";
        }
        text += "[cut" + number + "]\nmodule=Reblock\nsize=16\n";
        lines += port + "cut" + number + ".Signal\ncut" + number + ".Signal=join.Signal " + number + "\n";
        lines += "pick.Channel " + number + "=all.Signal " + number + "\n";
    }
    return text + "[join]\nmodule=BusJoin\n[pick]\nmodule=BusSelect\nexpression=.\nsignals=" +
           std::to_string(count) + "\n[all]\nmodule=Recorder\noverwrite=yes\nfile=" + folder +
           "/all.mcap\n[lines]\njoin.Bus=pick.Bus\n" + lines;
}

// Draws where modules are: sources at up to three places before the joining one, of what one leads to alone
// some at its place, and of the ends some at one place behind.
class PlaceDraw {
 public:
    PlaceDraw(std::uint64_t seed, const std::vector<host::RunModule>& modules,
              const std::vector<host::RunLine>& runLines)
        : random(seed), lines(runLines), sources(modules.size()) {
        plan.joining = Between(1, 3);
        for (int place = 0; place <= plan.joining + 1; ++place) plan.places.push_back(std::to_string(place));
        for (const host::RunModule& module : modules) {
            const auto& extended = dynamic_cast<const TCBaseModuleEx&>(*module.module);
            takesAll.push_back(extended.GetPlacement() == ANY);
            isSource.push_back(module.module->GetTypeOfModule() == 1);
            plan.partOf.push_back(isSource.back() ? Between(0, plan.joining) : plan.joining);
            if (isSource.back()) sources[takesAll.size() - 1] = {static_cast<int>(takesAll.size()) - 1};
        }
        Spread([this](const host::RunLine& line) {
            const std::size_t before = sources[At(line.to)].size();
            sources[At(line.to)].insert(sources[At(line.from)].begin(), sources[At(line.from)].end());
            return sources[At(line.to)].size() > before;
        });
        for (std::size_t module = 0; module < modules.size(); ++module)
            if (!isSource[module] && takesAll[module] && sources[module].size() == 1 && Between(0, 2) > 0)
                plan.partOf[module] = plan.partOf[At(*sources[module].begin())];
        Spread([this](const host::RunLine& line) { return Mend(line); });
        for (std::size_t module = 0; module < modules.size(); ++module)
            if (!isSource[module] && takesAll[module] && Between(0, 1) > 0 &&
                plan.partOf[module] == plan.joining)
                plan.partOf[module] = plan.joining + 1;
        Spread([this](const host::RunLine& line) {
            if (plan.partOf[At(line.from)] <= plan.partOf[At(line.to)]) return false;
            plan.partOf[At(line.from)] = plan.partOf[At(line.to)];
            return true;
        });
    }

    bool HasStems() const {
        return std::ranges::any_of(plan.partOf, [&](int p) { return p < plan.joining; });
    }

    host::PlacePlan plan;

 private:
    static std::size_t At(int index) { return static_cast<std::size_t>(index); }
    int Between(int least, int most) { return least + static_cast<int>(random() % (most - least + 1U)); }
    template <class Change>
    void Spread(Change change) {
        for (bool changed = true; changed;) {
            changed = false;
            for (const host::RunLine& line : lines) changed = change(line) || changed;
        }
    }
    bool Mend(const host::RunLine& line) {
        int& from = plan.partOf[At(line.from)];
        int& to = plan.partOf[At(line.to)];
        if (from == to) return false;
        if (to < plan.joining) return to = plan.joining, true;
        if (takesAll[At(line.to)]) return false;
        return from = plan.joining, true;
    }

    std::mt19937_64 random;
    const std::vector<host::RunLine>& lines;
    std::vector<bool> takesAll, isSource;
    std::vector<std::set<int>> sources;
};

// What each place reports; `run` makes the run of one.
std::vector<RunReport> RunEach(const host::PlacePlan& plan,
                               const std::function<RunReport(std::size_t own, host::RunOptions&)>& run) {
    MemoryWays ways;
    std::vector<RunReport> reports(plan.places.size());
    std::vector<std::thread> threads;
    for (std::size_t own = 0; own < reports.size(); ++own)
        threads.emplace_back([&, own] {
            host::messages::Collection collection;
            host::PlacePlan here = plan;
            here.own = static_cast<int>(own);
            MemoryPlace place(here, ways, Dawdle);
            host::RunOptions options;
            options.place = &place;
            reports[own] = run(own, options);
        });
    for (std::thread& thread : threads) thread.join();
    return reports;
}

struct RandomPlaces : RandomParts {
    struct Made {
        std::unique_ptr<host::GraphFile> file;
        std::unique_ptr<host::Graph> graph;
    };

    Made Make(const std::string& text) {
        host::Mistakes mistakes;
        Made made;
        made.file = std::make_unique<host::GraphFile>(
            host::GraphFile::Parse("random.graph", PutBeforeJoins(text), mistakes));
        made.graph = std::make_unique<host::Graph>(*made.file, catalogue, window, mistakes);
        for (const host::Mistake& mistake : mistakes.InOrder()) ADD_FAILURE() << mistake.text;
        return made;
    }

    // One report of what each place says of what is there.
    static RunReport RunPlaces(const std::vector<Made>& graphs, const host::PlacePlan& plan) {
        std::vector<RunReport> reports = RunEach(plan, [&](std::size_t own, host::RunOptions& options) {
            const host::Graph& graph = *graphs[own].graph;
            return host::Runner(graph.Modules(), graph.Lines(), options).Run();
        });
        RunReport whole = reports[static_cast<std::size_t>(plan.joining)];
        const auto at = [&](int module) -> RunReport& {
            return reports[static_cast<std::size_t>(plan.partOf[static_cast<std::size_t>(module)])];
        };
        for (std::size_t i = 0; i < whole.modules.size(); ++i)
            whole.modules[i] = at(static_cast<int>(i)).modules[i];
        for (std::size_t i = 0; i < whole.lines.size(); ++i)
            whole.lines[i] = at(graphs.front().graph->Lines()[i].to).lines[i];
        for (const RunReport& report : reports)
            if (report.verdict != Verdict::Complete) whole.explanation += report.explanation;
        return whole;
    }

    host::HostWindow window;
};

TEST_F(RandomPlaces, GiveWhatOneGives) {
    constexpr double MILLISECONDS = 2000.0;
    constexpr long FEWEST = 4;
    const bool isLongForm = std::getenv("SIGWEAVE_PLACED_GRAPHS") != nullptr;
    const long count = FromEnvironment("SIGWEAVE_PLACED_GRAPHS", 20);
    const long first = FromEnvironment("SIGWEAVE_RANDOM_SEED", 1);
    const double due = tc::MachineClock().Milliseconds() + MILLISECONDS;
    long drawn = 0, cut = 0, full = 0;
    for (; cut < count && !HasFailure(); ++drawn) {
        if (!isLongForm && cut >= FEWEST && full > 0 && tc::MachineClock().Milliseconds() > due) break;
        std::error_code failed;
        const auto placed = tc::OwnedFolder::MakeTemporary("sigweave-places-", failed);
        ASSERT_NE(placed, nullptr) << failed.message();
        const auto seed = static_cast<std::uint64_t>(first + drawn);
        const std::string path = placed->Path().string();
        const std::string text =
            drawn % 4 == 0 ? MakeLateJoin(seed, path) : MakeRandomGraphWithFiles(seed, path).text;
        SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + PutBeforeJoins(text));
        std::vector<Made> graphs(1);
        graphs[0] = Make(text);
        if (HasFailure()) return;
        const PlaceDraw draw(seed, graphs[0].graph->Modules(), graphs[0].graph->Lines());
        const host::Runner runner(graphs[0].graph->Modules(), graphs[0].graph->Lines());
        for (const auto& misplaced : runner.FindMisplaced(draw.plan)) ADD_FAILURE() << misplaced.reason;
        if (!draw.HasStems()) continue;
        while (graphs.size() < draw.plan.places.size()) graphs.push_back(Make(text));
        RunReport several = RunPlaces(graphs, draw.plan);
        ++cut;

        const std::map<std::string, std::string> files = FilesIn(placed->Path());

        graphs.push_back(Make(text));
        host::messages::Collection collection;
        const host::Graph& whole = *graphs.back().graph;
        RunReport one = host::Runner(whole.Modules(), whole.Lines()).Run();
        several.signalSeconds = one.signalSeconds;  // each place knows only of its own
        several.seconds = one.seconds = 0.0;
        full += std::ranges::any_of(one.lines, [](const auto& line) { return line.deepestQueue > 16; });
        EXPECT_EQ(host::WriteJson(several, "x"), host::WriteJson(one, "x"));
        EXPECT_TRUE(FilesIn(placed->Path()) == files);
    }
    RecordProperty("graphs", static_cast<int>(cut));
    RecordProperty("full", static_cast<int>(full));
    EXPECT_GT(full, 0) << "no line filled up";
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

// --- Sources at places of their own

// At a: s1 -> m1, at b: s2 -> m2, and at c, where they could meet: m1 -> k1, m2 -> k2 -> end.
struct Fork {
    RunnerBench bench;

    explicit Fork(const std::map<std::string, std::string>& settings) {
        const auto of = [&](const char* name) { return settings.contains(name) ? settings.at(name) : ""; };
        for (const char* source : {"s1", "s2"}) bench.Add<TestSource>(source, "blocks=60\n");
        for (const char* mover : {"m1", "m2", "k1", "k2", "end"}) bench.Add<TestMover>(mover, of(mover));
        for (const auto& [from, to] :
             {std::pair("s1", "m1"), {"s2", "m2"}, {"m1", "k1"}, {"m2", "k2"}, {"k2", "end"}})
            bench.Wire(from, to);
    }
};

std::vector<RunReport> RunFork(const std::map<std::string, std::string>& settings,
                               host::Interruption* interruptionOfA = nullptr) {
    host::PlacePlan plan;
    plan.places = {"a", "b", "c"};
    plan.partOf = {0, 1, 0, 1, 2, 2, 2};
    plan.joining = 2;
    return RunEach(plan, [&](std::size_t own, host::RunOptions& options) {
        if (own == 0) options.interruption = interruptionOfA;
        return Fork(settings).bench.Run(options);
    });
}

TEST(PlacedRun, NamesThePlaceWhoseModuleFailed) {
    const std::vector<RunReport> reports = RunFork({{"m1", "at=3\ndoes=fail\n"}});
    EXPECT_THAT(reports[0].explanation, HasSubstr("m1"));
    EXPECT_EQ(reports[1].verdict, Verdict::Complete) << reports[1].explanation;
    EXPECT_EQ(reports[2].verdict, Verdict::Failed);
    EXPECT_THAT(reports[2].explanation, HasSubstr("the place a failed"));
    EXPECT_EQ(reports[2].lines[2].blocks, 3);
}

TEST(PlacedRun, StallsAsInOneWhereSignalsMeet) {
    const std::map<std::string, std::string> settings = {{"k2", "at=5\ndoes=hoard\n"}};
    const RunReport one = Fork(settings).bench.Run();
    const std::vector<RunReport> reports = RunFork(settings);
    EXPECT_EQ(reports[2].verdict, Verdict::Stalled);
    EXPECT_EQ(reports[2].explanation, one.explanation);
    for (const std::size_t line : {2, 3}) EXPECT_EQ(reports[2].lines[line].blocks, one.lines[line].blocks);
    EXPECT_EQ(reports[0].verdict, Verdict::Complete) << reports[0].explanation;
}

TEST(PlacedRun, GoesOnWithTheOthersWhenOneIsInterrupted) {
    host::Interruption interruption;
    interruption.Raise();
    const std::vector<RunReport> reports = RunFork({}, &interruption);
    EXPECT_EQ(reports[0].verdict, Verdict::Interrupted);
    EXPECT_EQ(reports[2].lines[2].blocks, reports[0].modules[0].blocksOut);
    EXPECT_LT(reports[2].lines[2].blocks, 60);
    EXPECT_EQ(reports[2].lines[3].blocks, 60) << reports[2].explanation;
}

}  // namespace
