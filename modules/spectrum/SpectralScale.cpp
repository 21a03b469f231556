#include "modules/spectrum/SpectralScale.h"

#include <cmath>
#include <numeric>

namespace tc {

TCSI_Unit Hertz() {
    TCSI_Unit unit;
    unit.SetExponent(TCSI_Unit::SECOND, -1);
    return unit;
}

TCSI_Unit ScaledUnit(SpectrumScale scale, const TCSI_Unit& unit) {
    if (scale == SpectrumScale::ROOT_DENSITY) return {};
    TCSI_Unit scaled = unit;
    if (scale == SpectrumScale::POWER || scale == SpectrumScale::DENSITY) scaled.multiply(unit);
    if (scale == SpectrumScale::DENSITY) scaled.divide(Hertz());
    return scaled;
}

SpectralScaling::SpectralScaling(SpectrumScale wanted, std::span<const double> window)
    : scale(wanted),
      length(window.size()),
      sum(std::accumulate(window.begin(), window.end(), 0.0)),
      power(std::inner_product(window.begin(), window.end(), window.begin(), 0.0)) {}

double SpectralScaling::AmplitudeFactor(std::size_t bin) const {
    return (IsMirrored(bin) ? 2.0 : 1.0) / sum;
}

double SpectralScaling::Value(std::size_t bin, double magnitude, double rate) const {
    const double amplitude = magnitude * AmplitudeFactor(bin);
    // Of a sine its power is half the square of its amplitude, of a constant all of it.
    const double ofSine = amplitude * amplitude * (IsMirrored(bin) ? 0.5 : 1.0);
    const double density = ofSine * (sum / power) * (sum / rate);
    switch (scale) {
        case SpectrumScale::NONE:
            return magnitude;
        case SpectrumScale::AMPLITUDE:
            return amplitude;
        case SpectrumScale::RMS:
            return std::sqrt(ofSine);
        case SpectrumScale::POWER:
            return ofSine;
        case SpectrumScale::DENSITY:
            return density;
        case SpectrumScale::ROOT_DENSITY:
            return std::sqrt(density);
    }
    return magnitude;
}

}  // namespace tc
