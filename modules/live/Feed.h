#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "modules/live/Device.h"
#include "modules/live/FrameRing.h"
#include "modules/live/Packets.h"
#include "modules/live/RateMeter.h"
#include "sigweave/platform/Clock.h"
#include "sigweave/platform/Thread.h"

namespace live {

struct FeedPlan {
    Packing packing = {};
    double rate = 1.0;           // frames a second
    std::size_t block = 1024;    // frames
    double seconds = 4.0;        // that the ring holds, up to 64 MB, and at least four blocks
    double silence = 0.0;        // ms without anything, after which one that has begun is gone; 0: none
    tc::Clock* clock = nullptr;  // null: the machine's
    bool hasThread = true;       // else somebody calls Pump
};

// Carries what a device gives into a ring, and notes what is missing. Its thread does nothing but that; a
// test does it by hand instead, with `Pump` and a clock of its own.
class Feed {
 public:
    // The device is open.
    Feed(std::unique_ptr<Device> openDevice, const FeedPlan& feedPlan);
    ~Feed();
    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;

    // Begins the thread, if it is to have one.
    void Start();
    // Ends it and closes the device; what is in the ring stays.
    void Stop();
    // Reads what is there now. False when nothing more comes.
    bool Pump();

    // Frames that came or were lost so far. On the thread that reads.
    std::int64_t Position() const { return position; }

    FrameRing& Ring() { return ring; }
    Device& Source() { return *device; }

    // --- After Stop, or once the ring is over

    // Why it ended too early; empty when it did not.
    const std::string& Failure() const { return failure; }
    // By the clock; 0 when it was too short.
    double MeasuredRate() const { return meter.Rate(); }
    const Packets& Received() const { return packets; }
    // Frames that found the ring full.
    std::int64_t Overrun() const { return overrun; }

    // When the first frame was taken by the device, by the clock, in milliseconds. Once the ring had a block.
    double Began() const { return began.load(); }

 private:
    void Run();
    bool ReadOnce();
    std::size_t ReadSize() const;
    void Accept(std::size_t bytes, std::int64_t lost, double now);
    void Put(const Packets::Piece& piece, double now);
    void Lose(std::int64_t frames);
    std::int64_t Estimate(double now, std::size_t bytes) const;
    double GoneAt() const;
    bool EndWith(const std::string& reason);

    const FeedPlan plan;
    tc::Clock& clock;
    std::unique_ptr<Device> device;
    FrameRing ring;
    Packets packets;
    RateMeter meter;
    std::vector<std::byte> buffer;
    std::int64_t position = 0;  // frames received or lost
    std::int64_t owed = 0;      // lost ones that the ring does not know yet
    std::int64_t overrun = 0;
    bool isFull = false;  // until the ring has room again
    bool over = false;
    double lastCame = 0.0;      // ms, by the clock
    double longestPiece = 0.0;  // ms, of what came at once
    std::atomic<double> began{-1.0};
    std::string failure;
    tc::Event stop;
    std::unique_ptr<tc::Thread> thread;
};

}  // namespace live
