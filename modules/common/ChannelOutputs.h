#pragma once

#include <string>
#include <vector>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/module/TCStartCheck.h"
#include "sigweave/signal/TCTypeInfo.h"

// The outputs of a source that has its channels from a file: one for each, and the bus "Channels" with all of
// them, whose channels have the same names and metadata.
class ChannelOutputs {
 public:
    static constexpr const char* BUS = "Channels";

    // Takes away all ports and declares those of as many channels, which get names that no other port has:
    // empty ones become `word` and a number, repeated ones get a number after them.
    void Declare(TCPortHelper& ports, std::vector<std::string> names, const char* word,
                 const char* domain = "TIME_DOMAIN");

    std::size_t Count() const { return names.size(); }
    // The metadata of the next block of a channel.
    TCTypeInfo& Metadata(std::size_t channel) { return metadata[channel]; }
    // What is known of an output's signal before a run; nothing of the bus.
    TCForetoldSignal Foretell(int output) const;

    // Sends a block of one channel with its metadata, whose samples are copied; 0, or a negative code (see
    // tc::WriteSamples).
    int Write(TCPortHelper& ports, std::size_t channel, const double* samples, std::size_t count);
    // Sends what was written since the last call as one block of the bus.
    int EndBlock(TCPortHelper& ports);

 private:
    std::vector<TCString> names;  // of the ports
    std::vector<TCTypeInfo> metadata;
    bool isBusBegun = false;
};
