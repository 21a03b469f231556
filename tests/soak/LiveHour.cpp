// A long time of live input: 8 channels at 192 kHz from a sound device through a run. In simulated time, in
// which the device gives samples as the time passes, and the run now and then comes late.
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>

#include "host/Runner.h"
#include "modules/capture/AlsaDevice.h"
#include "modules/live/LiveSource.h"
#include "sigweave/module/ModuleSignals.h"
#include "tests/support/Allocations.h"
#include "tests/support/HandMovedClock.h"
#include "tests/support/OwnFolder.h"

namespace {

constexpr int CHANNELS = 8;
constexpr int RATE = 192000;
constexpr int FRAME_BYTES = 2 * CHANNELS;
constexpr double DEVICE_BUFFER = 500.0;  // ms

short SampleAt(std::int64_t frame, int channel) {
    return static_cast<short>(frame * 7 + channel * 4099);
}

// Time passes while the run waits: mostly 10 ms, now and then nearly as much as the device can hold.
class DeviceClock final : public tc::Clock {
 public:
    double Milliseconds() override { return now; }
    bool WaitUntil(double milliseconds, void*) override {
        now = std::max(now, milliseconds);
        return true;
    }
    int WaitForAny(std::span<void* const> handles, double until) override {
        const int found = tc::WaitForAnyHandle(handles, 0.0);
        if (found >= 0) return found;
        now = std::min(until, now + (++waits % 100 == 0 ? 0.9 * DEVICE_BUFFER : 10.0));
        onPassed();
        return tc::WaitForAnyHandle(handles, 0.0);
    }

    std::function<void()> onPassed;

 private:
    double now = 5e5;
    std::int64_t waits = 0;
};

// What the sound library would answer.
struct StandIn {
    DeviceClock clock;
    double began = 0.0;
    std::int64_t given = 0;
    int overruns = 0;
};
StandIn* standIn = nullptr;

long ReadFrames(void*, void* to, unsigned long frames) {
    const auto due =
        static_cast<std::int64_t>((standIn->clock.Milliseconds() - standIn->began) * RATE / 1000.0);
    const std::int64_t there = due - standIn->given;
    if (static_cast<double>(there) > DEVICE_BUFFER * RATE / 1000.0) {
        ++standIn->overruns;
        standIn->given = due;
        return -EPIPE;
    }
    if (there == 0) return -EAGAIN;
    const long count = std::min(static_cast<long>(there), static_cast<long>(frames));
    auto* samples = static_cast<short*>(to);
    for (long i = 0; i < count; ++i, ++standIn->given)
        for (int channel = 0; channel < CHANNELS; ++channel) *samples++ = SampleAt(standIn->given, channel);
    return count;
}

int Restart(void*) {
    standIn->began = standIn->clock.Milliseconds();
    return 0;
}

// As Capture, with the clock of the test in place of a thread.
class Source final : public live::LiveSource {
 public:
    explicit Source(StandIn& world) : LiveSource(0, {}), device(world) {
        Declare(*PLAN.format, std::vector<live::Channel>(CHANNELS), RATE, "standin");
        device.clock.onPassed = [this] { channels.Input().Pump(); };
    }
    const char* GetModuleId() const override { return "Source"; }
    const char* GetDescription() const override { return ""; }
    int Init() override {
        static constexpr live::PcmCalls CALLS = {ReadFrames, Restart};
        auto opened = std::make_unique<live::AlsaDevice>(PLAN, CALLS);
        std::string error;
        if (!opened->Open(error)) return Fail(tc::MODULE_FAILED, error);
        return Begin(std::move(opened), {.clock = &device.clock, .hasThread = false}, 1.7e12);
    }

 private:
    static inline const live::CapturePlan PLAN = {
        .device = "standin", .format = &live::FORMATS[2], .channels = CHANNELS, .rate = RATE};
    StandIn& device;
};

// Compares every sample and its time with what the device gave.
class Judge final : public TCBaseModuleEx {
 public:
    Judge() : TCBaseModuleEx(0, {}) { UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN"); }
    const char* GetModuleId() const override { return "Judge"; }
    const char* GetDescription() const override { return ""; }
    int Execute() override {
        for (int channel = 0; channel < CHANNELS; ++channel) {
            const auto input = static_cast<unsigned>(channel);
            if (portHelper->TakeBlock(input) <= 0) continue;
            TCTypeInfo ti;
            portHelper->GetTypeInfo(input, &ti);
            int count = 0;
            const double* const values = portHelper->AccessDblData(input, count);
            std::int64_t& frame = frames[channel];
            wrong +=
                std::fabs(ti.GetTimestamp() - 1.7e12 - 1000.0 * static_cast<double>(frame) / RATE) > 1e-3;
            for (int i = 0; i < count; ++i, ++frame) wrong += values[i] != SampleAt(frame, channel);
        }
        if (onStep) onStep(frames[0]);
        return 0;
    }

    std::int64_t frames[CHANNELS] = {};
    std::int64_t wrong = 0;
    std::function<void(std::int64_t)> onStep;
};

// KiB.
long ResidentMemory() {
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * 4;
}

TEST(LiveInput, LosesNothingOfEightChannelsAndKeepsItsMemory) {
    const char* const wanted = std::getenv("SIGWEAVE_LIVE_SECONDS");
    const std::int64_t seconds = wanted != nullptr ? std::strtoll(wanted, nullptr, 10) : 20;
    ASSERT_GE(seconds, 4);
    const std::string path = (ProgramFolder() / "asound.conf").string();
    std::ofstream(path) << "pcm.standin { type null }\n";
    setenv("ALSA_CONFIG_PATH", path.c_str(), 1);
    StandIn world;
    standIn = &world;
    Source source(world);
    Judge judge;
    judge.GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, CHANNELS);
    std::vector<host::RunLine> lines;
    for (int channel = 0; channel < CHANNELS; ++channel) {
        source.AddLine(OUTPUT, channel);
        judge.AddLine(INPUT, channel);
        lines.push_back({0, channel, 1, channel});
    }
    struct State {
        int taken = 0;  // from the heap
        long memory = 0;
    } early, late;
    const std::int64_t quarter = seconds * RATE / 4;
    judge.onStep = [&](std::int64_t frame) {
        if (late.memory == 0 && frame >= 4 * quarter - RATE) late = {allocations::Count(), ResidentMemory()};
        if (early.memory > 0 || frame < quarter) return;
        early.memory = ResidentMemory();  // which takes something from the heap itself
        early.taken = allocations::Count();
    };
    host::RunOptions options;
    options.clock = &world.clock;
    options.limit.milliseconds = 1000.0 * static_cast<double>(seconds);
    const double begin = tc::MachineClock().Milliseconds();
    const host::RunReport report =
        host::Runner({{"device", &source}, {"judge", &judge}}, lines, options).Run();
    const double took = (tc::MachineClock().Milliseconds() - begin) / 1000.0;
    EXPECT_EQ(report.verdict, host::Verdict::Complete) << report.explanation;
    for (const std::int64_t frames : judge.frames) EXPECT_EQ(frames, seconds * RATE);
    EXPECT_EQ(judge.wrong, 0);
    EXPECT_EQ(source.GetGaps().count, 0);
    EXPECT_EQ(world.overruns, 0);
    ASSERT_GT(late.memory, 0);
    EXPECT_LE(late.memory, early.memory + 256);
    EXPECT_EQ(late.taken, early.taken);
    std::printf("%lld s of %d channels at %d Hz in %.1f s; %ld KiB, then %ld KiB; taken from the heap: %d\n",
                static_cast<long long>(seconds), CHANNELS, RATE, took, early.memory, late.memory,
                late.taken - early.taken);
}

}  // namespace
