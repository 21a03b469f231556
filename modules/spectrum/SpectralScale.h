#pragma once

#include <cstddef>
#include <span>

#include "sigweave/module/TCModuleParameter.h"
#include "sigweave/signal/TCSI_Unit.h"

namespace tc {

// What is made of the magnitudes |X[k]| of weighted segments: those themselves, the amplitude, root mean
// square or power of a sine in the middle of the bin, the power per Hz, or the root of that.
enum class SpectrumScale { NONE, AMPLITUDE, RMS, POWER, DENSITY, ROOT_DENSITY };

inline constexpr Choice<SpectrumScale> SPECTRUM_SCALES[] = {
    {"none", SpectrumScale::NONE},       {"amplitude", SpectrumScale::AMPLITUDE},
    {"rms", SpectrumScale::RMS},         {"power", SpectrumScale::POWER},
    {"density", SpectrumScale::DENSITY}, {"root_density", SpectrumScale::ROOT_DENSITY}};

constexpr TCModuleParameter ScaleParameter(const char* scale) {
    return {.name = "scale",
            .kind = TCModuleParameter::CHOICE,
            .defaultValue = scale,
            .help = {"of the output: |X[k]|, amplitude, rms or power of a sine, power per Hz, or the root of "
                     "that",
                     "der Ausgabe: |X[k]|, Amplitude, Effektivwert oder Leistung eines Sinus, Leistung je Hz "
                     "oder deren Wurzel"},
            .choices = CHOICE_WORDS<SPECTRUM_SCALES>,
            .label = {"Scaling", "Skalierung"}};
}

// Of a signal of that unit. Roots of units cannot be held: the root of a density has none.
TCSI_Unit ScaledUnit(SpectrumScale scale, const TCSI_Unit& unit);
TCSI_Unit Hertz();

// The scaling of spectra by one window.
class SpectralScaling {
 public:
    SpectralScaling() = default;
    SpectralScaling(SpectrumScale scale, std::span<const double> window);

    // The amplitude for the magnitude 1.
    double AmplitudeFactor(std::size_t bin) const;
    // What is sent for a magnitude at that samplerate.
    double Value(std::size_t bin, double magnitude, double rate) const;

 private:
    // A sine's power is split between a bin and its mirror image; 0 Hz and half the rate have none.
    bool IsMirrored(std::size_t bin) const { return bin > 0 && 2 * bin < length; }

    SpectrumScale scale = SpectrumScale::NONE;
    std::size_t length = 0;
    double sum = 0.0;
    double power = 0.0;  // sum of squares
};

}  // namespace tc
