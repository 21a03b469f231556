#include <gmock/gmock.h>

#include <numeric>

#include "host/Report.h"
#include "host/Runner.h"
#include "host/Topology.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/platform/Thread.h"
#include "tests/host/RunnerBench.h"
#include "tests/host/TestModules.h"
#include "tests/support/HandMovedClock.h"

namespace {

using Bench = RunnerBench;
using host::RunReport;
using host::Verdict;
using testing::ElementsAre;
using testing::HasSubstr;

double ResultOf(const RunReport& report, const std::string& quantity) {
    for (const host::ModuleReport& module : report.modules)
        for (const host::ResultReport& result : module.results)
            if (result.quantity == quantity) return result.value;
    return -1.0;
}

TEST(Runner, CountsBlocksOfEveryModuleAndLine) {
    Bench bench;
    bench.Add<TestJoin>("sum", "", 2);  // listed first: the order of the graph does not matter
    bench.Add<TestPass>("pass");
    bench.Add<TestSource>("source", "blocks=100\n");
    bench.Wire("source", "pass");
    bench.Wire("pass", "sum", 0);
    bench.Wire("source", "sum", 1);
    const RunReport report = bench.Run();
    EXPECT_EQ(report.verdict, Verdict::Complete) << report.explanation;
    EXPECT_EQ(ResultOf(report, "sum"), 2 * 4 * 4950.0);  // 0 + ... + 99, four of each, twice
    EXPECT_EQ(report.modules[0].blocksIn, 200);
    EXPECT_EQ(report.modules[2].blocksOut, 100);  // one output, two lines
    for (const host::LineReport& line : report.lines) {
        EXPECT_EQ(line.blocks, 100);
        EXPECT_EQ(line.deepestQueue, 1);
    }
    EXPECT_EQ(report.lines[2].from, "source.Signal");
    EXPECT_EQ(report.lines[2].to, "sum.Signal 2");
}

TEST(Runner, CountsEachOfTheBlocksOfOneStep) {
    Bench bench;
    bench.Add<TestSource>("source", "blocks=60\nburst=6\n");
    bench.Add<TestJoin>("sum");
    bench.Wire("source", "sum");
    const RunReport report = bench.Run();
    EXPECT_EQ(report.verdict, Verdict::Complete) << report.explanation;
    EXPECT_EQ(ResultOf(report, "sum"), 4 * 1770.0);  // 0 + ... + 59, four of each
    EXPECT_EQ(report.modules[0].blocksOut, 60);
    EXPECT_EQ(report.modules[1].blocksIn, 60);
    EXPECT_EQ(report.lines[0].blocks, 60);
    EXPECT_EQ(report.lines[0].deepestQueue, 6);
    EXPECT_EQ(report.signalSeconds, 240.0);
}

// What a watch of the only output of a module was shown: the first value of each block.
host::OutputWatch Keep(int module, std::vector<double>& values) {
    return {module, 0, [&values](const TCIOStream::Block& block) {
                values.push_back(block.Segment(0)->GetDoubles()[0]);
            }};
}

TEST(Runner, ShowsTheBlocksOfWatchedOutputsAndGoesOnAsWithout) {
    const auto run = [](const host::RunOptions& options) {
        Bench bench;
        bench.Add<TestSource>("source", "blocks=60\nburst=6\n");
        bench.Add<TestPass>("pass");
        bench.Add<TestPass>("loose");  // its output has no line
        bench.Add<TestJoin>("sum", "", 2);
        bench.Wire("source", "sum", 0);
        bench.Wire("source", "pass");
        bench.Wire("pass", "sum", 1);
        bench.Wire("source", "loose");
        RunReport report = bench.Run(options);
        report.seconds = 0.0;
        return host::WriteJson(report, "");
    };
    std::vector<double> shown[4];
    host::RunOptions options;
    options.watches = {Keep(0, shown[0]), Keep(1, shown[1]), Keep(2, shown[2]), Keep(2, shown[3])};
    host::RunGauge gauge;
    options.gauge = &gauge;
    EXPECT_EQ(run(options), run({}));
    std::vector<double> expected(60);
    std::iota(expected.begin(), expected.end(), 0.0);
    for (const std::vector<double>& values : shown) EXPECT_EQ(values, expected);
}

TEST(Runner, NamesTheStarvedInputAndKeepsQueuesShort) {
    Bench bench;
    bench.Add<TestSource>("long", "blocks=100000\n");
    bench.Add<TestSource>("short", "blocks=7\n");
    bench.Add<TestPass>("pass");
    bench.Add<TestJoin>("sum", "", 2);
    bench.Wire("long", "pass");
    bench.Wire("pass", "sum", 0);
    bench.Wire("short", "sum", 1);
    host::RunOptions options;
    options.queueLimit = 5;
    const RunReport report = bench.Run(options);
    EXPECT_EQ(report.verdict, Verdict::Stalled);
    EXPECT_THAT(report.explanation,
                HasSubstr("starved input: sum.Signal 2 (fed by short.Signal with 7 blocks)"));
    EXPECT_EQ(report.lines[1].deepestQueue, 6);  // not right after the source, but one stage on
    EXPECT_EQ(report.lines[1].blocks, 13);
}

TEST(Runner, DoesNotSpinOnAModuleThatTakesNothing) {
    Bench bench;
    bench.Add<TestSource>("source", "blocks=3\n");
    bench.Add<TestPass>("pass", "hoard_from=1\n");
    bench.Add<TestJoin>("sum");
    bench.Wire("source", "pass");
    bench.Wire("pass", "sum");
    const RunReport report = bench.Run();
    EXPECT_EQ(report.verdict, Verdict::Stalled);
    EXPECT_THAT(report.explanation,
                HasSubstr("pass did not take the blocks that wait for it: 2 blocks at pass.Signal"));
}

TEST(Runner, TellsWhichModuleFailedAndWhy) {
    Bench bench;
    bench.Add<TestSource>("source");
    bench.Add<TestPass>("pass", "fail_at=4\n");
    bench.Wire("source", "pass");
    const RunReport report = bench.Run();
    EXPECT_EQ(report.verdict, Verdict::Failed);
    EXPECT_EQ(report.explanation, "pass (Test pass) failed while running: the wire is broken");
    EXPECT_EQ(report.modules[0].blocksOut, 5);
    EXPECT_EQ(ResultOf(report, "made"), 5.0);  // Done was called nevertheless
}

TEST(Runner, AnInterruptedSourceEndsItsSignalAndEverythingIsProcessed) {
    Bench bench;
    bench.Add<TestSource>("source", "blocks=0\n");
    bench.Add<TestJoin>("sum");
    bench.Wire("source", "sum");
    const RunReport report = bench.RunInterrupted();
    EXPECT_EQ(report.verdict, Verdict::Interrupted);
    EXPECT_EQ(ResultOf(report, "stopped"), 1.0);
    EXPECT_EQ(report.modules[0].blocksOut, report.modules[1].blocksIn);
}

TEST(Runner, ASourceThatWasEndedByForceDoesNotComeBack) {
    Bench bench;
    bench.Add<TestDeaf>("a");
    bench.Add<TestDeaf>("b", "rate=2\n");  // ends first because it steps twice as often; blocks still arrive
    bench.Add<TestJoin>("sum");
    bench.Wire("a", "b");
    bench.Wire("b", "sum");
    const RunReport report = bench.RunInterrupted();
    EXPECT_EQ(report.verdict, Verdict::Interrupted);
    EXPECT_THAT(report.explanation, HasSubstr(" at b.Signal")) << "which came when it had ended";
    EXPECT_EQ(report.modules[2].blocksIn, report.modules[1].blocksOut);
}

// Two sources through one module with two ways into a join of both, which waits for both.
TEST(Runner, LetsEquallyLongSourcesTakeTurns) {
    Bench bench;
    bench.Add<TestSource>("a", "blocks=1000\n");
    bench.Add<TestSource>("b", "blocks=500\nsize=8\n");
    bench.Add<TestGreedy>("both", "", 2);
    bench.Wire("a", "both", 0);
    bench.Wire("b", "both", 1);
    EXPECT_EQ(bench.Run().verdict, Verdict::Complete);
    EXPECT_LE(ResultOf(bench.Run(), "apart"), 8.0) << "samples by which one source was ahead of the other";
}

// It cuts a block into pieces for an output that nobody wired: the host cannot see them.
TEST(Runner, AsksAModuleThatWorksForAnUnwiredOutput) {
    Bench bench;
    bench.Add<TestSource>("source", "blocks=3\n");
    bench.Add<TestCutter>("cutter", "pieces=1000\n");
    bench.Wire("source", "cutter");
    const RunReport report = bench.Run();
    EXPECT_EQ(report.verdict, Verdict::Complete) << report.explanation;
    EXPECT_EQ(ResultOf(report, "pieces"), 3000.0);
}

TEST(Runner, IsHeldUpOnlyOnceByAModuleThatClaimsWork) {
    Bench bench;
    bench.Add<TestSource>("source", "blocks=50\n");
    bench.Add<TestPass>("pass", "hoard_from=1\n");  // whose output leads nowhere
    bench.Wire("source", "pass");
    const RunReport report = bench.Run();
    EXPECT_EQ(report.verdict, Verdict::Stalled);
    EXPECT_EQ(report.lines[0].deepestQueue, 17);
}

TEST(Runner, ShowsItsFiguresToOtherThreads) {
    Bench bench;
    bench.Add<TestSource>("source", "blocks=0\n");
    bench.Add<TestPass>("pass");
    bench.Add<TestJoin>("sum");
    bench.Wire("source", "pass");
    bench.Wire("pass", "sum");
    host::RunGauge gauge;
    host::Interruption interruption;
    host::RunOptions options;
    options.gauge = &gauge;
    options.interruption = &interruption;
    host::RunFigures first;
    EXPECT_FALSE(gauge.Ask(first, 0)) << "no run yet";
    host::RunFigures second;
    {
        tc::Thread viewer("viewer", [&] {
            while (!gauge.Ask(first, 1000)) continue;
            while (!gauge.Ask(second, 1000) || second.modules[1].steps < first.modules[1].steps + 2) continue;
            interruption.Raise();
        });
        EXPECT_EQ(bench.Run(options).verdict, Verdict::Interrupted);
    }
    EXPECT_EQ(gauge.Current(), -1);
    EXPECT_GT(second.seconds, first.seconds);
    EXPECT_GT(second.lines[0].blocks, first.lines[0].blocks);
    EXPECT_EQ(second.modules[1].blocksOut, second.lines[1].blocks);
    EXPECT_LE(second.lines[1].depth, second.lines[1].deepest);
    EXPECT_GT(second.modules[1].seconds, 0.0);
    EXPECT_EQ(first.modules[1].seconds, 0.0) << "not timed before anybody asked";
}

TEST(Runner, WaitsForBlocksByTheClockThatItIsGiven) {
    Bench bench;
    HandMovedClock clock;
    bench.Add<TestSource>("fast", "blocks=20\nsize=3\nrate=20\n");
    bench.Add<TestSource>("slow", "blocks=2\nsize=30\nrate=20\n");
    bench.Add<TestGreedy>("both", "", 2);
    bench.Wire("fast", "both", 0);
    bench.Wire("slow", "both", 1);
    host::RunOptions options;
    options.realtime = true;
    options.clock = &clock;
    const RunReport report = bench.Run(options);
    EXPECT_EQ(report.verdict, Verdict::Complete);
    EXPECT_DOUBLE_EQ(report.seconds, 19 * 0.15) << "20 blocks of 150 ms; the last one is not waited for";
    EXPECT_EQ(ResultOf(report, "intervals"), 19.0);
    EXPECT_DOUBLE_EQ(ResultOf(report, "interval average"), 150.0);
    EXPECT_DOUBLE_EQ(ResultOf(report, "interval maximum"), 150.0);
}

TEST(Runner, CountsNoWaitForRealTimeAsWorkOfASource) {
    Bench bench;
    HandMovedClock clock;  // which moves in waits alone
    bench.Add<TestSource>("source", "blocks=0\nsize=1\nrate=1000\n");
    bench.Add<TestPass>("pass");
    bench.Wire("source", "pass");
    host::RunGauge gauge;
    host::Interruption interruption;
    host::RunOptions options;
    options.realtime = true;
    options.clock = &clock;
    options.gauge = &gauge;
    options.interruption = &interruption;
    host::RunFigures first;
    host::RunFigures second;
    {
        tc::Thread viewer("viewer", [&] {
            while (!gauge.Ask(first, 1000)) continue;
            while (!gauge.Ask(second, 1000) || second.seconds <= first.seconds) continue;
            interruption.Raise();
        });
        bench.Run(options);
    }
    EXPECT_EQ(second.modules[0].seconds, 0.0);
}

TEST(Runner, GivesUpOnASourceThatMakesNothing) {
    Bench bench;
    bench.Add<TestSource>("source", "blocks=0\n");  // wired to nothing, so its blocks go nowhere
    host::RunOptions options;
    options.patience = std::chrono::milliseconds(1);
    const RunReport report = bench.Run(options);
    EXPECT_EQ(report.verdict, Verdict::Stalled);
    EXPECT_THAT(report.explanation, HasSubstr("source says that it has work but makes no block"));
}

TEST(Topology, SortsFindsCyclesAndTakesLongChains) {
    EXPECT_THAT(host::SortTopologically(4, {{3, 1}, {1, 0}, {3, 2}, {2, 0}}).order, ElementsAre(3, 1, 2, 0));
    EXPECT_THAT(host::SortTopologically(5, {{0, 1}, {1, 2}, {2, 1}, {3, 4}, {4, 3}}).cycles,
                testing::UnorderedElementsAre(ElementsAre(1, 2), ElementsAre(3, 4)));
    std::vector<std::pair<int, int>> chain;
    for (int node = 0; node < 100000; ++node) chain.emplace_back(node + 1, node);
    const host::Topology topology = host::SortTopologically(100001, chain);
    EXPECT_EQ(topology.order.front(), 100000);
    EXPECT_TRUE(topology.cycles.empty());
}

constexpr TCModuleParameter LEVEL[] = {
    {.name = "level", .kind = TCModuleParameter::NUMBER, .defaultValue = "-1", .maximum = 100, .live = true}};

// Notes at which block of which input its level was which.
class TestLevel final : public TCBaseModuleEx {
 public:
    explicit TestLevel(int instance) : TCBaseModuleEx(instance, LEVEL) {
        UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
    }
    const char* GetModuleId() const override { return "TestLevel"; }
    const char* GetDescription() const override { return "Notes its level"; }
    int Execute() override {
        for (unsigned port = 0; port < static_cast<unsigned>(GetNoInput()); ++port) {
            if (portHelper->TakeBlock(port) <= 0) continue;
            noted +=
                std::string(1, static_cast<char>('a' + port)) + std::to_string(static_cast<int>(level)) + " ";
        }
        return 0;
    }

    const double& level = LiveDbl("level");
    std::string noted;
};

// Makes blocks of 4 s with its level.
class TestLevelSource final : public TCBaseModuleEx {
 public:
    explicit TestLevelSource(int instance) : TCBaseModuleEx(instance, LEVEL) {
        DeclareSource();
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
    }
    const char* GetModuleId() const override { return "TestLevelSource"; }
    const char* GetDescription() const override { return "Makes its level"; }
    int Execute() override {
        TCTypeInfo info;
        info.SetState(tc::BlockState(made == 0, made == 4));
        info.SetSamplerate(1.0);
        info.SetTimestamp(1.6e12 + 4000.0 * made);
        portHelper->SetTypeInfo(0, info);
        noted += std::to_string(static_cast<int>(level)) + " ";
        if (++made == 5) portHelper->SetReadyFlag(false);
        const double values[] = {level, level, level, level};
        return portHelper->WriteDblData(0, 4, values);
    }

    const double& level = LiveDbl("level");
    std::string noted;
    int made = 0;
};

TEST(DrivenParameter, TheLastBlockThatHasEndedHolds) {
    const struct {
        const char* driver;  // block k holds k
        const char* a;       // begins at multiples of 4 s
        const char* b;
        std::string noted;
    } rows[] = {
        {"blocks=20\nsize=2", "blocks=5", nullptr, "a-1 a1 a3 a5 a7 "},
        {"blocks=3\nsize=2", "blocks=5", nullptr, "a-1 a1 a2 a2 a2 "},  // it ends first
        {"blocks=5\nsize=4", "blocks=5", nullptr, "a-1 a0 a1 a2 a3 "},
        {"blocks=2\nsize=10", "blocks=6", nullptr, "a-1 a-1 a-1 a0 a0 a1 "},
        {"blocks=300\nsize=1\nrate=20", "blocks=3", nullptr, "a-1 a79 a100 "},  // those above are refused
        {"blocks=20\nsize=2", "blocks=3", "blocks=2\nsize=6", "a-1 b-1 a1 b2 a3 "},
        {"blocks=20\nsize=2", "blocks=1", "blocks=4", "a-1 b-1 b1 b3 b5 "},
    };
    for (const auto& row : rows)
        for (const int queueLimit : {1, 3, 16}) {
            Bench bench;
            TestLevel& level = bench.Add<TestLevel>("level", "", row.b != nullptr ? 2 : 1);
            bench.Add<TestSource>("driver", std::string(row.driver) + "\n");
            bench.Add<TestSource>("a", std::string(row.a) + "\n");
            bench.Wire("a", "level", 0);
            if (row.b != nullptr) bench.Add<TestSource>("b", std::string(row.b) + "\n");
            if (row.b != nullptr) bench.Wire("b", "level", 1);
            bench.Drive("driver", "level", 0);
            host::RunOptions options;
            options.queueLimit = queueLimit;
            const RunReport report = bench.Run(options);
            EXPECT_EQ(report.verdict, Verdict::Complete) << report.explanation;
            EXPECT_EQ(level.noted, row.noted) << row.driver << " " << queueLimit;
            EXPECT_EQ(report.modules.size(), row.b != nullptr ? 4U : 3U);
            EXPECT_EQ(report.lines.back().to, "level.level");
        }
}

TEST(DrivenParameter, ASourceWaitsForItsDriver) {
    for (const auto& [driver, noted] :
         {std::pair("blocks=100\nsize=2\n", "-1 1 3 5 7 "), {"blocks=3\nsize=2\n", "-1 1 2 2 2 "}}) {
        Bench bench;
        TestLevelSource& source = bench.Add<TestLevelSource>("source");
        bench.Add<TestSource>("driver", driver);
        bench.Add<TestJoin>("sum");
        bench.Wire("source", "sum");
        bench.Drive("driver", "source", 0);
        const RunReport report = bench.Run();
        EXPECT_EQ(report.verdict, Verdict::Complete) << report.explanation;
        EXPECT_EQ(source.noted, noted);
    }
}

TEST(DrivenParameter, WhatIsRefusedIsToldOnceAndCounted) {
    Bench bench;
    std::vector<std::string> warnings;
    TestLevel& level = bench.Add<TestLevel>("level");
    bench.Add<TestSource>("driver", "blocks=110\nsize=1\n");
    bench.Add<TestSource>("a", "blocks=30\n");
    bench.Wire("a", "level", 0);
    bench.Drive("driver", "level", 0);
    host::RunOptions options;
    options.onWarning = [&](const std::string& text) { warnings.push_back(text); };
    const RunReport report = bench.Run(options);
    EXPECT_THAT(level.noted, testing::EndsWith("a95 a99 a100 a100 a100 a100 "));
    EXPECT_THAT(warnings,
                ElementsAre("level.level: '101' is not valid; expected a number of at most 100; the "
                            "value comes from driver.Signal, and the one before goes on"));
    EXPECT_EQ(ResultOf(report, "driving values"), 110.0);
    EXPECT_EQ(ResultOf(report, "refused values"), 9.0);
}

TEST(LiveChanges, HoldFromTheirBlockAndAreReported) {
    Bench bench;
    std::vector<std::string> told;
    TestLevel& level = bench.Add<TestLevel>("level");
    TestLevelSource& source = bench.Add<TestLevelSource>("source");
    bench.Wire("source", "level", 0);
    host::LiveChanges changes;
    changes.Add({"level", "level", "9", 4});
    changes.Add({"level", "level", "7", 2});
    changes.Add({"level", "level", "8", 2});
    changes.Add({"level", "level", "101", 3});
    changes.Add({"level", "lever", "1", 3});
    changes.Add({"source", "level", "50 %", 3});
    changes.Add({"source", "level", "3"});
    changes.Add({"source", "level", "5", 6});
    host::RunOptions options;
    options.changes = &changes;
    options.onWarning = [&](const std::string& text) { told.push_back(text); };
    options.onState = [&](const std::string& instance, const std::string& state) {
        if (state.find('=') != state.npos) told.push_back(instance + " " + state);
    };
    const RunReport report = bench.Run(options);
    EXPECT_EQ(level.noted, "a-1 a8 a8 a9 a9 ");
    EXPECT_EQ(source.noted, "3 3 0 0 0 ");
    EXPECT_THAT(told, ElementsAre("source level=3 from block 1 on", "level level=7 from block 2 on",
                                  "level level=8 from block 2 on", "source level=50 % from block 3 on",
                                  "level.level: '101' is not valid; expected a number of at most 100",
                                  "level.lever: there is no such parameter; did you mean 'level'?",
                                  "level level=9 from block 4 on",
                                  "source.level=5 had no effect: the run ended before its block"));
    EXPECT_EQ(host::WriteChanges(report.changes),
              "# BLOCK INSTANCE.PARAMETER=VALUE\n1 source.level=3\n2 level.level=7\n2 level.level=8\n"
              "3 source.level=50 %\n4 level.level=9\n");
    EXPECT_EQ(changes.TakeOutcomes().size(), 7U);
    EXPECT_FALSE(changes.IsAny());
}

TEST(LiveChanges, AFileOfThemIsReadWithEveryMistake) {
    host::Mistakes mistakes;
    const std::vector<host::LiveChange> read = host::ParseChanges(
        "c", "# a\n\n 12\ta.b = 2 kHz \r\n1 a.b=\" x\\n\"\n0 a.b=1\n3 a=1\n4 .b=1\n5a.b=1\n6 a.b.c=d=e\n",
        mistakes);
    ASSERT_EQ(read.size(), 3U);
    EXPECT_EQ(read[0].value, "2 kHz");
    EXPECT_EQ(read[1].value, " x\n");
    EXPECT_EQ(read[2].parameter + "|" + read[2].value, "b.c|d=e");
    EXPECT_EQ(host::ParseChanges("c", host::WriteChanges(read), mistakes)[1].value, " x\n");
    std::string lines;
    for (const host::Mistake& mistake : mistakes.InOrder()) lines += std::to_string(mistake.place.line) + " ";
    EXPECT_EQ(lines, "5 6 7 8 ");
}

// A source that has as many blocks as somebody gave it.
class LiveSource final : public TCBaseModuleEx {
 public:
    explicit LiveSource(int instance) : TCBaseModuleEx(instance, {}) {
        DeclareSource();
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
    }
    const char* GetModuleId() const override { return "LiveSource"; }
    const char* GetDescription() const override { return "Waits"; }
    void* GetWaitHandle(const char*& what) override {
        what = "the moon";
        return event.GetHandle();
    }
    void Give(int blocks, bool last) {
        given += blocks;
        ends = last;
        event.Set();
    }
    int Fetch() override {
        ++asked;
        if (!ended && (made < given || IsInterrupted())) return 0;
        if (!ended) event.Reset();
        return ended ? TCBaseModuleEx::Fetch() : 1;
    }
    int Execute() override {
        TCTypeInfo info;
        info.SetSamplerate(10.0);
        if (made == lostBefore) {
            AddGap(4096, 1.6e12 + 43203210.0);
            AddGap(4, 1.6e12 + 43204210.0);
        }
        const bool first = made == 0 || made == lostBefore;
        ended = IsInterrupted() || (ends && made + 1 == given);
        info.SetState(tc::BlockState(first, ended || made + 1 == lostBefore));
        info.SetTimestamp(1.6e12 + 100.0 * made++);
        portHelper->SetTypeInfo(0, info);
        if (ended) portHelper->SetReadyFlag(false);
        return portHelper->WriteDblVal(0, 1.0);
    }

    int asked = 0;
    int made = 0;
    int lostBefore = -1;  // the block

 private:
    tc::Event event;
    int given = 0;
    bool ends = false;
    bool ended = false;
};

// A live source alone before a sink; what happens once it was told what the run waits for.
RunReport RunLive(const std::function<void(LiveSource&, host::Interruption&)>& onWait,
                  host::RunLimit limit = {}, int lostBefore = -1) {
    Bench bench;
    auto& live = bench.Add<LiveSource>("live");
    live.lostBefore = lostBefore;
    bench.Add<TestJoin>("sum");
    bench.Wire("live", "sum");
    HandMovedClock clock;
    host::Interruption interruption;
    host::RunOptions options;
    options.clock = &clock;
    options.interruption = &interruption;
    options.limit = limit;
    std::vector<std::string> waits;
    options.onWait = [&](const std::string& instance, const std::string& what) {
        waits.push_back(instance + " " + what);
        onWait(live, interruption);
    };
    RunReport report = bench.Run(options);
    EXPECT_THAT(waits, ElementsAre("live the moon")) << "once";
    EXPECT_LT(live.asked, 3 * live.made + 10) << "it is not asked over and over";
    return report;
}

TEST(Runner, WaitsForASourceThatHasNothingNow) {
    const RunReport report = RunLive([](LiveSource& live, auto&) { live.Give(5, true); });
    EXPECT_EQ(report.verdict, Verdict::Complete) << report.explanation;
    EXPECT_EQ(ResultOf(report, "sum"), 5.0);
    EXPECT_EQ(ResultOf(report, "stopped"), 1.0);
    EXPECT_DOUBLE_EQ(report.seconds, 1.5) << "of waiting";
}

TEST(Runner, AnInterruptEndsTheWaitForASource) {
    const RunReport report = RunLive([](LiveSource& live, host::Interruption& interruption) {
        live.Give(2, false);
        interruption.Raise();
    });
    EXPECT_EQ(report.verdict, Verdict::Interrupted);
    EXPECT_EQ(ResultOf(report, "stopped"), 1.0);
}

TEST(Runner, ASourceThatGivesNothingEndsWithTheTimeOfTheRun) {
    const RunReport report = RunLive([](auto&, auto&) {}, {.milliseconds = 10000.0});
    EXPECT_EQ(report.verdict, Verdict::Complete) << report.explanation;
    EXPECT_EQ(ResultOf(report, "stopped"), 1.0);
    EXPECT_DOUBLE_EQ(report.seconds, 10.0);
}

// The clock alone ends it a second late, for samples come after their time.
TEST(Runner, ALiveSourceEndsWithExactlyItsTime) {
    RunReport report =
        RunLive([](LiveSource& live, auto&) { live.Give(30, false); }, {.milliseconds = 2000.0});
    EXPECT_EQ(ResultOf(report, "sum"), 20.0);
    EXPECT_DOUBLE_EQ(report.seconds, 1.5);
    report = RunLive([](LiveSource& live, auto&) { live.Give(5, false); }, {.milliseconds = 2000.0});
    EXPECT_EQ(ResultOf(report, "sum"), 6.0) << "and the one in which it ends its signal";
    EXPECT_EQ(ResultOf(report, "stopped"), 1.0);
    EXPECT_DOUBLE_EQ(report.seconds, 3.0);
}

TEST(Runner, GapsAreCountedAndTheRunIsNotComplete) {
    const RunReport report = RunLive([](LiveSource& live, auto&) { live.Give(5, true); }, {}, 3);
    EXPECT_EQ(report.verdict, Verdict::Gaps);
    EXPECT_EQ(report.explanation, "live: 2 gaps, 4,100 samples, the first at 00:26:43.21");
    EXPECT_EQ(ResultOf(report, "stopped"), 2.0);
    EXPECT_THAT(host::WriteTable(report), HasSubstr("lost samples          4100"));
    EXPECT_THAT(host::WriteJson(report, ""), HasSubstr(R"("samples": 4100)"));
}

TEST(Runner, LimitsEndEverySourceAlike) {
    const struct {
        const char* text;
        double made;
        double sum;  // of the values: block k holds k
        int burst = 1;
    } rows[] = {{"24s", 6, 60},          {"25 s", 7, 66},      {"0.5min", 8, 98},  {"40 samples", 10, 180},
                {"41 samples", 11, 190}, {"1signal", 12, 264}, {"1 sample", 1, 0}, {"5 samples", 5, 1, 5},
                {"8.5s", 5, 6, 5},       {"1 h", 12, 264}};
    for (const auto& row : rows) {
        Bench bench;
        bench.Add<TestSource>("source", "blocks=12\nburst=" + std::to_string(row.burst));  // of 4 s
        bench.Add<TestJoin>("sum");
        bench.Add<TestJoin>("same");
        bench.Wire("source", "sum");
        bench.Wire("source", "same");
        host::RunOptions options;
        std::string error;
        ASSERT_TRUE(host::RunLimit::Read(row.text, options.limit, error)) << error;
        const RunReport report = bench.Run(options);
        EXPECT_EQ(report.verdict, Verdict::Complete) << report.explanation;
        EXPECT_EQ(ResultOf(report, "made"), row.made) << row.text;
        EXPECT_EQ(ResultOf(report, "sum"), row.sum) << row.text;
        EXPECT_EQ(ResultOf(report, "stopped"), 1.0) << row.text;
    }
    for (const char* const wrong : {"", "0s", "-1s", "3 V", "1.5 samples", "samples", "3 signal s", "inf"}) {
        host::RunLimit limit;
        std::string error;
        EXPECT_FALSE(host::RunLimit::Read(wrong, limit, error)) << wrong;
        EXPECT_THAT(error, HasSubstr("10s or 2min")) << wrong;
    }
}

}  // namespace
