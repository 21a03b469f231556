// What do the time, its text and a log line cost beside what the C library and the system take for them?
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "sigweave/platform/OwnedFolder.h"
#include "sigweave/services/SystemTime.h"
#include "sigweave/services/TCFormatTime.h"
#include "sigweave/services/TCLogFile.h"

namespace {

void BM_TimeLog_SystemTime(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TCSystemTime());
}
void BM_TimeLog_ClockGettime(benchmark::State& state) {
    for (auto _ : state) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        benchmark::DoNotOptimize(now);
    }
}

// Both convert a new second each time.
constexpr double FIRST_SECOND = 1'700'000'000;

void FormatSeconds(benchmark::State& state, const char* format) {
    double second = FIRST_SECOND;
    char text[64];
    for (auto _ : state) {
        second += 1;
        benchmark::DoNotOptimize(TCFormatTime::FormatTime(text, sizeof text, format, second * 1000, 0));
    }
}
// `format` calls strftime, whose format the compiler wants to see.
template <class Format>
void StrftimeSeconds(benchmark::State& state, Format format) {
    double second = FIRST_SECOND;
    char text[64];
    for (auto _ : state) {
        second += 1;
        const auto time = static_cast<time_t>(second);
        tm calendar;
        localtime_r(&time, &calendar);
        benchmark::DoNotOptimize(format(text, sizeof text, calendar));
    }
}

void BM_TimeLog_FormatTime(benchmark::State& state) {
    FormatSeconds(state, "%yyyy-%MM-%dd %hh:%mm:%ss");
}
void BM_TimeLog_Strftime(benchmark::State& state) {
    StrftimeSeconds(state, [](char* text, std::size_t size, const tm& calendar) {
        return std::strftime(text, size, "%Y-%m-%d %H:%M:%S", &calendar);
    });
}
void BM_TimeLog_FormatNames(benchmark::State& state) {
    FormatSeconds(state, "%dEn %d %MonEn %yyyy, week %WoY %isoWoY");
}
void BM_TimeLog_StrftimeNames(benchmark::State& state) {
    StrftimeSeconds(state, [](char* text, std::size_t size, const tm& calendar) {
        return std::strftime(text, size, "%a %d %B %Y, week %U %V", &calendar);
    });
}

constexpr int LINES = 50'000;

// In a folder that this process made, and that goes with it; in memory, where the system has such a place.
std::string LogName() {
    static const std::unique_ptr<tc::OwnedFolder> folder = [] {
        const std::filesystem::path memory = "/dev/shm";
        std::error_code failed;
        return tc::OwnedFolder::MakeTemporary("bench-time_log-", failed,
                                              std::filesystem::exists(memory) ? memory : "");
    }();
    if (folder == nullptr) std::abort();
    return (folder->Path() / "log").string();
}

void WriteLines(TCLogFile& log, int lines) {
    for (int i = 0; i < lines; ++i)
        log.Log(1, TCLogFile::NOTICE, "Recorder",
                "measuring channel %d took block %d of %d samples at %.3f s", i & 7, i, 1024, i * 0.001);
}

void LogFrom(benchmark::State& state, int threads) {
    const std::string name = LogName();
    for (auto _ : state) {
        TCLogFile log;
        if (!log.Open(1, 0x7F, name.c_str(), false, false, 0)) state.SkipWithError("no log");
        std::vector<std::thread> writers;
        for (int i = 1; i < threads; ++i) writers.emplace_back([&] { WriteLines(log, LINES / threads); });
        WriteLines(log, LINES / threads);
        for (std::thread& writer : writers) writer.join();
    }
    state.SetItemsProcessed(state.iterations() * LINES);
    std::filesystem::remove(name);
}

void BM_TimeLog_Line(benchmark::State& state) {
    LogFrom(state, 1);
}
void BM_TimeLog_LineOfFourThreads(benchmark::State& state) {
    LogFrom(state, 4);
}

void BM_TimeLog_BareWrite(benchmark::State& state) {
    const std::string name = LogName();
    const std::string line =
        "2026-11-21 01:02:03.123456, 12345, Logging, Notice   , Recorder, measuring channel 3 took block "
        "12345 of 1024 "
        "samples at 12.345 s\r\n";
    for (auto _ : state) {
        const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        for (int i = 0; i < LINES; ++i)
            if (write(file, line.data(), line.size()) < 0) std::abort();
        close(file);
    }
    state.SetItemsProcessed(state.iterations() * LINES);
    std::filesystem::remove(name);
}

void BM_TimeLog_FilteredOut(benchmark::State& state) {
    TCLogFile log;
    log.Open(1, TCLogFile::ERROR, LogName().c_str(), false, false, 0);
    int i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(log.Log(1, TCLogFile::DATA, "Recorder", "block %d", ++i));
    log.Close();
    std::filesystem::remove(LogName());
}

BENCHMARK(BM_TimeLog_SystemTime);
BENCHMARK(BM_TimeLog_ClockGettime);
BENCHMARK(BM_TimeLog_FormatTime);
BENCHMARK(BM_TimeLog_Strftime);
BENCHMARK(BM_TimeLog_FormatNames);
BENCHMARK(BM_TimeLog_StrftimeNames);
BENCHMARK(BM_TimeLog_Line)->UseRealTime();
BENCHMARK(BM_TimeLog_LineOfFourThreads)->UseRealTime();
BENCHMARK(BM_TimeLog_BareWrite)->UseRealTime();
BENCHMARK(BM_TimeLog_FilteredOut);

}  // namespace
