#pragma once

#include <string>
#include <vector>

#include "modules/common/LevelReference.h"
#include "modules/common/SignalTrack.h"
#include "modules/octave/BandMeter.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Measures the octave or third-octave bands (IEC 61260-1, base 10, class 1) of every signal that is wired to
// it. One bus for each input has a channel for each band, with a value for each interval; results are those
// of the last signal of each input. What they mean is in docs/modules.md.
//
// A bus block has the same intervals in every channel; its time is that of the first one's beginning. Samples
// after the last whole interval count for the results only; a signal without a whole interval has no blocks.
class Octave final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Octave";

    explicit Octave(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Measures octave and third-octave bands", "Misst Oktav- und Terzbänder").Text();
    }
    void OnInputsDeclared(int count) override;
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    int Init() override;
    int Execute() override;
    int Done() override;

 private:
    struct Channel {
        SignalTrack track;
        tc::BandMeter meter;
        std::vector<std::string> names;  // of the channels
        tc::LevelReference reference;
        double scale = 1.0;  // of a power, to squares of the reference
        bool measured = false;
        bool first = true;  // no block of the signal has been sent
        double begin = 0.0;
        std::int64_t sent = 0;     // intervals
        std::vector<double> rows;  // of the intervals that have not been sent
    };

    double SamplesPerInterval(double rate) const;
    bool FindBands(double rate, const std::string& signal, std::vector<tc::OctaveBand>& bands,
                   CString& error) const;
    int Take(unsigned input);
    bool Begin(unsigned input, CString& error);
    int Send(unsigned input);
    void Report(unsigned input, const Channel& channel);
    double Shown(const Channel& channel, double power) const;

    bool inDecibels = true;
    std::vector<Channel> channels;
    std::vector<double> values;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
