#pragma once

#include <cstdint>
#include <vector>

#include "modules/common/SampleQueue.h"
#include "modules/common/SignalTrack.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Delays every signal that is wired to it, one output for each input: the values come later, and the times
// stay. A delayed signal begins when the signal does, with the value `fill`; at its end comes what is still
// waiting, unless the end is cut. Name, samplerate, unit and the blocks' timestamps stay, and the range is
// widened to the value that fills.
//
// What waits lies in bounded memory (see SampleQueue). The result does not depend on how a signal is cut.
class Delay final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Delay";

    explicit Delay(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Delays signals by a time or a number of samples",
                             "Verzögert Signale um eine Zeit oder eine Anzahl Abtastwerte")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;

 private:
    struct Channel {
        SignalTrack track;
        SampleQueue waiting;
        std::int64_t toFill = 0;  // samples that have not been sent
        bool delayed = false;     // by at least a sample
        bool opens = true;        // nothing of the signal has been sent
        bool ending = false;      // its end has come, and what waits is being sent
        double end = 0.0;         // the time of the sample after the last one that was sent
    };

    bool FindSamples(double rate, std::int64_t& samples, CString& error) const;
    int Take(unsigned input);
    int End(unsigned input);
    bool Fill(Channel& channel, std::size_t count);
    int Send(unsigned output);

    bool cuts = false;
    std::vector<Channel> channels;
    std::vector<double> buffer;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
