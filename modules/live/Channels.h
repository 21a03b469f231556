#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "modules/live/Feed.h"
#include "modules/live/SampleFormat.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/RunTime.h"

namespace live {

// How the bytes of a channel become values of a signal.
struct Channel {
    TCString name;
    double factor = 1.0;
    double offset = 0.0;
    TCSI_Unit unit = {};
    std::optional<std::pair<double, double>> range = {};  // before factor and offset; none: the format's
};

// What a module of live input does with its device, whichever it is: it declares an output for each channel
// and all of them as a bus, sends what the Feed brings in blocks that are stamped by position, and ends the
// signals where samples are missing. On the thread of the module.
class Channels {
 public:
    // Declares the ports anew.
    void Declare(TCPortHelper& ports, const SampleFormat& usedFormat, std::vector<Channel> newChannels,
                 double samplerate);
    TCForetoldSignal Foretell(int output) const;

    // Takes an open device, and begins. `start`: the time of the first sample, in milliseconds since
    // 1970-01-01 00:00 UTC; 0: the time of the run, or for a device that cannot be held back that at which it
    // came.
    void Begin(std::unique_ptr<Device> device, FeedPlan plan, double start);
    void End();

    // Since Begin.
    Feed& Input() { return *feed; }

    void* Handle() const { return feed != nullptr ? feed->Ring().Handle() : nullptr; }
    bool HasWork() const { return hasEnded || feed->Ring().HasBlock() || feed->Ring().IsOver(); }

    struct Step {
        int code = 0;
        std::string failure;  // of the device, once everything was sent
        bool isOver = false;  // the source has ended
        bool hasGap = false;
        std::int64_t lost = 0;  // samples of each channel
        double gapBegan = 0.0;  // milliseconds since 1970-01-01 00:00 UTC
    };
    // Sends a block, or finds the end. `ends`: the run is to end, so the block is the last one.
    Step Send(TCPortHelper& ports, bool ends);

    // After End: figures of the run, as results. `warnings` has a line for each remark.
    struct Figure {
        const char* quantity;
        double value;
        const char* unit;
    };
    std::vector<Figure> Figures(std::vector<std::string>& warnings) const;

 private:
    int Write(TCPortHelper& ports, const FrameRing::Taken& taken);
    double TimeOf(std::int64_t position) const;

    std::size_t FrameBytes() const { return channels.size() * static_cast<std::size_t>(format->bytes); }

    const SampleFormat* format = &FORMATS[0];
    std::vector<Channel> channels;
    std::vector<TCTypeInfo> metadata;
    double rate = 1.0;
    double givenStart = 0.0;
    double begin = 0.0;
    double initTime = 0.0;  // by the clock, when the run began
    tc::Clock* clock = nullptr;
    tc::RunTime runTime;
    std::unique_ptr<Feed> feed;
    std::vector<std::byte> bytes;
    std::vector<double> values;
    bool isFirst = true;  // of its signal
    bool hasEnded = false;
    bool hasGaps = false;
    std::int64_t sent = 0;
    std::int64_t next = 0;  // position
};

}  // namespace live
