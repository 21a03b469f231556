#pragma once

#include <string>
#include <vector>

#include "modules/common/LevelReference.h"
#include "modules/common/SignalTrack.h"
#include "modules/level/LevelMeter.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Measures every signal that is wired to it as a sound level meter does: the level in decibels over time, one
// output for each input, and results of the last signal of each. What they mean is in docs/modules.md.
//
// An output sample is the level at the end of an interval, and its time that of the interval's last sample;
// the samples after the last whole interval make none. Silence is minus infinity. The level of a signal does
// not depend on how it is cut into blocks. Values that are not finite are left out, with a warning.
class Level final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Level";

    explicit Level(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Measures levels in decibels, as a sound level meter",
                             "Misst Pegel in Dezibel, wie ein Schallpegelmesser")
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
        tc::LevelMeter meter;
        tc::LevelReference reference;
        double scale = 1.0;  // of a power, to squares of the reference
        bool measured = false;
        bool first = true;  // no block of the signal has been sent
        double begin = 0.0;
        std::int64_t sent = 0;
    };

    double SamplesPerInterval(double rate) const;
    int Take(unsigned input);
    bool Begin(unsigned input, CString& error);
    int Send(unsigned input);
    void Report(unsigned input, const Channel& channel);

    std::vector<Channel> channels;
    std::vector<double> levels;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
