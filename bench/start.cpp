// How long does the host take until it has something to say? Whole processes, from starting the program to
// its end: it opens 20 module libraries and lists them, and it checks a graph of 1000 modules. Wall time.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int MODULES = 1000;
constexpr const char* MODULE_PATH = BENCH_MODULE_FOLDER ":";  // and those that come with the program

// A signal that goes through filter after filter; the result of each is measured.
class GraphFile {
 public:
    GraphFile() {
        std::ofstream text(path);
        std::string lines;
        std::string last = "source";
        text << "[source]\nmodule=Generator\n";
        const auto line = [&](const std::string& to) { lines += last + ".Signal=" + to + ".Signal\n"; };
        for (int index = 1; index + 1 < MODULES; index += 2) {
            const std::string filter = "filter" + std::to_string(index);
            const std::string levels = "levels" + std::to_string(index);
            text << "[" << filter << "]\nmodule=Filter\ncorner=1000\n[" << levels << "]\nmodule=Statistics\n";
            line(filter);
            last = filter;
            line(levels);
        }
        text << "[levels]\nmodule=Statistics\n";
        line("levels");
        text << "[lines]\n" << lines;
    }
    ~GraphFile() { std::filesystem::remove(path); }
    GraphFile(const GraphFile&) = delete;
    GraphFile& operator=(const GraphFile&) = delete;

    const std::string& Path() const { return path; }

 private:
    std::string path =
        (std::filesystem::temp_directory_path() / ("bench-start-" + std::to_string(getpid()) + ".graph"))
            .string();
};

struct Process {
    double seconds;
    double peakMegabytes;  // of memory in use
};

// Runs the host, which is to find nothing wrong.
Process RunHost(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), SIGWEAVE_PROGRAM);
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t silence;
    posix_spawn_file_actions_init(&silence);
    posix_spawn_file_actions_addopen(&silence, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const auto begin = Clock::now();
    pid_t child = 0;
    if (posix_spawn(&child, SIGWEAVE_PROGRAM, &silence, nullptr, pointers.data(), environ) != 0) std::abort();
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child || status != 0) std::abort();
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    posix_spawn_file_actions_destroy(&silence);
    return {seconds, static_cast<double>(usage.ru_maxrss) / 1024.0};
}

void RunHosts(benchmark::State& state, const std::vector<std::string>& arguments) {
    double peak = 0.0;
    for (auto _ : state) {
        const Process process = RunHost(arguments);
        state.SetIterationTime(process.seconds);
        peak = std::max(peak, process.peakMegabytes);
    }
    state.counters["peak MB"] = peak;
}

void BM_Start_Twenty(benchmark::State& state) {
    RunHosts(state, {"modules", "--module-path", MODULE_PATH});
}
BENCHMARK(BM_Start_Twenty)->UseManualTime();

void BM_Start_CheckThousand(benchmark::State& state) {
    const GraphFile graph;
    RunHosts(state, {"check", graph.Path(), "--module-path", MODULE_PATH});
}
BENCHMARK(BM_Start_CheckThousand)->UseManualTime();

// The least that a program costs: the host prints its version.
void BM_Start_Version(benchmark::State& state) {
    RunHosts(state, {"--version"});
}
BENCHMARK(BM_Start_Version)->UseManualTime();

}  // namespace
