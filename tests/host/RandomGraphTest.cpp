// Random graphs of the real modules run to their end, with queues that do not grow with the signals, and find
// the same however much room a line has, and whoever watches their outputs. SIGWEAVE_RANDOM_GRAPHS is how
// many, SIGWEAVE_RANDOM_SEED the first.
#include <gtest/gtest.h>

#include <cstdlib>

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
    host::RunReport Run(const RandomGraph& random, int queueLimit, bool watched = false) {
        host::Mistakes mistakes;
        const host::GraphFile file = host::GraphFile::Parse("random.graph", random.text, mistakes);
        const host::Graph graph(file, catalogue, window, mistakes);
        for (const host::Mistake& mistake : mistakes.InOrder()) ADD_FAILURE() << mistake.text;
        host::RunOptions options;
        options.queueLimit = queueLimit;
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
            const host::RunReport seen = Run(random, 16, true);
            EXPECT_EQ(Results(seen), Results(report)) << "with a watch on every output";
            EXPECT_EQ(seen.verdict, report.verdict) << seen.explanation;
        }
    }
    RecordProperty("graphs", static_cast<int>(done));
    EXPECT_GE(done, std::min(count, 20L)) << "too slow to say anything";
}

}  // namespace
