// Random graphs of the real modules run to their end, with queues that do not grow with the signals, and find
// the same however much room a line has, and whoever watches their outputs. SIGWEAVE_RANDOM_GRAPHS is how
// many, SIGWEAVE_RANDOM_SEED the first.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "host/Graph.h"
#include "tests/host/RandomGraph.h"

namespace {

constexpr int GRAPHS = 2000;
constexpr int COMPARED = 10;  // one of this number of graphs
constexpr double MILLISECONDS = 60000.0;

long FromEnvironment(const char* name, long otherwise) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::atol(value) : otherwise;
}

class RandomGraphs : public testing::Test {
 protected:
    host::RunReport Run(const RandomGraph& random, int queueLimit, host::LiveChanges* changes = nullptr,
                        bool watched = false) {
        host::Mistakes mistakes;
        const host::GraphFile file = host::GraphFile::Parse("random.graph", random.text, mistakes);
        const host::Graph graph(file, catalogue, window, mistakes);
        for (const host::Mistake& mistake : mistakes.InOrder()) ADD_FAILURE() << mistake.text;
        host::RunOptions options;
        options.queueLimit = queueLimit;
        options.changes = changes;
        std::int64_t seen = 0;
        const std::vector<host::RunModule> modules = graph.Modules();
        for (int module = 0; watched && module < static_cast<int>(modules.size()); ++module)
            for (int output = 0; output < modules[static_cast<std::size_t>(module)].module->GetNoOutput();
                 ++output)
                options.watches.push_back({module, output, [&](const TCIOStream::Block&) { ++seen; }});
        if (HasFailure()) return {};
        host::RunReport report = host::Runner(modules, graph.Lines(), options).Run();
        std::int64_t made = 0;
        for (const host::ModuleReport& module : report.modules) made += module.blocksOut;
        if (watched) {
            EXPECT_GE(seen, made);
        }
        return report;
    }

    host::HostWindow window;
    host::ModuleCatalogue catalogue{{SIGWEAVE_MODULE_DIR}};
};

std::string Results(const host::RunReport& report) {
    std::string text;
    for (const host::ModuleReport& module : report.modules)
        for (const host::ResultReport& result : module.results)
            text += module.instance + " " + result.signal + " " + result.quantity + " " +
                    std::to_string(result.value) + "\n";
    for (const host::LineReport& line : report.lines)
        text += line.from + " " + line.to + " " + std::to_string(line.blocks) + "\n";
    return text;
}

TEST_F(RandomGraphs, Complete) {
    const bool isLongForm = std::getenv("SIGWEAVE_RANDOM_GRAPHS") != nullptr;
    const long count = FromEnvironment("SIGWEAVE_RANDOM_GRAPHS", GRAPHS);
    const long first = FromEnvironment("SIGWEAVE_RANDOM_SEED", 1);
    const double due = tc::MachineClock().Milliseconds() + MILLISECONDS;
    long done = 0;
    for (; done < count && !HasFailure(); ++done) {
        if (!isLongForm && tc::MachineClock().Milliseconds() > due) break;  // under a sanitizer, say
        const RandomGraph random = MakeRandomGraph(static_cast<std::uint64_t>(first + done));
        SCOPED_TRACE("seed " + std::to_string(first + done) + "\n" + random.text);
        const host::RunReport report = Run(random, 16);
        EXPECT_EQ(report.verdict, host::Verdict::Complete) << report.explanation;
        for (const host::LineReport& line : report.lines)
            EXPECT_LE(line.deepestQueue, random.deepest) << line.from << "=" << line.to;
        if (done % COMPARED == 0) {
            EXPECT_EQ(Results(Run(random, 1)), Results(report));
            const host::RunReport seen = Run(random, 16, nullptr, true);
            EXPECT_EQ(Results(seen), Results(report)) << "with a watch on every output";
            EXPECT_EQ(seen.verdict, report.verdict) << seen.explanation;
        }
    }
    RecordProperty("graphs", static_cast<int>(done));
    EXPECT_GE(done, std::min(count, 20L)) << "too slow to say anything";
}

// To the last bit, whatever the order of the instances.
std::map<std::string, std::string> ExactResults(const host::RunReport& report) {
    std::map<std::string, std::string> results;
    for (const host::ModuleReport& module : report.modules)
        for (const host::ResultReport& result : module.results) {
            char value[40];
            std::snprintf(value, sizeof value, "%a", result.value);
            results[module.instance] += result.signal + " " + result.quantity + " " + value + "\n";
        }
    return results;
}

// A random graph of which signals of many lengths drive what can be driven, also each other.
class DrivenGraph {
 public:
    DrivenGraph(const RandomGraph& random, long seed) : chance(static_cast<std::uint64_t>(seed)) {
        std::istringstream text(random.text);
        bool inLines = false;
        for (std::string line; std::getline(text, line);)
            if (line == "[lines]")
                inLines = true;
            else
                inLines ? AddLine(line) : AddSetting(line);
        sections.insert(sections.begin() + static_cast<long>(chance() % sections.size()), drivers.begin(),
                        drivers.end());
    }

    // With its sections and lines in the opposite order, or not.
    RandomGraph Ordered(bool reversed) const {
        std::vector<std::string> all = sections, allLines = lines;
        if (reversed) std::ranges::reverse(all), std::ranges::reverse(allLines);
        std::string text;
        for (const std::string& section : all) text += section;
        text += "[lines]\n";
        for (const std::string& line : allLines) text += line + "\n";
        return {text, 0, 0};
    }

 private:
    std::string Any(int most) { return std::to_string(1 + chance() % static_cast<unsigned>(most)); }

    // Where Align and Math cut depends on whose turn it was, and with it the blocks after them: they are cut
    // anew.
    void AddLine(const std::string& line) {
        const std::size_t equals = line.find('=');
        if (!cutters.contains(line.substr(0, line.find('.')))) return lines.push_back(line);
        const std::string cut = "r" + std::to_string(sections.size());
        sections.push_back("[" + cut + "]\nmodule=Reblock\nsize=" + Any(60) + "\n");
        lines.push_back(line.substr(0, equals + 1) + cut + ".Signal");
        lines.push_back(cut + ".Signal" + line.substr(equals));
    }

    void AddSetting(const std::string& line) {
        if (line.starts_with('[')) {
            sections.emplace_back();
            instance = line.substr(1, line.size() - 2);
        }
        sections.back() += line + "\n";
        if (line == "module=Align" || line == "module=Math") cutters.insert(instance);
        const auto found = line.starts_with("module=") ? drivable.find(line.substr(7)) : drivable.end();
        if (found == drivable.end() || chance() % 3 == 0) return;
        const std::string driver = "d" + std::to_string(drivers.size());
        drivers.push_back("[" + driver + "]\nmodule=Generator\nfrequency=" + Any(9) + "\nphase=" + Any(360) +
                          "\nrate=" + Any(999) + "\nblock=" + Any(40) + "\nduration=" + Any(4) +
                          "\namplitude=150\noffset=" + Any(400) + "\nstart=2026-01-01\n");
        lines.push_back(driver + ".Signal=" + instance + "." + found->second);
        if (drivers.size() % 4 == 0) lines.push_back("d0.Signal=" + driver + ".frequency");
    }

    const std::map<std::string, std::string> drivable = {
        {"Filter", "corner"}, {"Math", "scale"}, {"Generator", "amplitude"}};
    std::mt19937_64 chance;
    std::vector<std::string> sections, lines, drivers;
    std::set<std::string> cutters;
    std::string instance;
};

TEST_F(RandomGraphs, DrivenParametersDependOnTheBlocksAlone) {
    constexpr long MOST = 24;
    const double due = tc::MachineClock().Milliseconds() + MILLISECONDS;
    int changed = 0;
    long done = 0;
    for (long seed = 1; seed <= MOST && !HasFailure(); ++seed, ++done) {
        if (tc::MachineClock().Milliseconds() > due) break;  // under a sanitizer, say
        const RandomGraph random = MakeRandomGraph(static_cast<std::uint64_t>(seed));
        const std::map<std::string, std::string> still = ExactResults(Run(random, 16));
        const DrivenGraph graph(random, seed);
        std::map<std::string, std::string> first;
        for (const bool reversed : {false, true})
            for (const int queueLimit : {16, 1, 5}) {
                const RandomGraph driven = graph.Ordered(reversed);
                SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + driven.text);
                const host::RunReport report = Run(driven, queueLimit);
                EXPECT_EQ(report.verdict, host::Verdict::Complete) << report.explanation;
                if (first.empty()) first = ExactResults(report);
                EXPECT_EQ(ExactResults(report), first) << queueLimit << reversed;
            }
        changed +=
            std::ranges::any_of(still, [&](const auto& each) { return first[each.first] != each.second; });
    }
    EXPECT_GT(changed, done / 2) << "the drivers drive";
}

// Changes that come at any time are made again at the same blocks, with the same results.
TEST_F(RandomGraphs, ChangesCanBeMadeAgain) {
    std::int64_t made = 0;
    for (long seed = 1; seed <= 40 && !HasFailure(); ++seed) {
        const RandomGraph random = MakeRandomGraph(static_cast<std::uint64_t>(seed));
        SCOPED_TRACE(random.text);
        host::LiveChanges changes;
        std::atomic<bool> over{false};
        std::atomic<int> added{0};
        std::thread other([&] {
            for (int i = 0; !over && i < 100000; ++i) {
                const std::string name = "m" + std::to_string(1 + i % random.modules);
                changes.Add({name,
                             i % 3 == 0   ? "amplitude"
                             : i % 3 == 1 ? "corner"
                                          : "scale",
                             std::to_string(1 + i % 900)});
                ++added;
                std::this_thread::yield();
            }
        });
        while (added < 30) std::this_thread::yield();  // on a busy machine the run is over before
        const host::RunReport report = Run(random, 16, &changes);
        over = true;
        other.join();
        host::LiveChanges again;
        for (const host::LiveChange& change : report.changes) again.Add(change);
        const host::RunReport second = Run(random, 16, &again);
        EXPECT_EQ(ExactResults(second), ExactResults(report));
        EXPECT_EQ(second.changes.size(), report.changes.size());
        made += static_cast<std::int64_t>(report.changes.size());
    }
    EXPECT_GT(made, 100);
}

}  // namespace
