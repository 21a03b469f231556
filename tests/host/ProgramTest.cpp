// The built program as a user meets it: real graphs, real module libraries, output and exit code.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/host/ProgramBench.h"
#include "tests/support/OwnFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* GOOD =
    "[a]\nmodule=TestSource\n[p]\nmodule=TestPass\n[s]\nmodule=TestJoin\n"
    "[lines]\na.Signal=p.Signal\np.Signal 1=s.Signal 1\n";

TEST_F(Program, RunsAGraphAndPrintsATableAndAVerdict) {
    const Answer answer = RunGraph(GOOD, "--set a.blocks=3 --set a.size=1000");
    EXPECT_EQ(answer.code, 0);
    EXPECT_THAT(answer.err, IsEmpty());
    EXPECT_THAT(answer.out, testing::ContainsRegex("^instance  signal  quantity +value  unit\n"));
    EXPECT_THAT(answer.out, testing::ContainsRegex("\ns +caf\xE9 +sum +3000\n"));
    EXPECT_THAT(answer.out, HasSubstr("\ncomplete: test.graph, 3000 s of signal in "));
}

TEST_F(Program, JsonReportIsOneExactDocumentOnStandardOutput) {
    const Answer answer = RunGraph(GOOD, "--report json");
    EXPECT_EQ(answer.code, 0);
    EXPECT_THAT(answer.err, HasSubstr("complete: test.graph"));
    const auto document = nlohmann::ordered_json::parse(answer.out);
    std::vector<std::string> keys;
    for (const auto& [key, value] : document.items()) keys.push_back(key);
    EXPECT_THAT(keys, testing::ElementsAre("graph", "verdict", "reason", "seconds", "warnings", "messages",
                                           "messages_left_out", "mistakes", "modules", "lines", "changes"));
    EXPECT_EQ(document["verdict"], "complete");
    EXPECT_EQ(document["lines"][1].dump(),
              R"({"from":"p.Signal","to":"s.Signal","blocks":10,"deepest_queue":1})");
    const auto& join = document["modules"][2];
    EXPECT_EQ(join["module"], "TestJoin");
    EXPECT_EQ(join["blocks_in"], 10);
    EXPECT_EQ(join["blocks_out"], 0);
    EXPECT_EQ(join["results"][0].dump(),
              "{\"signal\":\"caf\xEF\xBF\xBD\",\"quantity\":\"sum\",\"value\":180.0,\"unit\":\"\"}");
    EXPECT_TRUE(join["results"][2]["value"].is_null());
    EXPECT_EQ(join["results"][3]["value"].get<double>(), 1.0 / 3.0);
}

TEST_F(Program, CtrlCDrainsAndASecondOneEndsAtOnce) {
    const Answer drained = RunGraph(GOOD, "--set a.blocks=0 --set a.interrupt_at=1000 --report json");
    EXPECT_EQ(drained.code, 130);
    const auto document = nlohmann::json::parse(drained.out);
    EXPECT_EQ(document["verdict"], "interrupted");
    // Blocks 0 to 1000 were made before the interrupt was seen, and one more to end the signal.
    EXPECT_EQ(document["modules"][0]["blocks_out"], 1002);
    EXPECT_EQ(document["modules"][2]["blocks_in"], 1002);
    EXPECT_EQ(document["modules"][2]["results"][1]["value"], 1.0);  // the signal was ended with STOP
    const Answer killed = RunGraph(GOOD, "--set a.blocks=0 --set a.interrupt_at=1000 --set a.interrupts=2");
    EXPECT_EQ(killed.code, 130);  // the shell's code for a program that SIGINT ended
    EXPECT_THAT(killed.out, IsEmpty());
}

TEST_F(Program, FailedAndStalledRunsExitWithOne) {
    const Answer failed = RunGraph(GOOD, "--set p.fail_at=2");
    EXPECT_EQ(failed.code, 1);
    EXPECT_THAT(failed.out, HasSubstr("failed: test.graph, "));
    EXPECT_THAT(failed.out, HasSubstr("p (Test pass) failed while running: the wire is broken"));
    const Answer stalled = RunGraph(GOOD, "--set p.hoard_from=2 --report json");
    EXPECT_EQ(stalled.code, 1);
    EXPECT_EQ(nlohmann::json::parse(stalled.out)["verdict"], "stalled");
    const Answer full = Run("run test.graph", TEST_LIBRARIES "/good", "/dev/full");
    EXPECT_EQ(full.code, 1);
    EXPECT_THAT(full.err, HasSubstr("standard output cannot be written"));
}

TEST_F(Program, ATerminalThatGoesAwayDrainsTheRun) {
    const Answer answer = RunGraph(GOOD, "--set a.blocks=0 --set a.interrupt_at=1000 --set a.signal=1");
    EXPECT_EQ(answer.code, 130);
    EXPECT_THAT(answer.out, HasSubstr("interrupted: test.graph"));
}

// A wait for a file that gives nothing: what is run, the message that names who is waiting for what, and the
// one after Ctrl-C. The pipe has a writer that writes nothing where `held` says so.
struct WaitRow {
    const char* name;
    const char* graph;
    const char* command;
    const char* wait;
    const char* end;
    bool held;
};

void PrintTo(const WaitRow& row, std::ostream* out) {
    *out << row.name;
}

class ProgramWaits : public Program, public testing::WithParamInterface<WaitRow> {};

TEST_P(ProgramWaits, IsToldAndEnds) {
    const WaitRow& row = GetParam();
    Write("test.graph", row.graph);
    const std::string script =
        "set -m; mkfifo pipe; " + std::string(row.held ? "exec 3<>pipe; " : "") + "'" SIGWEAVE_PROGRAM "' " +
        row.command +
        " >out 2>err & n=0; until grep -q waits err || [ \\$n -ge 1000 ]; do sleep 0.02; n=\\$((n+1)); done; "
        "kill -INT %1; wait %1; echo \\$? >code";
    const std::string command = "cd '" + folder.string() + "' && " + locale +
                                " SIGWEAVE_MODULE_PATH='" TEST_LIBRARIES "/good:" SIGWEAVE_MODULE_DIR
                                "' bash -c \"" +
                                script + "\" 2>shell";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(ReadAll(folder / "code"), "130\n");
    EXPECT_THAT(ReadAll(folder / "err"), HasSubstr(row.wait));
    EXPECT_THAT(ReadAll(folder / "err") + ReadAll(folder / "out"), HasSubstr(row.end));
}

constexpr const char* SOUND = "[v]\nmodule=SoundFile\nfile=pipe\n";
constexpr const char* RECORDING = "[v]\nmodule=XmlPlayer\nfile=pipe\n";
constexpr const char* LIVE =
    "[v]\nmodule=RawInput\nfrom=file\nfile=pipe\n[s]\nmodule=TestJoin\n[lines]\nv.Channel 1=s.Signal\n";
constexpr const char* READER =
    "[v]\nmodule=TestReader\nfile=pipe\n[s]\nmodule=TestJoin\n[lines]\nv.Signal=s.Signal\n";

INSTANTIATE_TEST_SUITE_P(
    Files, ProgramWaits,
    testing::Values(WaitRow{"Graph", "", "check pipe", "sigweave waits for 'pipe'", "", false},
                    WaitRow{"SoundFile", SOUND, "run test.graph", "v waits for 'pipe'", "", false},
                    WaitRow{"Recording", RECORDING, "run test.graph", "v waits for 'pipe'", "", true},
                    WaitRow{"LiveSource", LIVE, "run test.graph", "v waits for 'pipe'",
                            "interrupted: test.graph", false},
                    WaitRow{"OpeningInARun", READER, "run test.graph", "v waits for 'pipe'",
                            "interrupted: test.graph", false},
                    WaitRow{"ReadingInARun", READER, "run test.graph", "v waits for 'pipe'",
                            "does not come back from waiting", true}),
    [](const auto& row) { return std::string(row.param.name); });

// The host cannot see what goes to an output without a line.
TEST_F(Program, UnwiredOutputsChangeNothing) {
    Write("test.graph",
          "[a]\nmodule=Generator\nblock=65536\nstart=2026-01-01\n"
          "[b]\nmodule=Generator\nduration=0.5\nstart=2026-01-01\n[align]\nmodule=Align\n"
          "[cut]\nmodule=Reblock\nsize=16\n[s]\nmodule=Statistics\n[lines]\na.Signal=align.Signal 1\n"
          "b.Signal=align.Signal 2\na.Signal=cut.Signal 1\nb.Signal=cut.Signal 2\ncut.Signal 2=s.Signal\n");
    const Answer answer = Run("run test.graph --report json", SIGWEAVE_MODULE_DIR);
    EXPECT_EQ(answer.code, 0) << answer.err;
    const auto document = nlohmann::json::parse(answer.out);
    std::vector<double> figures;
    for (const auto& result : document["modules"][2]["results"]) figures.push_back(result["value"]);
    EXPECT_THAT(figures, testing::ElementsAre(24000, 24000, 0, 24000, 0, 0)) << "passed, dropped, padded";
    EXPECT_EQ(document["modules"][4]["results"][0]["value"], 24000);
}

TEST_F(Program, LogsMessagesErrorsAndStates) {
    const Answer failed =
        RunGraph(GOOD, "--set p.fail_at=5 --set p.talk_at=2 --log run_%yyyy.log --log-level data");
    EXPECT_EQ(failed.code, 1);
    EXPECT_THAT(failed.err, Not(HasSubstr("40 degrees"))) << "for the log alone";
    std::string log;
    for (const auto& file : fs::directory_iterator(folder))
        if (file.path().filename().string().starts_with("run_20")) log = ReadAll(file.path());
    for (const char* line :
         {"State , Notice   , a, started\r\n", "Module, Warning  , p (Test pass), the wire<\\n>is hot\r\n",
          "Module, Data     , p (Test pass), 40 degrees\r\n",
          "Host  , Error    , sigweave, p (Test pass) failed while running: the wire is broken\r\n",
          "State , Notice   , s, finished\r\n", "State , Notice   , run, failed: test.graph, "})
        EXPECT_THAT(log, HasSubstr(line));
    EXPECT_TRUE(log.ends_with("TCLogFile::Close\r\n"));
}

TEST_F(Program, LogsWhatIsAsSeriousAsWanted) {
    EXPECT_EQ(RunGraph(GOOD, "--set a.blocks=many --log run.log --log-level error").code, 2);
    EXPECT_THAT(
        ReadAll(folder / "run.log"),
        testing::MatchesRegex("[^\n]*Host  , Error    , sigweave, [^\n]*'many' is not valid[^\n]*\n"));
    fs::create_directory(folder / "logs");
    EXPECT_EQ(RunGraph(GOOD, "--set p.talk_at=1 --log logs/ --log-level data --log-split 1").code, 0);
    const auto files = std::distance(fs::directory_iterator(folder / "logs"), fs::directory_iterator());
    EXPECT_GE(files, 2) << "split";
}

TEST_F(Program, TellsWhenThereCanBeNoLog) {
    for (const std::string name : {"missing/run.log", "test.graph/", "."}) {
        const Answer refused = RunGraph(GOOD, "--log " + name);
        EXPECT_EQ(refused.code, 2);
        EXPECT_THAT(refused.err, HasSubstr("error: the log '" + name + "' cannot be written: "));
        EXPECT_THAT(refused.out, IsEmpty());
    }
    const Answer full = RunGraph(GOOD, "--log /dev/full");
    EXPECT_EQ(full.code, 0);
    EXPECT_THAT(full.err, HasSubstr("the log is incomplete"));
    EXPECT_THAT(RunGraph(GOOD, "--log ./test.graph").err,
                HasSubstr("--log ./test.graph: the log writes './test.graph', which the host reads too"));
    EXPECT_EQ(RunGraph(GOOD, "--log-level notice").code, 2);
    EXPECT_EQ(RunGraph(GOOD, "--log x.log --log-split 2097152").code, 2);
}

TEST_F(Program, RunsOnSeveralThreads) {
    const std::string graph =
        "[noise]\nmodule=Generator\nform=noise\nduration=3\nrate=8000\nblock=100\nstart=2026-01-01\n"
        "[low]\nmodule=Filter\norder=8\ncorner=99\n[levels]\nmodule=Statistics\n"
        "[table]\nmodule=CsvWriter\nfile=/dev/stdout\n"
        "[lines]\nnoise.Signal=low.Signal\nlow.Signal=levels.Signal\nnoise.Signal=table.Signal\n";
    Write("test.graph", graph);
    const auto run = [&](const std::string& threads) {
        return Run("run test.graph --threads " + threads, SIGWEAVE_MODULE_DIR, "table");
    };
    // The last line has the time that the run took.
    const auto told = [](const Answer& answer) {
        return answer.err.substr(0, answer.err.find(" of signal"));
    };
    const Answer one = run("1");
    EXPECT_EQ(one.code, 0);
    const std::string table = ReadAll(folder / "table");
    EXPECT_GT(table.size(), 100000U);
    for (const char* threads : {"2", "auto"}) {
        const Answer several = run(threads);
        EXPECT_EQ(several.code, 0);
        EXPECT_EQ(ReadAll(folder / "table"), table);
        EXPECT_THAT(told(several), testing::EndsWith(told(one)));
    }
    EXPECT_THAT(run("2").err, HasSubstr("note: threads: 1: noise"));
    EXPECT_THAT(Run("run test.graph --threads 2 --set table.file=/dev/null --set table.overwrite=yes",
                    SIGWEAVE_MODULE_DIR)
                    .err,
                HasSubstr("note: noise.Signal=table.Signal stays on one thread: table runs with the "
                          "sources: it may wait for a file"));
}

TEST_F(Program, PacesSourcesInRealTime) {
    const std::string two =
        std::string("[b]\nmodule=TestSource\nblocks=2\nsize=30\nrate=200\n[t]\nmodule=TestJoin\n") + GOOD +
        "b.Signal=t.Signal 1\n";
    const Answer answer = RunGraph(two, "--set a.blocks=6 --set a.rate=400 --realtime --report json");
    EXPECT_EQ(answer.code, 0);
    const auto document = nlohmann::json::parse(answer.out);
    EXPECT_GE(document["seconds"], 0.15);
    for (const auto& module : document["modules"]) {
        if (module["module"] != "TestSource") continue;
        const auto& results = module["results"];
        EXPECT_EQ(results[0]["quantity"], "intervals");
        EXPECT_EQ(results[0]["value"], module["instance"] == "a" ? 5 : 1);
        const double sum = results[0]["value"].get<double>() * results[1]["value"].get<double>();
        EXPECT_GE(sum, module["instance"] == "a" ? 50 : 150) << "from the first block on";
        EXPECT_GE(results[2]["value"], results[1]["value"]);
        EXPECT_EQ(results[3]["unit"], "ms");
    }
    EXPECT_THAT(RunGraph(GOOD, "--set a.blocks=3 --set a.rate=1000 --realtime").out,
                testing::ContainsRegex("\na +real time +intervals +2\n"));
}

TEST_F(Program, CheckTellsEveryMistakeAtItsPlace) {
    Write("bad.graph",
          "[a]\nmodule=TestSorce\n[b]\n[c]\nmodule=TestSource\nblocks=many\nblock=1\n"
          "[d]\nmodule=TestSource\n[e]\nmodule=TestPass\n[f]\nmodule=TestJoin\n[g]\nmodule=TestPass\n[h]"
          "\nmodule=TestPass\n"
          "[i]\nmodule=TestJoin\n[j]\nmodule=TestSource\nkind=SWORD[]\n[k]\nmodule=TestSource\nmeaning=FREQ_"
          "DOMAIN\n[d]\n"
          "[lines]\nd.Signl=f.Signal 1\ng.Signal=h.Signal\nh.Signal=g.Signal\nd.Signal=f.Signal "
          "1\nd.Signal=f.Signal 1\n"
          "d.Signal=d.Signal\nx.Signal=f.Signal 1\nj.Signal=f.Signal 3\nk.Signal=f.Signal 4\n");
    const Answer answer = Run("check bad.graph --set z.blocks=1 --set c.size=-1");
    EXPECT_EQ(answer.code, 2);
    EXPECT_THAT(answer.out, IsEmpty());
    for (const char* told :
         {"bad.graph:2: there is no module 'TestSorce'; did you mean 'TestSource'?",
          "bad.graph:3: the instance 'b' does not say which module",
          "bad.graph:6: c.blocks: 'many' is not valid; expected an integer from 0 to",
          "bad.graph:7: c.block: there is no such parameter; did you mean 'blocks'",
          "bad.graph:10: the input 'e.Signal' must be wired", "bad.graph:18: nothing is wired to 'i'",
          "bad.graph:26: the instance 'd' is there already, in line 8",
          "bad.graph:28: 'd' has no output 'Signl'; did you mean 'Signal'?",
          "the lines form a cycle: g -> h -> g",
          "bad.graph:32: the input 'f.Signal 1' is wired already, in line 31",
          "bad.graph:33: the line leads from 'd' to itself", "bad.graph:34: there is no instance 'x'",
          "bad.graph:35: j.Signal=f.Signal 3: the input takes data of another type",
          "bad.graph:36: k.Signal=f.Signal 4: the input expects data of another meaning",
          "--set z.blocks=1: the graph has no instance 'z'",
          "--set c.size=-1: c.size: '-1' is not valid; expected an integer from 1"})
        EXPECT_THAT(answer.err, HasSubstr(told));
    EXPECT_THAT(RunGraph("[a]\nmodule=TestSource\n[p]\nmodule=TestPass\n[lines]\na.Signal=p.Sgnal\n", "").err,
                AllOf(HasSubstr("did you mean 'Signal'"), HasSubstr("1 mistake;")));
}

TEST_F(Program, TypesAreCheckedAndADifferentMeaningIsAQuestion) {
    const std::string graph =
        "[a]\nmodule=TestSource\n[p]\nmodule=TestPass\n[s]\nmodule=TestJoin\n[lines]\na.Signal=p.Signal\np."
        "Signal=s.Signal\n";
    const Answer type = RunGraph(graph, "--set 'a.kind=SWORD[]'");
    EXPECT_EQ(type.code, 2);
    EXPECT_THAT(type.err, HasSubstr("test.graph:9: p.Signal=s.Signal: the input takes data of another type"));
    const Answer meaning = RunGraph(graph, "--set a.meaning=FREQ_DOMAIN");
    EXPECT_EQ(meaning.code, 2);
    EXPECT_THAT(meaning.err,
                AllOf(HasSubstr("test.graph:9:"), HasSubstr("'TIME_DOMAIN'"), HasSubstr("'FREQ_DOMAIN'"),
                      HasSubstr("write accept=yes in the section [lines]")));
    EXPECT_EQ(RunGraph(graph + "accept=yes\n", "--set a.meaning=FREQ_DOMAIN").code, 0);
}

TEST_F(Program, TellsNoMoreThanAThousandMistakes) {
    std::string graph = "[a]\nmodule=TestSource\n[lines]\n";
    for (int line = 0; line < 1003; ++line) graph += "a.x=b.y\n";
    Write("many.graph", graph);
    const Answer answer = Run("check many.graph");
    EXPECT_EQ(std::ranges::count(answer.err, '\n'), 1002);
    EXPECT_THAT(answer.err, HasSubstr("many.graph:1003: "));
    EXPECT_THAT(answer.err, Not(HasSubstr("many.graph:1004: ")));
    EXPECT_THAT(answer.err, HasSubstr("\n... and 3 more\n1003 mistakes; nothing of many.graph was run\n"));
}

TEST_F(Program, BadGraphsAndArgumentsExitWithTwo) {
    Write("empty.graph", "");
    Write("binary.graph", std::string("\x7F"
                                      "ELF\0\0",
                                      6));
    Write("huge.graph", std::string(50 << 20, 'x'));
    Write("utf16.graph", std::string("\xFF\xFE[\0a\0", 6));
    Write("nolines.graph", "[a]\nmodule=TestSource\n");
    Write("noinstances.graph", "[lines]\n");
    const std::pair<const char*, const char*> rows[] = {
        {"run missing.graph", "missing.graph: there is no such file"},
        {"run .", "is a folder"},
        {"run empty.graph", "is empty"},
        {"check binary.graph", "is a binary file"},
        {"run huge.graph", "larger than 16 MB"},
        {"run nolines.graph", "has no lines"},
        {"check noinstances.graph", "names no modules"},
        {"run", "GRAPH is required"},
        {"", "Usage: sigweave"},
        {"run nolines.graph --report xml", "--report: 'xml' is not allowed; allowed are text,json\n"},
        {"run a --report text --report json", "--report may be given once only"},
        {"run a --realtime=7", "--realtime takes no value"},
        {"run a --log ''", "--log: a file name is missing"},
        {"run a --place ''", "--place: the name of a place is missing"},
        {"run a --reportfile x",
         "run has no option --reportfile; did you mean '--report-file' or '--report'?\n"},
        {"preset list --jason", "list has no option --jason; known are --help, --module-path\n"},
        {"check utf16.graph", "is in UTF-16; save it in UTF-8"},
        {"check-module .", "; name the library in that folder, as build/LowPass.so\n"},
        {"run a --threads 0", "--threads: '0' is no number of threads; allowed are 1 to 256 and auto"},
        {"run a --threads 2x --language de", "'2x' ist keine Anzahl von Threads"},
        {"run --language de", "GRAPH fehlt\nWeitere Informationen gibt --help"},
        {"run a b --language de", "'b' wurde nicht erwartet\n"},
        {"run a --log b --log-split -1 --language de", "'-1' ist nicht erlaubt; erlaubt sind 0 bis 2097151"},
        {"modul", "there is no command 'modul'; did you mean 'modules'?"},
        {"modules TestSorce", "did you mean 'TestSource'?"}};
    for (const auto& [arguments, told] : rows) {
        const Answer answer = Run(arguments);
        EXPECT_EQ(answer.code, 2) << arguments;
        EXPECT_THAT(answer.err, HasSubstr(told));
        EXPECT_THAT(answer.out, IsEmpty());
    }
}

TEST_F(Program, ConvertsAGraphThereAndBackAndRunsEither) {
    Write("test.graph", std::string("# about a\n") + GOOD);
    ASSERT_EQ(Run("convert test.graph test.txt").code, 0);
    const Answer xml = Run("run test.txt --set a.size=1000");
    EXPECT_EQ(xml.code, 0) << xml.err;
    EXPECT_THAT(xml.out, testing::ContainsRegex("\ns +caf\xE9 +sum +45000\n"));
    ASSERT_EQ(Run("convert test.txt again.graph").code, 0);
    EXPECT_EQ(ReadAll(folder / "again.graph"),
              "# about a\n[a]\nmodule=TestSource\n\n[p]\nmodule=TestPass\n\n[s]\nmodule=TestJoin\n\n"
              "[lines]\na.Signal=p.Signal\np.Signal 1=s.Signal 1\n");
}

TEST_F(Program, AConversionThatFailsLeavesTheOldFile) {
    Write("old", "precious");
    Write("old.part", "precious, too");
    Write("name.xml", "<Graph><Module name=\"a\" kind=\"M\"><Setting name=\"b=c\"/></Module></Graph>");
    Write("cut.xml", "<Graph>\n<Module name=");
    const std::tuple<const char*, int, const char*> rows[] = {
        {"convert name.xml old", 1, "the setting 'b=c' of a cannot be said in parameter text"},
        {"convert cut.xml old", 2, "cut.xml:2: The XML source could not be parsed"},
        {"convert missing old", 2, "there is no such file"},
        {"convert name.xml missing/old", 1,
         "missing/old cannot be written: No such file or directory; name another place"},
        {"convert name.xml .", 1, "is not an ordinary file"}};
    for (const auto& [arguments, code, told] : rows) {
        const Answer answer = Run(arguments);
        EXPECT_EQ(answer.code, code) << arguments;
        EXPECT_THAT(answer.err, HasSubstr(told));
    }
    EXPECT_EQ(ReadAll(folder / "old"), "precious");
    EXPECT_EQ(ReadAll(folder / "old.part"), "precious, too");
    const auto isPart = [](const fs::directory_entry& file) { return file.path().extension() == ".part"; };
    EXPECT_EQ(std::ranges::count_if(fs::directory_iterator(folder), fs::directory_iterator(), isPart), 1);
}

TEST_F(Program, DiffAnswersByItsExitCode) {
    Write("a.xml", "<Stream/>");
    Write("b.xml", "<Stream>\n</Stream>");
    Write("c.xml", "<Stream><Block/></Stream>");
    EXPECT_EQ(Run("diff a.xml b.xml").out, "a.xml and b.xml are equal\n");
    const Answer different = Run("diff a.xml c.xml");
    EXPECT_EQ(different.code, 1);
    EXPECT_THAT(different.out, HasSubstr("a.xml and c.xml differ: "));
    const Answer unreadable = Run("diff a.xml missing.xml");
    EXPECT_EQ(unreadable.code, 2);
    EXPECT_THAT(unreadable.err, HasSubstr("error: missing.xml cannot be read: "));
}

TEST_F(Program, ListsModulesAndShowsOne) {
    EXPECT_THAT(Run("modules").out, AllOf(HasSubstr("TestPass    Hands blocks on  " TEST_LIBRARIES "/good/"),
                                          HasSubstr("TestSource")));
    const Answer source = Run("modules TestSource");
    EXPECT_EQ(source.code, 0);
    EXPECT_THAT(source.out, AllOf(HasSubstr("Signal  TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}"),
                                  HasSubstr("blocks"), HasSubstr("an integer from 0 to 1000000000")));
    EXPECT_THAT(Run("modules TestPass").out, HasSubstr("Signal  (the type of its line)"));
    EXPECT_THAT(Run("modules TestJoin").out, HasSubstr("as many as are wired"));
    EXPECT_THAT(Run("--version").out, HasSubstr("sigweave 0."));
    EXPECT_THAT(Run("--help").out, AllOf(HasSubstr("[lines]"), HasSubstr("Exit codes")));
    EXPECT_EQ(Run("help run").out, Run("run --help").out);
}

TEST_F(Program, BrokenLibrariesAreToldAndLeaveTheOthersAlone) {
    Write("text.so", "not a library\n");
    for (const auto& library : fs::directory_iterator(TEST_LIBRARIES "/good"))
        Write("cut.so", ReadAll(library.path()).substr(0, 5000));
    const std::string path = TEST_LIBRARIES "/good:" TEST_LIBRARIES "/broken:.:missing";
    Write("test.graph", "[a]\nmodule=TestSource\n[s]\nmodule=TestJoin\n[lines]\na.Signal=s.Signal\n");
    const Answer good = Run("run test.graph", path);
    EXPECT_EQ(good.code, 0) << "the graph needs none of the broken ones";
    for (const char* told : {"text.so: cannot be loaded (", "cut.so: cannot be loaded (file too short)",
                             "NoEntryPoints.so: does not export TCModuleLibrary_GetCount",
                             "NewerVersion.so: needs interface version 900, and this program provides 802",
                             "OlderVersion.so: was built with older headers: it provides interface version "
                             "800, and this program needs 802",
                             "UnresolvedSymbol.so: cannot be loaded (undefined symbol: NowhereDefined)",
                             "missing: the module path names this folder"})
        EXPECT_THAT(good.err, HasSubstr(told));
    EXPECT_THAT(good.err,
                testing::ContainsRegex(
                    "the module id 'TestPass' is offered by .*/good/.* and by .*/broken/DuplicateId.so"));
    const Answer needed =
        Run("check test.graph --set a.blocks=1 --module-path " TEST_LIBRARIES "/broken", path);
    EXPECT_EQ(needed.code, 2);
    EXPECT_THAT(needed.err, HasSubstr("there is no module 'TestSource'"));
    Write("test.graph", "[p]\nmodule=TestPass\n");
    EXPECT_THAT(Run("check test.graph", path).err,
                HasSubstr("test.graph:2: the module id 'TestPass' is offered by"));
    EXPECT_EQ(Run("modules", path).code, 1);
}

TEST_F(Program, MakesFoldersForARunAndNotForACheck) {
    setenv("XDG_CONFIG_HOME", (folder / "config").c_str(), 1);
    Write("test.graph",
          std::string("[a]\nmodule=TestSource\nfile=%CSIDL_APPDATA|CSIDL_FLAG_CREATE%/x.wav\n") +
              std::string(GOOD).substr(std::strlen("[a]\nmodule=TestSource\n")));
    EXPECT_EQ(Run("check test.graph").code, 0);
    EXPECT_FALSE(fs::exists(folder / "config"));
    EXPECT_EQ(Run("run test.graph").code, 0);
    EXPECT_TRUE(fs::exists(folder / "config"));
    unsetenv("XDG_CONFIG_HOME");
}

// An escape character and the C1 control character CSI, alone and in UTF-8.
TEST_F(Program, WhatCouldCommandATerminalDoesNotReachIt) {
    const std::string hostile =
        "x\x1B]0;y\x07 \x9B"
        "2J \xC2\x9B"
        "2J \xC3\xA4\xE4";
    const std::string shown = "x\\u001b]0;y\\u0007 \\u009b2J \\u009b2J \xC3\xA4\xE4";
    EXPECT_THAT(
        Run("check test.graph --set \"a.$(printf 'x\\033]0;y\\007 \\2332J \\302\\2332J \\303\\244\\344')=1\"")
            .err,
        HasSubstr(shown));
    Write("test.graph", GOOD);
    setenv("HOSTILE", hostile.c_str(), 1);
    const Answer piped = Run("run test.graph --set \"a.file=$HOSTILE\"");
    EXPECT_THAT(piped.out, HasSubstr(hostile)) << "is no terminal";
    const std::string command = "cd '" + folder.string() +
                                "' && LC_ALL=C SIGWEAVE_MODULE_PATH='" TEST_LIBRARIES
                                "/good' script -qec '\"" SIGWEAVE_PROGRAM
                                "\" run test.graph --set \"a.file=$HOSTILE\"' /dev/null </dev/null >terminal";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_THAT(ReadAll(folder / "terminal"), AllOf(HasSubstr(shown), Not(HasSubstr(hostile))));
}

TEST_F(Program, AValueWithAZeroByteIsRefused) {
    const std::string zero("\"x\\0y\"");
    const Answer answer = RunGraph(std::string("[a]\nmodule=TestSource\nmeaning=") + zero +
                                   std::string(GOOD).substr(std::strlen("[a]\nmodule=TestSource")));
    EXPECT_EQ(answer.code, 2) << answer.err;
    EXPECT_THAT(answer.err, HasSubstr("test.graph:3: a.meaning: a value cannot hold a zero byte"));
}

TEST_F(Program, FilesAreRelativeToTheGraphUnlessGivenAsArgument) {
    fs::create_directory(folder / "sub");
    Write(
        "sub/test.graph",
        "[a]\nmodule=TestSource\nfile=x.wav\n[s]\nmodule=TestJoin\nlog=x.wav\n[lines]\na.Signal=s.Signal\n");
    EXPECT_THAT(Run("check sub/test.graph").err, HasSubstr("s writes 'sub/x.wav', which a reads too"));
    EXPECT_THAT(Run("run sub/test.graph --set s.log=x.wav").out, HasSubstr("a         sub/x.wav"));
    EXPECT_THAT(Run("run sub/test.graph --set a.file=y.wav").out,
                AllOf(HasSubstr("a         y.wav"), Not(HasSubstr("sub/y"))));
    const Answer clash = Run("check sub/test.graph --set s.log=sub/../sub/x.wav");
    EXPECT_EQ(clash.code, 2);
    EXPECT_THAT(clash.err,
                HasSubstr("--set s.log=sub/../sub/x.wav: s writes 'sub/../sub/x.wav', which a reads too"));
    EXPECT_THAT(Run("check sub/test.graph --set s.log=sub/test.graph").err,
                HasSubstr("which the host reads"));
}

TEST_F(Program, FilesTakeFolderTokensAndEnvironmentVariables) {
    setenv("TAKES", "a\\%TAKE%", 1);
    setenv("TAKE", "1", 1);
    fs::create_directory(folder / "sub");
    Write(
        "sub/test.graph",
        "[a]\nmodule=TestSource\nfile=%TAKES%\\x 5%.wav\n[s]\nmodule=TestJoin\n[lines]\na.Signal=s.Signal\n");
    EXPECT_THAT(Run("run sub/test.graph").out, HasSubstr("a         sub/a/1/x 5%.wav"));
    EXPECT_THAT(Run("run sub/test.graph --set a.file=%CSIDL_WINDOWS%/%TAKE%.wav").out,
                HasSubstr("a         /usr/1.wav"));
    EXPECT_THAT(Run("check sub/test.graph --set s.log=%TAKE%.wav --set a.file=1.wav").err,
                HasSubstr("s writes '1.wav', which a reads too"));
    const Answer unknown = Run("check sub/test.graph --set s.log=%CSIDL_PRINTERS%/%NO_SUCH%/x");
    EXPECT_EQ(unknown.code, 2);
    EXPECT_THAT(unknown.err, AllOf(HasSubstr("s.log: '%CSIDL_PRINTERS%' is no folder"),
                                   HasSubstr("s.log: '%NO_SUCH%' is no folder")));
}

// The program on two hives of its own.
class ProfileProgram : public Program {
 protected:
    void SetUp() override {
        Program::SetUp();
        setenv("SIGWEAVE_USER_HIVE", (folder / "hives/user.db").c_str(), 1);
        setenv("SIGWEAVE_MACHINE_HIVE", (folder / "machine.db").c_str(), 1);
    }
    void Expect(const std::string& arguments, int code, const std::string& out, const std::string& err = "") {
        const Answer answer = Run("profile " + arguments);
        EXPECT_EQ(answer.code, code) << arguments;
        EXPECT_EQ(answer.out, out) << arguments;
        EXPECT_THAT(answer.err, err.empty() ? testing::Matcher<std::string>(IsEmpty()) : HasSubstr(err))
            << arguments;
    }
};

TEST_F(ProfileProgram, KeepsTypedValuesInTwoHives) {
    Expect("list", 0, "");
    EXPECT_FALSE(fs::exists(folder / "hives"));
    Expect("set Plot width -5", 0, "");
    Expect("set Plot title 'a \"b\"\n'", 0, "");
    Expect("set 'Plot\\Axis' digits 12 --type text", 0, "");
    Expect("set Plot width 2147483648 --machine", 0, "");
    Expect("list", 0, "[Plot]\ntitle=\"a \\\"b\\\"\\n\"\nwidth=-5\n\n[Plot\\Axis]\ndigits=\"12\"\n");
    Expect("list --machine plot", 0, "[Plot]\nwidth=\"2147483648\"\n");
    Expect("get PLOT WIDTH", 0, "-5\n");
    Expect("get Plot title", 0, "a \"b\"\n\n");
    Expect("delete plot width", 0, "");
    Expect("delete plot title", 0, "");
    Expect("list Plot", 0, "[Plot]\n");
    Expect("get Plot width --machine", 0, "2147483648\n");
}

TEST_F(ProfileProgram, TellsWhatIsWrong) {
    Expect("set Plot width 5", 0, "");
    Expect("get Plot widht", 1, "",
           "section 'Plot' of the user's profile has no entry 'widht'; did you mean 'width'?");
    Expect("delete Plt width", 1, "", "the user's profile has no section 'Plt'; did you mean 'Plot'?");
    Expect("list Plot --machine", 1, "", "the machine's profile has no section 'Plot'; there are none");
    Expect("set Plot width 2147483648 --type integer", 2, "", "'2147483648' is no integer from -2147483648");
    Expect("set Plot width 5 --type float", 2, "", "--type: 'float' is not allowed; allowed are");
    Expect("gte Plot width", 2, "", "there is no command 'gte'; did you mean 'get'");
    Expect("set Plot", 2, "", "ENTRY is required");
    Write("machine.db", "this is no profile, and it is longer than the header of one would be");
    for (const char* action : {"list", "get Plot width", "set Plot width 6", "delete Plot width"})
        Expect(action + std::string(" --machine"), 1, "", "the machine's profile cannot be read: '");
    setenv("SIGWEAVE_MACHINE_HIVE", "/proc/no/machine.db", 1);
    Expect("set Plot width 5 --machine", 1, "", "cannot be written: '/proc/no/machine.db'");
    Expect("get Plot width", 0, "5\n");
}

// What the user's language changes, and what it does not.

// A report without the time that the run took, and without the text for people.
std::string ForPrograms(const std::string& json) {
    auto document = nlohmann::ordered_json::parse(json);
    document.erase("seconds");
    document.erase("reason");
    return document.dump();
}

TEST_F(Program, ChecksInGermanWithTheSameExitCodes) {
    Write("good.graph", GOOD);
    Write("bad.graph",
          "[a]\nmodule=TestSorce\n[b]\nmodule=TestSource\nblocks=many\n[c]\nmodule=TestPass\n"
          "[lines]\nb.Signl=c.Signal\n");
    const Answer good = Run("check good.graph --language de");
    EXPECT_EQ(good.code, 0);
    EXPECT_EQ(good.out, "good.graph: keine Fehler; Module: 3, Verbindungen: 2\n");
    const Answer bad = Run("--language=de check bad.graph");
    EXPECT_EQ(bad.code, 2);
    EXPECT_THAT(bad.out, IsEmpty());
    for (const char* told : {"bad.graph:2: es gibt kein Modul 'TestSorce'; meinten Sie 'TestSource'?",
                             "bad.graph:5: b.blocks: 'many' ist nicht gültig; erwartet wird eine "
                             "ganze Zahl von 0 bis",
                             "bad.graph:9: 'b' hat keinen Ausgang 'Signl'; meinten Sie 'Signal'?\n",
                             "3 Fehler; von bad.graph wurde nichts ausgeführt\n"})
        EXPECT_THAT(bad.err, HasSubstr(told));
}

TEST_F(Program, DescribesModulesInGerman) {
    EXPECT_THAT(Run("modules TestSource --language de").out,
                AllOf(HasSubstr("\nEingänge:\n  (keine)\nAusgänge:\n"), HasSubstr("\nParameter:\n  Name"),
                      HasSubstr("eine ganze Zahl von 0 bis 1000000000")));
    EXPECT_THAT(Run("modules --language de").out, testing::StartsWith("Kennung"));
}

TEST_F(Program, RunsInGermanWithTheSameReportAndFiles) {
    const Answer table = RunGraph(GOOD, "--language de");
    EXPECT_THAT(table.out, testing::StartsWith("Instanz  Signal  Größe"));
    EXPECT_THAT(table.out, HasSubstr("\nvollständig: test.graph, 40 s Signal in "));
    const std::tuple<const char*, int, const char*> rows[] = {
        {"", 0, "vollständig: test.graph, 40 s Signal in "},
        {"--set p.fail_at=2", 1, "; p (Test pass) schlug im Lauf fehl: the wire is broken\n"},
        {"--set p.hoard_from=2", 1, "steckengeblieben: test.graph, "}};
    for (const auto& [arguments, code, told] : rows) {
        const Answer english = RunGraph(GOOD, std::string("--report json ") + arguments);
        const Answer german = RunGraph(GOOD, std::string("--language de --report json ") + arguments);
        EXPECT_EQ(english.code, code);
        EXPECT_EQ(german.code, code);
        EXPECT_EQ(ForPrograms(german.out), ForPrograms(english.out));
        EXPECT_THAT(german.err, HasSubstr(told));
    }
    EXPECT_EQ(Run("convert test.graph english.xml").code, 0);
    EXPECT_EQ(Run("convert test.graph german.xml --language de").out,
              "german.xml: test.graph als XML-Dokument\n");
    EXPECT_EQ(ReadAll(folder / "german.xml"), ReadAll(folder / "english.xml"));
}

TEST_F(ProfileProgram, TakesTheLanguageOfTheOptionElseOfTheProfileElseOfTheLocale) {
    const auto expect = [this](const std::string& arguments, const char* told) {
        EXPECT_THAT(Run("profile get No entry " + arguments).err, HasSubstr(told)) << arguments << locale;
    };
    constexpr const char* ENGLISH = "the user's profile has no section 'No'";
    constexpr const char* GERMAN = "das Profil des Benutzers hat keinen Abschnitt 'No'";
    expect("", ENGLISH);
    locale = "LC_ALL= LC_MESSAGES= LANG=de_AT.UTF-8";
    expect("", GERMAN);
    locale = "LC_ALL= LC_MESSAGES=en_GB.UTF-8 LANG=de_DE.UTF-8";
    expect("", ENGLISH);
    Expect("set Host Language de --machine", 0, "");
    expect("", GERMAN);
    Expect("set Host Language en", 0, "");
    expect("", ENGLISH);
    expect("--language de", GERMAN);
    expect("--language de --language=en", ENGLISH);
}

TEST_F(ProfileProgram, TellsAnUnknownLanguage) {
    for (const char* option : {"--language fr", "--language", "--language="}) {
        const Answer refused = Run(std::string("profile list ") + option);
        EXPECT_EQ(refused.code, 2);
        EXPECT_THAT(refused.err, HasSubstr("error: --language: there is no language '"));
        EXPECT_THAT(refused.out, IsEmpty());
    }
    Expect("set Host Language fr", 0, "");
    Expect("get Host Language", 0, "fr\n", "warning: the user's profile has the unknown language 'fr'");
}

TEST_F(Program, WritesAModuleOnceAndUnderAGoodName) {
    const std::tuple<const char*, int, const char*> rows[] = {
        {"LowPass --folder 'a b/c'", 0, ""},
        {"LowPass --folder 'a b/c'", 2, "a b/c is there already; nothing was written"},
        {"2nd", 2, "'2nd' cannot be a module's name"},
        {"a-b --language de", 2, "'a-b' kann kein Modul heißen"},
        {"while", 2, "'while' means something else"},
        {"samples", 2, "'samples' means something else"},
        {"Statistics", 2, "there is a module 'Statistics' already, in /"},
        {"LowPass --folder /proc/x/y", 1, "the folder /proc/x/y cannot be made: "}};
    for (const auto& [arguments, code, told] : rows) {
        const Answer answer = Run(std::string("new-module ") + arguments);
        EXPECT_EQ(answer.code, code) << arguments;
        EXPECT_THAT(answer.err, HasSubstr(told));
    }
    EXPECT_THAT(ReadAll(folder / "a b/c/LowPass.cpp"), HasSubstr("\nTC_MODULE_LIBRARY(LowPass);\n"));
    EXPECT_THAT(Run("new-module Gain").out,
                HasSubstr("\n  cmake -S Gain -B Gain/build -DCMAKE_PREFIX_PATH="));
}

TEST_F(Program, WhatDoesNotFitTogetherIsToldWhereItWasSet) {
    Write("test.graph",
          "[a]\nmodule=TestSource\nblocks=3\n[s]\nmodule=TestJoin\n[lines]\na.Signal=s.Signal\n");
    EXPECT_THAT(Run("check test.graph --set a.size=999").err,
                AllOf(HasSubstr("--set a.size=999: a.size: 999 is odd\n"),
                      HasSubstr("test.graph:3: a.blocks: too many\n"),
                      HasSubstr("test.graph:1: a: nobody likes it\n")));
}

}  // namespace
