// Does a named segment, written and read in order, cost the same however many there are?
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "sigweave/signal/TCBusSerializeHelper.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

using Names = std::vector<std::string>;

Names PlainNames(int count) {
    Names names;
    for (int i = 0; i < count; ++i) names.push_back("segment " + std::to_string(1000 + i));
    return names;
}

Names BusNames(int count) {
    Names names;
    for (int i = 0; i < count; ++i)
        names.emplace_back(TCBusSerializeHelper::GenSegmentName(0x20, "", 1, i, "channel", "check"));
    return names;
}

void BM_Segments(benchmark::State& state, Names (*makeNames)(int)) {
    const Names names = makeNames(static_cast<int>(state.range(0)));
    TCIOStream writer, input;
    writer.AddOutputStream(input.SetInputStream(3));
    double value = 0;
    const auto pass = [&] {
        writer.StartWriteSegments();
        for (const std::string& name : names) writer.WriteSegment(name.c_str(), 1.5);
        writer.EndWriteSegments();
        input.StartReadSegments();
        for (const std::string& name : names) input.ReadSegment(name.c_str(), value);
    };
    pass();  // the first block makes the segments
    for (auto _ : state) {
        pass();
        benchmark::DoNotOptimize(value);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK_CAPTURE(BM_Segments, Plain, PlainNames)->Arg(4)->Arg(64)->Arg(1024);
BENCHMARK_CAPTURE(BM_Segments, Bus, BusNames)->Arg(4)->Arg(64)->Arg(1024);

}  // namespace
