#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "modules/spectrum/FourierTransform.h"
#include "modules/spectrum/Segmenter.h"
#include "modules/spectrum/SpectralScale.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// The magnitude spectrum of every signal that is wired to it, one output for each input.
//
// A signal is cut into segments of `length` samples, which overlap by the given share. From each segment its
// mean is removed, then it is weighted with the window and transformed. Either the first segment counts, or
// the root of the mean square of all of them ("power", the default). A segment with a value that is no finite
// number is left out, with a warning. A signal that is shorter than one segment has no spectrum, also with a
// warning: stretching it with zeros would change its figures.
//
// The output is one COMPLETE block of length / 2 + 1 values for each signal: |X[k]| without any scaling, or
// by `scale` the amplitude, root mean square or power of a sine at the middle of that bin, the power per Hz,
// or the root of that, which has no unit. Bin k is at k *
// rate / length; the block's samplerate is length / rate, the number of bins per Hz, so that an axis can be
// drawn; its timestamp is that of the first sample used.
//
// Results, for the last signal of each input: peak_bin, peak_frequency, peak_magnitude (|X[k]|),
// peak_amplitude, and peak_value, what was sent of that bin, for the other scales.
class Spectrum final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Spectrum";

    explicit Spectrum(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Finds the magnitude spectrum of signals",
                             "Bestimmt das Betragsspektrum von Signalen")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    int Done() override;

 private:
    struct Signal {
        TCTypeInfo metadata;  // of the signal's first block
        bool open = false;    // its end has not come yet
        Segmenter segmenter;
        std::int64_t first = -1;  // position of the first segment used; -1: none yet
        std::int64_t used = 0;
        std::int64_t skipped = 0;
        std::vector<double> power;       // sums of squared magnitudes
        std::vector<double> magnitudes;  // of the last signal that had a spectrum
        TCTypeInfo measured;             // its metadata
    };

    bool TakesMore(const Signal& signal) const { return !firstOnly || signal.used == 0; }
    void Begin(Signal& signal, const TCTypeInfo& ti) const;
    int Consume(unsigned input, const double* values, int count);
    int EndSignal(unsigned input);
    void WarnOfLoss(unsigned input);
    void UseSegment(Signal& signal);
    int Write(unsigned output);
    void Report(unsigned input, const Signal& signal);

    bool firstOnly = true;
    tc::SpectrumScale scale = tc::SpectrumScale::NONE;
    std::size_t hop = 1;
    std::unique_ptr<FourierTransform> transform;
    std::vector<double> window;
    tc::SpectralScaling scaling;
    std::vector<double> scratch;
    std::vector<Signal> signals;
};
