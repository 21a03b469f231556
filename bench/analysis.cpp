// What do analyses cost as modules, blocks of 4096 samples, metadata and queues included, beside SciPy on one
// array, and beside libsoxr called alone? 20 million samples of noise, or as many as SIGWEAVE_BENCH_SAMPLES
// says. SciPy runs in a process of its own, bench/analysis_scipy.py, which measures itself without its start.
#include <benchmark/benchmark.h>
#include <soxr.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "tests/support/ModuleBench.h"

namespace {

constexpr int BLOCK = 4096;
constexpr double RATE = 48000.0;

const std::vector<double>& Noise() {
    static const std::vector<double> noise = [] {
        const char* const wanted = std::getenv("SIGWEAVE_BENCH_SAMPLES");
        std::vector<double> values(wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : 20000000);
        std::mt19937_64 random(1);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        for (double& value : values) value = uniform(random);
        return values;
    }();
    return noise;
}

void RunModule(benchmark::State& state, const char* library, const char* id, const char* settings) {
    const std::vector<double>& noise = Noise();
    ModuleBench bench(library, id);
    bench.WireInputs({ModuleBench::TIME_DOMAIN});
    bench.WireOutput(0);
    TCTypeInfo ti;
    ti.SetSamplerate(RATE);
    for (auto _ : state) {
        if (!bench.Set(settings) || !bench.Start()) return state.SkipWithError(bench.Error().c_str());
        for (std::size_t at = 0; at < noise.size(); at += BLOCK) {
            const auto count = static_cast<int>(std::min<std::size_t>(BLOCK, noise.size() - at));
            const bool last = at + BLOCK >= noise.size();
            ti.SetState(at == 0 ? (last ? COMPLETE : START) : last ? STOP : BUSY);
            bench.Input(0).SetTI(&ti, false);
            bench.Input(0).WriteDblVec(noise.data() + at, count);
            while (bench.Module().Fetch() == 0) {
                if (bench.Module().Execute() < 0) return state.SkipWithError("the module failed");
                while (bench.Stream(0).RemoveContents(false) > 0) continue;
            }
        }
        bench.Finish();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(noise.size()));
}

void RunSciPy(benchmark::State& state, const char* work) {
    const std::string command = "/usr/bin/python3 '" SIGWEAVE_BENCH_FOLDER "/analysis_scipy.py' " +
                                std::string(work) + " " + std::to_string(Noise().size()) + " 2>/dev/null";
    for (auto _ : state) {
        std::FILE* const program = popen(command.c_str(), "r");
        double seconds = 0.0;
        const bool answered = program != nullptr && std::fscanf(program, "%lf", &seconds) == 1;
        if (program != nullptr) pclose(program);
        if (!answered) return state.SkipWithError("python3 with SciPy is not there");
        state.SetIterationTime(seconds);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Noise().size()));
}

void BM_Analysis_Spectrum(benchmark::State& state) {
    RunModule(state, "spectrum", "Spectrum", "length=4096\noverlap=0.5\nscale=density");
}
void BM_Analysis_SpectrumSciPy(benchmark::State& state) {
    RunSciPy(state, "spectrum");
}

void BM_Analysis_Filter(benchmark::State& state) {
    RunModule(state, "filter", "Filter", "corner=4800\norder=4");
}
void BM_Analysis_FilterSciPy(benchmark::State& state) {
    RunSciPy(state, "filter");
}

void BM_Analysis_Thirds(benchmark::State& state) {
    RunModule(state, "octave", "Octave", "lowest=20\nhighest=20000\nscale=rms");
}
void BM_Analysis_ThirdsSciPy(benchmark::State& state) {
    RunSciPy(state, "thirds");
}

void BM_Analysis_Resample(benchmark::State& state) {
    RunModule(state, "resample", "Resample", "rate=44100");
}

void BM_Analysis_ResampleSoxr(benchmark::State& state) {
    const std::vector<double>& noise = Noise();
    std::vector<double> output(2 * BLOCK);
    for (auto _ : state) {
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
        const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
        const soxr_t converter = soxr_create(RATE, 44100.0, 1, nullptr, &io, &quality, nullptr);
        for (std::size_t at = 0; at < noise.size(); at += BLOCK) {
            std::size_t done = 0;
            soxr_process(converter, noise.data() + at, std::min<std::size_t>(BLOCK, noise.size() - at),
                         nullptr, output.data(), output.size(), &done);
            benchmark::DoNotOptimize(output.data());
        }
        soxr_delete(converter);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(noise.size()));
}

// Of a level that is never reached: what a trigger does most of the time.
void BM_Analysis_Trigger(benchmark::State& state) {
    RunModule(state, "trigger", "Trigger", "level=2\nbefore=0.01");
}

BENCHMARK(BM_Analysis_Spectrum);
BENCHMARK(BM_Analysis_SpectrumSciPy)->UseManualTime();
BENCHMARK(BM_Analysis_Filter);
BENCHMARK(BM_Analysis_FilterSciPy)->UseManualTime();
BENCHMARK(BM_Analysis_Thirds);
BENCHMARK(BM_Analysis_ThirdsSciPy)->UseManualTime();
BENCHMARK(BM_Analysis_Resample);
BENCHMARK(BM_Analysis_ResampleSoxr);
BENCHMARK(BM_Analysis_Trigger);

}  // namespace
