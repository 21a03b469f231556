#pragma once

#include <cstdint>
#include <vector>

#include "modules/common/SignalTrack.h"
#include "modules/resample/RateConverter.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Every signal that is wired to it at another samplerate, one output for each input, band-limited and without
// delay: the first sample is at the time of the signal's first one. Name and unit stay; the range becomes the
// widest there is. A signal of n samples becomes one of n * rate / its rate, rounded. Values that are not
// finite count as 0, with a warning.
class Resample final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Resample";

    explicit Resample(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Changes the samplerate of signals", "Ändert die Abtastrate von Signalen")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;

 private:
    struct Channel {
        SignalTrack track;
        RateConverter converter;
        double begin = 0.0;
        std::int64_t sent = 0;
        bool first = true;  // no block of the signal has been sent
    };

    int Take(unsigned input);

    std::vector<Channel> channels;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
