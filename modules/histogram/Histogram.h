#pragma once

#include <vector>

#include "modules/common/SignalTrack.h"
#include "modules/common/WholeSignal.h"
#include "modules/histogram/Bins.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// How the values of every signal that is wired to it are distributed: two outputs for each input, sent at the
// end of each of its signals, each in a COMPLETE block. "Histogram" has a value for each bin, "Edges" the
// edges of the bins, one more, in the signal's unit. The samplerate of both is the number of bins in one of
// that unit; their axis is the value and no time. See docs/modules.md.
//
// With both ends and the number of bins given memory does not grow; otherwise a signal is kept until it ends.
class Histogram final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Histogram";

    explicit Histogram(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Counts how the values of signals are distributed",
                             "Zählt, wie die Werte von Signalen verteilt sind")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    int Done() override;

 private:
    struct Channel {
        SignalTrack track;
        tc::Bins bins;
        WholeSignal whole;      // where the bins follow from the values
        TCTypeInfo first;       // the metadata of the signal's first block
        bool measured = false;  // a signal has ended
    };

    bool FindRange(const TCSI_Unit& unit, double& from, double& to, CString& error) const;
    int Take(unsigned input);
    int End(unsigned input);
    int Send(unsigned output, const TCTypeInfo& first, const TCSI_Unit& unit, double minimum, double maximum);
    void Report(unsigned input, const Channel& channel);

    bool keeps = false;
    std::vector<Channel> channels;
    std::vector<double> buffer;
};
