#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "tests/host/engine/NatsServer.h"
#include "tests/host/engine/RestlessProxy.h"

// Runs of one graph in several places, each a process of its own, compared with the run in one.
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;

// Three places, of which the last gets signals from both others.
constexpr const char* GRAPH = R"([sweep]
module=Generator
form=sweep
frequency=100
end_frequency=5000
duration=12
rate=16000
unit=V
start=2026-03-01T12:00:00Z
place=a
[noise]
module=Generator
form=noise
duration=8
rate=16000
start=2026-03-01T12:00:00Z
place=a
[band]
module=Filter
type=bandpass
order=6
corner=1000
upper_corner=2000
place=b
[levels]
module=Statistics
place=b
[record]
module=XmlRecorder
file=record-{n}.xml
overwrite=yes
place=c
[table]
module=CsvWriter
file=table.csv
overwrite=yes
place=c
[lines]
sweep.Signal=band.Signal
band.Signal=levels.Signal
band.Signal=record.Signal 1
sweep.Signal=record.Signal 2
noise.Signal=record.Signal 3
band.Signal=table.Signal 1
sweep.Signal=table.Signal 2
)";
// Sources at two of them, which meet at the last one; one of their lines fills up there.
constexpr const char* SEVERAL = R"([sweep]
module=Generator
form=sweep
frequency=100
end_frequency=5000
duration=6
rate=16000
block=4096
start=2026-03-01T12:00:00Z
place=a
[noise]
module=Generator
form=noise
duration=6
rate=16000
block=64
start=2026-03-01T12:00:01Z
place=b
[short]
module=Generator
form=noise
duration=2
rate=16000
start=2026-03-01T12:00:00Z
place=b
[band]
module=Filter
corner=1000
place=b
[other]
module=Filter
corner=2000
place=c
[pieces]
module=Reblock
size=100
place=c
[align]
module=Align
place=c
[record]
module=XmlRecorder
file=record-{n}.xml
overwrite=yes
place=c
[table]
module=CsvWriter
file=table.csv
overwrite=yes
place=c
[lines]
noise.Signal=band.Signal
band.Signal=other.Signal
sweep.Signal=pieces.Signal
pieces.Signal=align.Signal 1
other.Signal=align.Signal 2
band.Signal=record.Signal 1
sweep.Signal=record.Signal 2
short.Signal=record.Signal 3
align.Signal 1=table.Signal 1
align.Signal 2=table.Signal 2
)";
constexpr const char* ENGINE = "patience=60 s\nkeep=200 MB\n";
const std::vector<std::string> PLACES = {"a", "b", "c"};
const std::vector<std::string> FILES = {"record-1.xml", "record-2.xml", "record-3.xml", "table.csv"};

std::string ReadAll(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// The short form, or as many as SIGWEAVE_MACHINE_RUNS says.
int Runs(int few) {
    const char* const text = std::getenv("SIGWEAVE_MACHINE_RUNS");
    return text != nullptr ? std::atoi(text) : few;
}

// The program, in a folder, with what it says going to the file "said".
class Process {
 public:
    Process(const fs::path& folder, const std::string& arguments, int enginePort) {
        fs::create_directories(folder);
        const std::string command = "cd '" + folder.string() +
                                    "' && exec env LC_ALL=C SIGWEAVE_MODULE_PATH='" SIGWEAVE_MODULE_DIR
                                    "' SIGWEAVE_ENGINE=nats://127.0.0.1:" +
                                    std::to_string(enginePort) + " '" SIGWEAVE_PROGRAM "' " + arguments +
                                    " </dev/null >said 2>&1";
        const pid_t parent = getpid();
        process = fork();
        if (process != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent) execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    ~Process() { Kill(); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void Kill() {
        if (process > 0) {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
        process = 0;
    }
    // The exit code; -1 when it does not end.
    int Wait() {
        int status = 0;
        for (int wait = 0; wait < 9000; ++wait) {
            if (waitpid(process, &status, WNOHANG) == process) {
                process = 0;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
            }
            std::this_thread::sleep_for(10ms);
        }
        return -1;
    }

 private:
    pid_t process = 0;
};

class Machines : public testing::Test {
 protected:
    void SetUp() override {
        if (!NatsServer::IsThere()) GTEST_SKIP() << "there is no nats-server";
        server = std::make_unique<NatsServer>();
    }

    // A new folder with the graph for each place and one for the whole, which is run once.
    void Prepare(int number, const std::string& engine = ENGINE, const std::string& graph = GRAPH) {
        constexpr int RUNS_OF_A_SERVER = 50;  // so that its store stays small
        if (number % RUNS_OF_A_SERVER == RUNS_OF_A_SERVER - 1) server = std::make_unique<NatsServer>();
        own = MakeOwnFolder();
        for (const std::string place : {"whole", "a", "b", "c"}) {
            fs::create_directories(own->Path() / place);
            std::ofstream(own->Path() / place / "run.graph") << "[engine]\nname=run" << number << "\n"
                                                             << engine << graph;
        }
        if (wholeOf == graph || (graph != GRAPH && graph != SEVERAL)) return;
        wholeOf = graph;
        EXPECT_EQ(Process(own->Path() / "whole", "run run.graph", 1).Wait(), 0) << Said("whole");
        for (const std::string& file : FILES) whole[file] = ReadAll(own->Path() / "whole" / file);
    }

    std::unique_ptr<Process> Start(const std::string& place, int port, const std::string& more = "") {
        return std::make_unique<Process>(own->Path() / place, "run run.graph --place " + place + more, port);
    }
    // What came of a place that was started.
    int Run(const std::string& place, const std::string& more = "") {
        return Start(place, server->Port(), more)->Wait();
    }
    std::string Said(const std::string& place) { return ReadAll(own->Path() / place / "said"); }

    void ExpectWhole() {
        for (const std::string& file : FILES) {
            EXPECT_GT(whole[file].size(), 1000u) << file;
            EXPECT_TRUE(ReadAll(own->Path() / "c" / file) == whole[file]) << file;
        }
    }

    std::unique_ptr<NatsServer> server;
    std::unique_ptr<tc::OwnedFolder> own;
    std::map<std::string, std::string> whole;  // what the run in one makes
    std::string wholeOf;
};

TEST_F(Machines, MakeTheSameThroughARestlessNetwork) {
    int resets = 0;
    for (int run = 0; run < Runs(3) && !HasFailure(); ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        Prepare(run, ENGINE, run % 3 == 1 ? SEVERAL : GRAPH);
        const RestlessProxy proxy(server->Port(), static_cast<std::uint32_t>(run * 1000), 2 + run % 5);
        std::map<std::string, std::unique_ptr<Process>> running;
        for (const std::string& place : PLACES) running[place] = Start(place, proxy.Port());
        for (const std::string& place : PLACES)
            EXPECT_EQ(running[place]->Wait(), 0) << place << ": " << Said(place);
        ExpectWhole();
        resets += proxy.ResetsDone();
    }
    EXPECT_GT(resets, 0);
    RecordProperty("resets", resets);
}

// Whatever is killed is started again, while the others go on.
TEST_F(Machines, MakeTheSameWhenAPartOrTheServerIsKilled) {
    std::mt19937 random(1);
    for (int run = 0; run < Runs(4) && !HasFailure(); ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        Prepare(run, ENGINE, run % 4 == 1 || run % 4 == 2 ? SEVERAL : GRAPH);
        std::map<std::string, std::unique_ptr<Process>> running;
        for (const std::string& place : PLACES) running[place] = Start(place, server->Port());
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 400));
        const std::size_t victim = static_cast<std::size_t>(run) % 4;
        if (victim < PLACES.size()) {
            running[PLACES[victim]]->Kill();
            running[PLACES[victim]] = Start(PLACES[victim], server->Port());
        } else {
            server->Kill();
            server->Start();
        }
        for (const std::string& place : PLACES)
            EXPECT_EQ(running[place]->Wait(), 0) << place << ": " << Said(place);
        ExpectWhole();
    }
}

TEST_F(Machines, MakeTheSameWhenOnlyWhatIsRecordedIsAcknowledged) {
    const std::string recorder =
        "[recorder]\nmodule=Recorder\nfile=all.mcap\noverwrite=yes\nplace=c\n[lines]\n"
        "band.Signal=recorder.Signal 1\n";
    std::string graph = GRAPH;
    graph.replace(graph.find("[lines]\n"), 8, recorder);
    Prepare(0);
    Prepare(0, "patience=60 s\nkeep=200 MB\nacknowledge=recorded\n", graph);
    std::map<std::string, std::unique_ptr<Process>> running;
    for (const std::string& place : PLACES) running[place] = Start(place, server->Port());
    for (const std::string& place : PLACES)
        EXPECT_EQ(running[place]->Wait(), 0) << place << ": " << Said(place);
    ExpectWhole();
}

// Whatever a place says: on its console, in its report, and when it is refused.
TEST_F(Machines, PrintNoSecret) {
    server = std::make_unique<NatsServer>("--user alice --pass right-secret");
    Prepare(0, "patience=1 s\n");
    std::string said;
    for (const char* password : {"wrong-secret", "right-secret"}) {
        setenv("SIGWEAVE_ENGINE_USER", "alice", 1);
        setenv("SIGWEAVE_ENGINE_PASSWORD", password, 1);
        for (const char* command :
             {"check run.graph --place b", "run run.graph --place b --report-file r.json",
              "run run.graph --place b --report json"}) {
            Process(own->Path() / "b", command, server->Port()).Wait();
            said += Said("b");
        }
        said += ReadAll(own->Path() / "b/r.json");
    }
    unsetenv("SIGWEAVE_ENGINE_USER");
    unsetenv("SIGWEAVE_ENGINE_PASSWORD");
    EXPECT_THAT(said, AllOf(HasSubstr("refuses this user"), HasSubstr("place a is missing"),
                            testing::Not(HasSubstr("-secret"))));
}

TEST_F(Machines, BeginOneAfterTheOtherAndAgain) {
    Prepare(0);
    for (const std::string& place : PLACES) EXPECT_EQ(Run(place), 0) << Said(place);
    ExpectWhole();
    fs::remove(own->Path() / "c/table.csv");
    EXPECT_EQ(Run("c"), 0) << Said("c");
    EXPECT_EQ(Run("a"), 0) << Said("a");
    ExpectWhole();
    EXPECT_THAT(Said("a"), AllOf(HasSubstr("complete"), testing::Not(HasSubstr("levels"))));
}

TEST_F(Machines, NameWhatIsMissingBeforeAnythingIsRun) {
    Prepare(0, "patience=1 s\n");
    EXPECT_EQ(Run("c"), 1);
    EXPECT_THAT(Said("c"),
                AllOf(HasSubstr("place b is missing"), HasSubstr("'sigweave run run.graph --place b'")));
    std::ofstream(own->Path() / "b/run.graph", std::ios::app) << "noise.Signal=levels.Signal 2\n";
    EXPECT_EQ(Run("b"), 2);
    EXPECT_THAT(Said("b"), AllOf(HasSubstr("of another graph"), HasSubstr("nothing was run")));
    server->Kill();
    EXPECT_EQ(Run("a"), 2);
    EXPECT_THAT(Said("a"), AllOf(HasSubstr("has not answered for 1 s"), HasSubstr("start nats-server")));
    EXPECT_EQ(Process(own->Path() / "a", "run run.graph --place d", 1).Wait(), 2);
    EXPECT_THAT(Said("a"), HasSubstr("--place d: no instance of run.graph runs at 'd'; known are a, b, c"));
}

struct Misplaced {
    const char* what;
    const char* graph;
    const char* mistake;
};

class MisplacedGraph : public Machines, public testing::WithParamInterface<Misplaced> {};

// Each would make other steps than the graph in one.
TEST_P(MisplacedGraph, IsRefusedAtItsLine) {
    Prepare(0, "", GetParam().graph);
    EXPECT_EQ(Process(own->Path() / "whole", "check run.graph", 1).Wait(), 0) << Said("whole");
    EXPECT_EQ(Process(own->Path() / "whole", "check run.graph --place a", 1).Wait(), 2);
    EXPECT_THAT(Said("whole"), HasSubstr(GetParam().mistake));
}

INSTANTIATE_TEST_SUITE_P(
    Graphs, MisplacedGraph,
    testing::Values(
        Misplaced{"NoPlace",
                  "[n]\nmodule=Generator\nplace=a\n[l]\nmodule=Statistics\n[lines]\nn.Signal=l.Signal\n",
                  "run.graph:6: the instance 'l' does not say where it runs"},
        Misplaced{"TwoPlacesWhereSignalsMeet",
                  "[n]\nmodule=Generator\nplace=a\n[m]\nmodule=Generator\nplace=b\n[k]\nmodule=Statistics\n"
                  "place=a\n[l]\nmodule=Statistics\nplace=b\n[lines]\nn.Signal=k.Signal 1\n"
                  "m.Signal=k.Signal 2\nn.Signal=l.Signal 1\nm.Signal=l.Signal 2\n",
                  "run.graph:14: l must be at a, where signals of sources at several places come together: "
                  "signals of several sources come together in it"},
        Misplaced{"AStemThatDeclaresNothing",
                  "[n]\nmodule=Generator\nplace=a\n[m]\nmodule=Generator\nplace=b\n[r]\nmodule=Resample\n"
                  "rate=8000\nplace=b\n[l]\nmodule=Statistics\nplace=a\n[lines]\nm.Signal=r.Signal\n"
                  "n.Signal=l.Signal 1\nr.Signal=l.Signal 2\n",
                  "run.graph:12: r must be at a, where signals of sources at several places come together: "
                  "its module does not declare"},
        Misplaced{
            "AStemToAJoin",
            "[n]\nmodule=Generator\nplace=a\n[m]\nmodule=Generator\nplace=b\n[s]\nmodule=BusJoin\nplace="
            "b\n[l]\nmodule=BusSelect\nexpression=.\nsignals=1\nplace=b\n[t]\nmodule=Statistics\n"
            "place=b\n[lines]\nn.Signal=s.Signal 1\nm.Signal=s.Signal 2\ns.Bus=l.Bus\n"
            "l.Channel 1=t.Signal\n",
            "this line cannot lead to another place: s may leave its blocks waiting, unlike a Reblock "
            "between them at its place"},
        Misplaced{"BackAgain",
                  "[n]\nmodule=Generator\nplace=a\n[f]\nmodule=Reblock\nsize=64\nplace=b\n[l]\nmodule="
                  "Statistics\n"
                  "place=a\n[lines]\nn.Signal=f.Signal\nf.Signal=l.Signal\n",
                  "the places feed each other"},
        Misplaced{"AJoinOfSeveralSources",
                  "[n]\nmodule=Generator\nplace=a\n[m]\nmodule=Generator\nplace=a\n[s]\nmodule=Align\nplace="
                  "b\n[l]\n"
                  "module=Statistics\nplace=b\n[lines]\nn.Signal=s.Signal 1\nm.Signal=s.Signal 2\n"
                  "s.Signal 1=l.Signal 1\ns.Signal 2=l.Signal 2\n",
                  "run.graph:11: s must be at the place of the sources, a: what it leaves waiting decides"},
        Misplaced{"ALineToAJoin",
                  "[n]\nmodule=Generator\nplace=a\n[s]\nmodule=Align\nplace=b\n[l]\nmodule=Statistics\nplace="
                  "b\n[lines]\n"
                  "n.Signal=s.Signal 1\nn.Signal=s.Signal 2\ns.Signal 1=l.Signal 1\ns.Signal 2=l.Signal 2\n",
                  "run.graph:13: this line cannot lead to another place"}),
    [](const auto& each) { return each.param.what; });

}  // namespace
