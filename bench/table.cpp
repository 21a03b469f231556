// What does it cost to read a table of numbers as a module, blocks of 4096 samples, metadata and queues
// included, beside the C reader of pandas? Two million rows of a time and two values, or as many as
// SIGWEAVE_BENCH_ROWS says. pandas runs in a process of its own, bench/table_pandas.py, which measures itself
// without its start.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>

#include "sigweave/platform/OwnedFolder.h"
#include "tests/support/ModuleBench.h"

namespace {

std::int64_t Rows() {
    const char* const wanted = std::getenv("SIGWEAVE_BENCH_ROWS");
    return wanted != nullptr ? std::strtoll(wanted, nullptr, 10) : 2000000;
}

// Taken away when the program ends.
const std::filesystem::path& Folder() {
    static std::error_code failed;
    static const std::unique_ptr<tc::OwnedFolder> folder =
        tc::OwnedFolder::MakeTemporary("sigweave-bench-", failed);
    return folder->Path();
}

// The path of a table whose values have that printf format; written once.
std::string Table(const std::string& name, const char* format) {
    const std::string path = (Folder() / (name + ".csv")).string();
    if (std::ifstream(path).good()) return path;
    std::ofstream file(path, std::ios::binary);
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> uniform(-10.0, 10.0);
    file << "time,a,b\n";
    for (std::int64_t row = 0; row < Rows(); ++row) {
        char text[128];
        int length = std::snprintf(text, sizeof text, "%.6f", static_cast<double>(row) / 1e4);
        for (int value = 0; value < 2; ++value) {
            text[length++] = ',';
            length += std::snprintf(text + length, 40, format, uniform(random));
        }
        text[length++] = '\n';
        file.write(text, length);
    }
    return path;
}

void ReadModule(benchmark::State& state, const char* name, const char* format) {
    const std::string path = Table(name, format);
    ModuleBench bench("table-file", "TableFile");
    if (!bench.Set("block=4096\nfile=" + path)) return state.SkipWithError(bench.Error().c_str());
    bench.WireOutput(0);
    bench.WireOutput(1);
    for (auto _ : state) {
        if (!bench.Start()) return state.SkipWithError(bench.Error().c_str());
        std::int64_t rows = 0;
        while (bench.Module().Fetch() == 0) {
            if (bench.Module().Execute() < 0) return state.SkipWithError("the module failed");
            rows += bench.Stream(0).GetBlockLen(0, 0);
            for (int output = 0; output < 2; ++output)
                while (bench.Stream(output).RemoveContents(false) > 0) continue;
        }
        bench.Finish();
        if (rows != Rows()) return state.SkipWithError("rows are missing");
    }
    state.SetItemsProcessed(state.iterations() * Rows());
}

void ReadPandas(benchmark::State& state, const char* name, const char* format) {
    const std::string command = "/usr/bin/python3 '" SIGWEAVE_BENCH_FOLDER "/table_pandas.py' " +
                                Table(name, format) + " 2>/dev/null";
    for (auto _ : state) {
        std::FILE* const program = popen(command.c_str(), "r");
        double seconds = 0.0;
        const bool answered = program != nullptr && std::fscanf(program, "%lf", &seconds) == 1;
        if (program != nullptr) pclose(program);
        if (!answered) return state.SkipWithError("python3 with pandas is not there");
        state.SetIterationTime(seconds);
    }
    state.SetItemsProcessed(state.iterations() * Rows());
}

void BM_Table_Short(benchmark::State& state) {
    ReadModule(state, "short", "%.5f");
}
void BM_Table_ShortPandas(benchmark::State& state) {
    ReadPandas(state, "short", "%.5f");
}
void BM_Table_Full(benchmark::State& state) {
    ReadModule(state, "full", "%.17g");
}
void BM_Table_FullPandas(benchmark::State& state) {
    ReadPandas(state, "full", "%.17g");
}

BENCHMARK(BM_Table_Short);
BENCHMARK(BM_Table_ShortPandas)->UseManualTime();
BENCHMARK(BM_Table_Full);
BENCHMARK(BM_Table_FullPandas)->UseManualTime();

}  // namespace
