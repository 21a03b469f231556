#pragma once

#include <cstdint>
#include <deque>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/TCBlockBuffer.h"

// Cuts every signal that is wired to it into blocks of one size, one output for each input. Only the last
// block of a signal may be shorter. Each sample is copied twice: into the block that is being filled, and
// into the output's.
//
// A full block is sent when the next sample or the signal's end is there, because its state is known only
// then. Its timestamp is that of its first sample: counted by the samplerate from the signal's start, and
// anew from a block whose own timestamp shows that there is a gap before it. Blocks without a timestamp, or
// with the same one as the block before, are counted on; a signal that starts without one starts at the time
// of the run. The other metadata are those of the input block that the first sample came in.
//
// A signal ends with STOP or COMPLETE, or where another one starts; a block without a state counts as
// COMPLETE. Within a signal the samplerate and the unit must not change, and a samplerate that is no number
// above 0 fails the run. There is a warning when a signal had not ended when the run was over.
class Reblock final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Reblock";

    explicit Reblock(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Cuts signals into blocks of one size", "Teilt Signale in Blöcke einer Größe")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    // A long input block is cut in several steps, so that memory stays flat.
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Signal {
        TCBlockBuffer buffer;  // holds the block that is being filled, if there is one
        TCTypeInfo filling;    // its metadata
        unsigned filled = 0;
        TCTypeInfo arrived;  // of the input block that is being cut
        const double* values = nullptr;
        int left = 0;  // samples of it that were not copied yet
        bool begins = false;
        bool ends = false;
        double anchor = 0.0;         // time of a sample, in milliseconds
        std::int64_t sinceThen = 0;  // samples copied since that one
        double lastTimestamp = 0.0;  // that a block brought

        bool IsOpen() const { return buffer.GetSize() > 0; }
        double TimeOfNext() const;
        void SetTime(double runStart);
    };

    int Take(unsigned input);
    int CheckMetadata(unsigned input, const TCTypeInfo& ti);
    int Cut(unsigned port);
    bool Open(Signal& signal);
    int Send(unsigned output, bool last);

    unsigned blockSize = 1;
    std::deque<Signal> signals;
};
