#pragma once

#include <cstdint>
#include <vector>

#include "modules/common/SampleQueue.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Makes signals of one samplerate begin and end together, one output for each input. They begin at
// the timestamps of their first blocks, rounded to whole samples of the first output sample's time; from
// there on samples are counted. `mode` says what becomes of what does not overlap:
//
//   drop   from the last start to the first end; what lies outside is dropped
//   pad    from the first start to the last end; `fill` is put where a signal has no samples
//   fail   a start or an end that differs by a sample fails the run
//
// All outputs get blocks of the same sizes and timestamps. The newest block of a signal is kept until there
// is a further one or the signal has ended, so that the last block sent is known. What is ahead of other
// signals waits in memory, beyond some thousand samples in a temporary file. When all signals have ended, the
// next signal of each input is aligned in the same way. A block without a state counts as COMPLETE.
//
// Signals without a start time, with different samplerates, or with one that is no number above 0 fail the
// run; so does a start that would need more than `most_padding` samples.
//
// Results, for each input by its port's name: "passed", "dropped" and "padded" samples, and "held" when the
// run ended before they could be passed. What came in is passed, dropped or held; what went out is passed or
// padded.
class Align final : public TCBaseModuleEx {
 public:
    enum Mode { DROP, PAD, FAIL };

    static constexpr const char* ID = "Align";

    explicit Align(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Makes signals begin and end together",
                             "Lässt Signale gemeinsam beginnen und enden")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Signal {
        unsigned port = 0;
        TCTypeInfo metadata;  // of the first block
        SampleQueue samples;
        bool begun = false;
        bool ended = false;
        std::int64_t lead = 0;    // samples to pad before the first one
        std::int64_t skip = 0;    // samples to drop before the first one
        std::int64_t newest = 0;  // samples of the newest block
        std::int64_t passed = 0;  // these three in the whole run
        std::int64_t dropped = 0;
        std::int64_t padded = 0;

        std::int64_t Left() const { return lead + samples.Waiting(); }
        // That can be sent although it is not known yet what follows.
        std::int64_t Ready() const;
        // Drops what has arrived of the samples to be dropped before the first one.
        void Skip();
        void Drop(std::int64_t count);
        // Fills `values` with the next samples, with padding before and after them.
        void Take(std::vector<double>& values, double fill);
    };

    bool CanTake(const Signal& signal) const;
    bool HasWork() const;
    int TakeBlocks();
    int TakeBlock(Signal& signal);
    int CheckMetadata(Signal& signal, const TCTypeInfo& ti);
    int Start();
    // Samples that can be sent in the next step.
    std::int64_t Ready() const;
    bool IsLast(std::int64_t count) const;
    int CheckEnds(std::int64_t count);
    int Send();
    int SendBlock(Signal& signal, std::int64_t count, bool last);
    void FinishRound();
    std::string InputName(const Signal& signal) const;
    std::string RatesDiffer(unsigned input, double ownRate, unsigned other, double otherRate) const;

    Mode mode = DROP;
    double fill = 0.0;
    std::vector<Signal> signals;  // of the inputs that are wired
    std::vector<double> buffer;
    bool started = false;   // where the outputs begin is known
    bool finished = false;  // their last block was sent
    bool moved = false;     // a block was taken or sent in this step
    double startTime = 0.0;
    double rate = 0.0;
    std::int64_t sent = 0;  // samples to each output
};
