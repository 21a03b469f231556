#pragma once

#include <string>
#include <vector>

#include "modules/trigger/PieceCutter.h"
#include "modules/trigger/TriggerSettings.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Cuts pieces out of all channels of a bus together, at the hits that one of them has: the channel of that
// name, or the first. Each piece is a signal of its own in each channel, with its own time, and the channels
// keep their names and places. See docs/modules.md for the conditions.
//
// The channels of a block must have the same number of double values and the same samplerate, and those of a
// signal must stay the same: else the run fails. A step sends the end of at most one piece.
class BusTrigger final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "BusTrigger";

    explicit BusTrigger(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual(
                   "Cuts out of all channels of a bus what happens around an event in one",
                   "Schneidet aus allen Kanälen eines Busses, was um ein Ereignis in einem geschieht")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Channel {
        TCString segmentName;
        std::string name;
        int index = -1;
        TCTypeInfo first;                // metadata of the signal's first block
        const double* values = nullptr;  // of the block
    };

    int Take();
    bool Read(const TCIOStream::Block& block, bool& begins, CString& error);
    bool ReadChannel(const TCIOStream::DataSegment& segment, Channel& channel, int& count,
                     TCTypeInfo& metadata, CString& error) const;
    bool FindTriggering(CString& error);
    bool Begin(CString& error);
    int Work();
    int Send();

    TCIOStream::Block* held = nullptr;  // that is being worked on
    std::vector<Channel> channels;
    std::vector<const double*> values;
    std::vector<TCTypeInfo> metadatas;  // of the block's channels
    int samples = 0;
    std::size_t triggering = 0;
    bool open = false;  // the signal's end has not come yet
    bool begun = false;
    bool ends = false;
    tc::PieceCutter cutter;
    TCTypeInfo outgoing;  // of the channel that is sent; kept, so that a long name costs no memory each time
};
