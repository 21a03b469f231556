// How does a chain of modules that pass a block on compare with one of GStreamer's identity elements, and one
// that copies each block? Buffers of 8 KiB are blocks of 1024 doubles. Both sides run on one thread. Wall
// time. GStreamer's begins when its elements are linked, negotiated and hold the first buffer, and ends with
// the message that the stream has ended; sigweave's is that of the whole run.
#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench/RunnerChain.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int BLOCKS = 20000;

struct Unref {
    void operator()(void* object) const { gst_object_unref(object); }
};

class PeerChain {
 public:
    PeerChain(int stages, int blockCount) : blocks(blockCount) {
        gst_init(nullptr, nullptr);
        description = "fakesrc filltype=nothing sizetype=fixed sizemax=" +
                      std::to_string(bench::VALUES * sizeof(double)) +
                      " num-buffers=" + std::to_string(blocks);
        for (int stage = 0; stage < stages; ++stage) description += " ! identity silent=true";
        description += " ! fakesink name=sink sync=false silent=true";
    }

    double SecondsOfRun() const {
        const std::unique_ptr<GstElement, Unref> graph(gst_parse_launch(description.c_str(), nullptr));
        const std::unique_ptr<GstBus, Unref> bus(gst_element_get_bus(graph.get()));
        gst_element_set_state(graph.get(), GST_STATE_PAUSED);
        gst_element_get_state(graph.get(), nullptr, nullptr, GST_CLOCK_TIME_NONE);
        const auto begin = Clock::now();
        gst_element_set_state(graph.get(), GST_STATE_PLAYING);
        constexpr auto END = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
        gst_message_unref(gst_bus_timed_pop_filtered(bus.get(), GST_CLOCK_TIME_NONE, END));
        const auto end = Clock::now();
        if (Rendered(graph.get()) != static_cast<guint64>(blocks)) std::abort();
        gst_element_set_state(graph.get(), GST_STATE_NULL);
        return std::chrono::duration<double>(end - begin).count();
    }

 private:
    static guint64 Rendered(GstElement* graph) {
        const std::unique_ptr<GstElement, Unref> sink(gst_bin_get_by_name(GST_BIN(graph), "sink"));
        GstStructure* statistics = nullptr;
        g_object_get(sink.get(), "stats", &statistics, nullptr);
        guint64 rendered = 0;
        gst_structure_get_uint64(statistics, "rendered", &rendered);
        gst_structure_free(statistics);
        return rendered;
    }

    int blocks;
    std::string description;
};

template <class Stage>
void BM_ChainGStreamer_Sigweave(benchmark::State& state) {
    bench::MeasureChain<bench::RunnerChain<Stage>>(state, BLOCKS);
}
void BM_ChainGStreamer_Peer(benchmark::State& state) {
    bench::MeasureChain<PeerChain>(state, BLOCKS);
}
using bench::Copy;
using bench::Forward;
BENCHMARK(BM_ChainGStreamer_Sigweave<Forward>)->Arg(1)->Arg(4)->Arg(16)->UseManualTime();
BENCHMARK(BM_ChainGStreamer_Sigweave<Copy>)->Arg(1)->Arg(4)->Arg(16)->UseManualTime();
BENCHMARK(BM_ChainGStreamer_Peer)->Arg(1)->Arg(4)->Arg(16)->UseManualTime();

template <class Stage>
void BM_ChainGStreamer_SigweaveAdded(benchmark::State& state) {
    bench::MeasureAddedStages<bench::RunnerChain<Stage>>(state, BLOCKS);
}
void BM_ChainGStreamer_PeerAdded(benchmark::State& state) {
    bench::MeasureAddedStages<PeerChain>(state, BLOCKS);
}
BENCHMARK(BM_ChainGStreamer_SigweaveAdded<Forward>)->UseManualTime();
BENCHMARK(BM_ChainGStreamer_SigweaveAdded<Copy>)->UseManualTime();
BENCHMARK(BM_ChainGStreamer_PeerAdded)->UseManualTime();

}  // namespace
