#pragma once

#include <vector>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/TCRegExp.h"

// Passes on the channels of a bus whose signal name matches a regular expression, with their values, metadata
// and places in the bus unchanged: all of them on the output "Bus", and those that come first in a run as
// plain signals on the outputs "Channel 1", "Channel 2" and so on, where they stay when a block lacks some. A
// block of a channel without values is left out of the bus; the plain signal gets its metadata.
//
// Where no channel of a block matches, nothing is sent for that block; the first time in a run a warning
// names the channels that there are. A channel that is to be a plain signal and holds no double values is an
// error, and so is one that holds blocks inside of its blocks.
class BusSelect final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "BusSelect";

    explicit BusSelect(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Passes on the channels of a bus by their names",
                             "Gibt Kanäle eines Busses nach ihren Namen weiter")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    int Init() override;
    int Execute() override;

 private:
    using Segment = TCIOStream::DataSegment;

    // What a segment's name says, and whether it is wanted; kept from block to block.
    struct Channel {
        TCString segmentName;
        TCString name;
        int index = -1;
        bool single = false;  // holds single values
        bool selected = false;
        unsigned output = 0;  // where it comes out as a signal; 0: nowhere
    };

    void DeclarePorts(int signals);
    bool Read(Channel& channel, const TCString& segmentName);
    unsigned OutputOf(const TCString& segmentName);
    int PassOn(const TCIOStream::Block& bus);
    int PassOn(const Channel& channel, const Segment& blocks);
    int WriteToBus(const Channel& channel, const Segment& values, const TCTypeInfo* metadata);
    int WriteSignal(const Channel& channel, const Segment* values, const TCTypeInfo* metadata);
    void WarnOfNone(std::size_t count);

    TCRegExp expression;
    bool invert = false;
    bool warned = false;
    bool begun = false;                 // the bus block that is sent next has a channel
    std::vector<Channel> channels;      // by segment
    std::vector<TCString> signalNames;  // the segments that come out as signals, by output
};
