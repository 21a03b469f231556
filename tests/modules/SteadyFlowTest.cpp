#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/support/ModuleBench.h"

namespace {

// Blocks of one size, of a signal whose name is too long to be kept within a string.
class Flow {
 public:
    explicit Flow(ModuleBench& module) : bench(module), samples(1000) {
        for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = i % 100 < 50 ? 1.0 : -1.0;
        metadata.SetSignalname("a signal that has a long name");
        metadata.SetSamplerate(48000.0);
    }
    void Send(int blocks, TCBLOCKSTATUS state) {
        for (; blocks > 0; --blocks) {
            metadata.SetState(state);
            bench.Input(0).SetTI(&metadata, false);
            bench.Input(0).WriteDblVec(samples.data(), static_cast<int>(samples.size()));
            while (bench.Module().Fetch() == 0) {
                ASSERT_GE(bench.Module().Execute(), 0);
                while (bench.Stream(0).RemoveContents(false) > 0) ++taken;
            }
        }
    }
    int Taken() const { return taken; }

 private:
    ModuleBench& bench;
    TCTypeInfo metadata;
    std::vector<double> samples;
    int taken = 0;
};

TEST(SteadyFlow, AllocatesNothing) {
    if (!allocations::AreSeen()) GTEST_SKIP() << "allocations are not seen here";
    const struct {
        const char *library, *id, *settings;
    } rows[] = {{"weighting", "Weighting", ""},
                {"level", "Level", "interval=0.01"},
                {"octave", "Octave", "interval=0.01"},
                {"spectrogram", "Spectrogram", "length=512"},
                {"integrate", "Integrate", "highpass=1\ntimes=2"},
                {"trigger", "Trigger", "before=0.01\nafter=0.01\nhold_off=0.02"},
                {"delay", "Delay", "time=0.5"},
                {"filter", "Filter", "corner=100"},
                {"math", "Math", "expression=a*2 - sqrt(abs(a)) + where(a > 0.5, sin(a), 3)"}};
    for (const auto& row : rows) {
        ModuleBench bench(row.library, row.id);
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
        ASSERT_TRUE(bench.Set(row.settings) && bench.Start()) << row.id;
        Flow flow(bench);
        flow.Send(1, START);
        flow.Send(100, BUSY);
        const int before = allocations::Count();
        flow.Send(200, BUSY);
        EXPECT_EQ(allocations::Count(), before) << row.id;
        EXPECT_GT(flow.Taken(), 100) << row.id;
        bench.Finish();
    }
}

}  // namespace
