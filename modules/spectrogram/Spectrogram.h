#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "modules/common/SignalTrack.h"
#include "modules/spectrum/FourierTransform.h"
#include "modules/spectrum/Segmenter.h"
#include "modules/spectrum/SpectralScale.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// The spectrum over time of every signal that is wired to it, one output for each input. See docs/modules.md.
//
// The signal is cut into segments as by the module Spectrum, and becomes a signal with a block of length / 2
// + 1 values for each: a slice. The block's samplerate is the number of bins per Hz, as that of a spectrum;
// its timestamp is that of the segment's middle. A segment with a value that is no finite number makes none,
// with a warning, and neither does what is left at the end. A slice is sent when the next one or the end has
// come, for only then its state is known.
//
// A step sends a limited number of blocks, so that a long block of the signal does not fill the lines.
class Spectrogram final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Spectrogram";

    explicit Spectrogram(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Finds how the spectrum of signals changes over time",
                             "Bestimmt, wie sich das Spektrum von Signalen über der Zeit ändert")
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
    struct Channel {
        SignalTrack track;
        TCTypeInfo first;  // the metadata of the signal's first block
        Segmenter segmenter;
        const double* values = nullptr;  // of the block, what has not been used
        int left = 0;
        bool working = false;  // on the block
        // Of the last signal.
        std::vector<double> waiting;  // the slice that has not been sent
        double waitingTime = 0.0;     // in seconds from its beginning
        std::int64_t slices = 0;
        std::int64_t skipped = 0;
        double greatest = -1.0;
        double peakTime = 0.0;
        std::size_t peakBin = 0;
    };

    int Take(unsigned input);
    int Work(unsigned input);
    int UseSegment(unsigned input);
    int Send(unsigned output, bool last);
    int End(unsigned input);
    void WarnOfLoss(unsigned input);

    tc::SpectrumScale scale = tc::SpectrumScale::RMS;
    std::size_t hop = 1;
    std::unique_ptr<FourierTransform> transform;
    std::vector<double> window;
    tc::SpectralScaling scaling;
    std::vector<Channel> channels;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
