// What do threads bring to a graph of eight branches on one recording, and does `auto` cost anything? Whole
// runs, from joining the streams to taking them apart. Wall time: on a machine that does other work it says
// little; bench/simulate-threads reads the processor time of each thread instead.
#include <benchmark/benchmark.h>
#include <unistd.h>

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

bool RunGraph(const std::string& text, int threads) {
    host::ModuleCatalogue catalogue{{SIGWEAVE_MODULE_DIR}};
    host::HostWindow window;
    host::Mistakes mistakes;
    const host::GraphFile file = host::GraphFile::Parse("bench.graph", text, mistakes);
    const host::Graph graph(file, catalogue, window, mistakes);
    if (!mistakes.InOrder().empty()) return false;
    host::RunOptions options;
    options.threads = threads;
    return host::Runner(graph.Modules(), graph.Lines(), options).Run().verdict == host::Verdict::Complete;
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
                          1)) {}
    ~Recording() { std::filesystem::remove(path); }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    std::string Player() const { return "[play]\nmodule=Player\nfile=" + path.string() + "\n"; }
    bool IsMade() const { return isMade; }

 private:
    const std::filesystem::path path;
    const bool isMade;
};

// 0 threads is `auto`.
void BM_Threads_Branches(benchmark::State& state) {
    static const Recording recording;
    std::string text = recording.Player();
    std::string lines = "[lines]\n";
    for (int branch = 1; branch <= BRANCHES; ++branch) {
        const std::string number = std::to_string(branch);
        text += "[filter" + number + "]\nmodule=Filter\norder=8\ncorner=" + number + "000\n";
        text += "[spectrum" + number + "]\nmodule=Spectrum\n[levels" + number + "]\nmodule=Statistics\n";
        lines += "play.Signal=filter" + number + ".Signal\n";
        for (const char* end : {"spectrum", "levels"})
            lines += "filter" + number + ".Signal=" + end + number + ".Signal\n";
    }
    for (auto _ : state)
        if (!recording.IsMade() || !RunGraph(text + lines, static_cast<int>(state.range(0))))
            state.SkipWithError("not run");
}

BENCHMARK(BM_Threads_Branches)->Arg(0)->Arg(1)->Arg(2)->UseRealTime();

}  // namespace
