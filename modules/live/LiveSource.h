#pragma once

#include <string>

#include "modules/live/Channels.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace live {

// A module of live input: its Channels, and what the run asks of them. Derived modules have the settings, by
// which they declare the channels, and open their device in Init, which ends with `Begin`.
class LiveSource : public TCBaseModuleEx {
 public:
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    void* GetWaitHandle(const char*& what) override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 protected:
    LiveSource(int instance, std::span<const TCModuleParameter> declared);

    // `fromName`: what the samples come from, for messages and results.
    void Declare(const SampleFormat& format, std::vector<Channel> newChannels, double samplerate,
                 const std::string& fromName);
    // Takes an open device; what Init is to answer.
    int Begin(std::unique_ptr<Device> device, const FeedPlan& plan, double start);

    Channels channels;

 private:
    std::string name;
};

// Whether blocks and packets of that many channels fit into memory; else with a line in `error` for the
// parameter.
bool CheckBlock(const char* parameter, int samples, int channels, std::string& error);

}  // namespace live
