#pragma once

#include <cstdint>
#include <vector>

#include "modules/common/SignalTrack.h"
#include "modules/common/WholeSignal.h"
#include "modules/peaks/PeakFinder.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Finds the peaks of every signal that is wired to it, one output for each input: the peaks that
// scipy.signal.find_peaks finds (see FindPeaks), and what there is to say of their distances.
//
// A peak may be the highest for as long as its signal lasts, so a signal is kept as a whole, eight bytes for
// each sample, and sent when it has ended: its prominence, which is above 0, where there is a peak, and 0
// everywhere else. A signal of more than `most_samples` fails the run.
//
// Results, for the last signal of each input: `peaks`, and with at least one of them the means of height and
// prominence (and of the width, when `width` is given), with two the mean, least and greatest interval and
// the standard deviation of intervals, and the rate, which is one by the mean interval.
class Peaks final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Peaks";

    explicit Peaks(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Finds peaks and the intervals between them",
                             "Findet Spitzen und die Abstände zwischen ihnen")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Channel {
        SignalTrack track;
        WholeSignal signal;  // once it has ended, what is sent
        std::vector<tc::Peak> peaks;
        bool measured = false;
    };

    bool FindLimits(const TCSI_Unit& unit, double rate, tc::PeakLimits& limits, CString& error) const;
    int Take(unsigned input);
    int End(unsigned input);
    void Report(unsigned input, const Channel& channel);

    std::vector<Channel> channels;
};
