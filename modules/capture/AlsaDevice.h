#pragma once

#include <memory>
#include <string>
#include <vector>

#include "modules/live/Device.h"
#include "modules/live/SampleFormat.h"

namespace live {

struct CapturePlan {
    std::string device = "default";
    const SampleFormat* format = &FORMATS[0];
    int channels = 1;
    unsigned rate = 48000;
};

// The few calls by which samples are taken, so that a test can make them fail. They answer as those of the
// library do: a negative value of errno, or the frames.
struct PcmCalls {
    long (*read)(void* device, void* to, unsigned long frames);
    int (*restart)(void* device);
};
// Those of the library.
const PcmCalls& AlsaCalls();

// A sound device of the machine. Nothing is resampled or converted: what the device lacks is refused, with
// what it has.
class AlsaDevice final : public Device {
 public:
    explicit AlsaDevice(const CapturePlan& capturePlan, const PcmCalls& usedCalls = AlsaCalls());
    ~AlsaDevice() override;

    // Whether it could be opened, without taking anything; it is open then. False as Open.
    bool Ask(std::string& error);
    bool Open(std::string& error) override;
    void Close() override;
    Reading Read(std::span<std::byte> into) override;
    std::string Why() const override { return why; }
    void* Handle() const override;
    std::string Name() const override { return plan.device; }
    bool CanHoldBack() const override { return false; }

 private:
    bool Fits(std::string& error);

    const CapturePlan plan;
    const PcmCalls& calls;
    void* device = nullptr;             // of the library
    unsigned long bufferFrames = 1024;  // frames that it holds
    std::string why;
    bool lostSome = false;
};

// A device that can be asked for samples.
struct CaptureFacts {
    std::string name;
    std::string text = {};  // what the system calls it
    bool isBusy = false;    // then the rest is not known
    int leastChannels = 0;
    int mostChannels = 0;
    std::vector<unsigned> rates = {};
    std::vector<std::string> formats = {};  // words of FORMATS
};

// All that the machine has. Asks each, and opens it for no longer than that; when the time is up, those that
// are left are listed by name only.
std::vector<CaptureFacts> ListCaptureDevices(double milliseconds);

}  // namespace live
