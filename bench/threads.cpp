// What do threads bring to a graph of eight branches on one recording, and does `auto` cost anything, there
// and where threads do not pay? Only runs are measured, not the making of graphs. On a machine that does
// other work wall time says little; there are cases in processor time of all threads, and
// bench/simulate-threads reads that of each.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>

#include "host/Graph.h"
#include "host/GraphFile.h"
#include "host/HostWindow.h"
#include "host/Mistakes.h"
#include "host/ModuleCatalogue.h"
#include "host/Runner.h"

namespace {

constexpr int BRANCHES = 8;

double WallSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double ProcessorSeconds() {
    timespec spent{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &spent);
    return static_cast<double>(spent.tv_sec) + 1e-9 * static_cast<double>(spent.tv_nsec);
}

// The seconds of the run by that clock; negative: it was not complete.
double RunGraph(const std::string& text, int threads, double (*seconds)() = WallSeconds) {
    static host::ModuleCatalogue catalogue{{SIGWEAVE_MODULE_DIR}};
    host::HostWindow window;
    host::Mistakes mistakes;
    const host::GraphFile file = host::GraphFile::Parse("bench.graph", text, mistakes);
    const host::Graph graph(file, catalogue, window, mistakes);
    if (!mistakes.InOrder().empty()) return -1.0;
    host::RunOptions options;
    options.threads = threads;
    host::Runner runner(graph.Modules(), graph.Lines(), options);
    const double before = seconds();
    const bool isComplete = runner.Run().verdict == host::Verdict::Complete;
    return isComplete ? seconds() - before : -1.0;
}

// A hundred seconds of noise at 48 kHz in blocks of 4096, in a file that ends with the program.
class Recording {
 public:
    Recording()
        : path(std::filesystem::temp_directory_path() /
               ("bench-threads-" + std::to_string(getpid()) + ".mcap")),
          isMade(RunGraph("[noise]\nmodule=Generator\nform=noise\nrate=48000\nduration=100\nblock=4096\n"
                          "[take]\nmodule=Recorder\noverwrite=yes\nfile=" +
                              path.string() + "\n[lines]\nnoise.Signal=take.Signal\n",
                          1) > 0.0) {}
    ~Recording() { std::filesystem::remove(path); }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    std::string Player() const { return "[play]\nmodule=Player\nfile=" + path.string() + "\n"; }
    bool IsMade() const { return isMade; }

 private:
    const std::filesystem::path path;
    const bool isMade;
};

// 0 threads is `auto`; the second argument is 1 for processor time.
void Measure(benchmark::State& state, const std::string& text) {
    double (*const seconds)() = state.range(1) == 0 ? WallSeconds : ProcessorSeconds;
    for (auto _ : state) {
        const double spent = RunGraph(text, static_cast<int>(state.range(0)), seconds);
        if (spent < 0.0) return state.SkipWithError("not run");
        state.SetIterationTime(spent);
    }
}

std::string Branches(const std::string& source) {
    std::string text = source;
    std::string lines = "[lines]\n";
    for (int branch = 1; branch <= BRANCHES; ++branch) {
        const std::string number = std::to_string(branch);
        text += "[filter" + number + "]\nmodule=Filter\norder=8\ncorner=" + number + "000\n";
        text += "[spectrum" + number + "]\nmodule=Spectrum\n[levels" + number + "]\nmodule=Statistics\n";
        lines += "play.Signal=filter" + number + ".Signal\n";
        for (const char* end : {"spectrum", "levels"})
            lines += "filter" + number + ".Signal=" + end + number + ".Signal\n";
    }
    return text + lines;
}

std::string Signal(const char* form, const char* seconds, const char* block) {
    return std::string("[play]\nmodule=Generator\nform=") + form + "\nrate=48000\nduration=" + seconds +
           "\nblock=" + block + "\n";
}

void BM_Threads_Branches(benchmark::State& state) {
    static const Recording recording;
    if (!recording.IsMade()) return state.SkipWithError("not recorded");
    Measure(state, Branches(recording.Player()));
}

// A run of some milliseconds.
void BM_Threads_Short(benchmark::State& state) {
    Measure(state, Branches(Signal("noise", "0.25", "1024")));
}

// Modules that have next to nothing to do.
void BM_Threads_CheapChain(benchmark::State& state) {
    std::string text = Signal("noise", "60", "256");
    std::string lines = "[lines]\n";
    std::string before = "play";
    for (int stage = 1; stage <= BRANCHES; ++stage) {
        const std::string name = "delay" + std::to_string(stage);
        text += "[" + name + "]\nmodule=Delay\nby=samples\nsamples=0\n";
        lines += before + ".Signal=" + name + ".Signal\n";
        before = name;
    }
    Measure(state, text + lines);
}

// One that has nearly everything to do.
void BM_Threads_OneHeavy(benchmark::State& state) {
    Measure(state, Signal("dc", "60", "4096") +
                       "[low]\nmodule=Filter\norder=12\ncorner=100\n[high]\nmodule=Delay\nby=samples\n"
                       "samples=0\n[lines]\nplay.Signal=low.Signal\nlow.Signal=high.Signal\n");
}

BENCHMARK(BM_Threads_Branches)->ArgsProduct({{0, 1, 2}, {0, 1}})->UseManualTime();
BENCHMARK(BM_Threads_Short)->ArgsProduct({{0, 1}, {0, 1}})->UseManualTime();
BENCHMARK(BM_Threads_CheapChain)->ArgsProduct({{0, 1}, {0, 1}})->UseManualTime();
BENCHMARK(BM_Threads_OneHeavy)->ArgsProduct({{0, 1}, {0, 1}})->UseManualTime();

}  // namespace
