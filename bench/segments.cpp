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

// Channels of a bus, found by the names of their signals. The first of them is not written any more.
void BM_Channels(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    Names signals, names;
    for (int i = 0; i < count; ++i) {
        signals.push_back("channel " + std::to_string(1000 + i));
        names.emplace_back(
            TCBusSerializeHelper::GenSegmentName(0x20, "", 1, i, signals.back().c_str(), "check"));
    }
    TCIOStream writer, input;
    writer.AddOutputStream(input.SetInputStream(3));
    double sum = 0;
    const auto pass = [&](std::size_t first) {
        const int one = 1;
        const double value = 1.5;
        writer.StartWriteSegments();
        for (std::size_t i = first; i < names.size(); ++i)
            writer.WriteBusSegment(names[i].c_str(), TCIOStream::DOUBLE, 1, &one, &value, true, nullptr);
        writer.EndWriteSegments();
        input.StartReadSegments();
        for (std::size_t i = first; i < names.size(); ++i)
            sum += *input.ReadBusSegment(input.FindBusSegment(signals[i].c_str(), -1), nullptr)->GetDoubles();
    };
    pass(0);  // the first block makes the segments
    for (auto _ : state) {
        pass(1);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * (count - 1));
}
BENCHMARK(BM_Channels)->Arg(64)->Arg(1024);

}  // namespace
