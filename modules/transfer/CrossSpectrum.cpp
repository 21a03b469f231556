#include "modules/transfer/CrossSpectrum.h"

#include <algorithm>
#include <cmath>

CrossSpectrum::CrossSpectrum(std::vector<double> weights, std::size_t samplesPerHop, std::size_t signals)
    : window(std::move(weights)),
      hop(samplesPerHop),
      transform(static_cast<int>(window.size())),
      segments(signals, std::vector<double>(window.size())),
      spectra(signals, std::vector<Complex>(static_cast<std::size_t>(transform.Bins()))),
      powers(signals),
      crosses(signals),
      bins(static_cast<std::size_t>(transform.Bins())) {
    Reset();
}

void CrossSpectrum::Reset() {
    for (auto& power : powers) power.assign(bins.size(), 0.0);
    for (auto& cross : crosses) cross.assign(bins.size(), Complex());
    filled = 0;
    used = skipped = 0;
}

void CrossSpectrum::Advance(std::size_t count) {
    filled += count;
    if (filled < window.size()) return;
    bool finite = true;
    for (std::size_t signal = 0; signal < segments.size(); ++signal) finite = Transform(signal) && finite;
    if (finite)
        Use();
    else
        ++skipped;
    for (auto& segment : segments)
        std::copy(segment.begin() + static_cast<std::ptrdiff_t>(hop), segment.end(), segment.begin());
    filled -= hop;
}

bool CrossSpectrum::Transform(std::size_t signal) {
    if (!transform.Place(segments[signal], window)) return false;
    transform.Run(spectra[signal].data());
    return true;
}

void CrossSpectrum::Use() {
    ++used;
    for (std::size_t signal = 0; signal < segments.size(); ++signal) {
        for (std::size_t k = 0; k < bins.size(); ++k) {
            powers[signal][k] += std::norm(spectra[signal][k]);
            crosses[signal][k] += std::conj(spectra[0][k]) * spectra[signal][k];
        }
    }
}

// The correlation at a lag n is the sum of a[k] cos - b[k] sin over all k, where a is even and b odd; the
// transforms of these two have one of the sums each, and another sign of n turns that of the second.
double CrossSpectrum::Delay(std::size_t signal) {
    const std::size_t length = window.size();
    const std::vector<Complex>& cross = crosses[signal];
    const auto place = [&](auto part, double mirrored) {
        double* values = transform.Input();
        for (std::size_t k = 0; k < bins.size(); ++k) {
            if (k > 0) values[length - k] = mirrored * part(cross[k]);
            values[k] = part(cross[k]);
        }
        transform.Run(bins.data());
    };
    std::vector<double> correlation(length);
    place([](const Complex& value) { return value.real(); }, 1.0);
    for (std::size_t n = 0; n < bins.size(); ++n) {
        correlation[n] = bins[n].real();
        if (n > 0) correlation[length - n] = bins[n].real();
    }
    place([](const Complex& value) { return value.imag(); }, -1.0);
    for (std::size_t n = 0; n < bins.size(); ++n) {
        correlation[n] += bins[n].imag();
        if (n > 0 && length - n != n) correlation[length - n] -= bins[n].imag();
    }
    const auto greatest = static_cast<std::size_t>(std::max_element(correlation.begin(), correlation.end()) -
                                                   correlation.begin());
    const double before = correlation[(greatest + length - 1) % length];
    const double after = correlation[(greatest + 1) % length];
    const double bend = before - 2.0 * correlation[greatest] + after;
    const double between = bend < 0.0 ? 0.5 * (before - after) / bend : 0.0;
    const double lag = static_cast<double>(greatest) + between;
    return lag > static_cast<double>(length) / 2.0 ? lag - static_cast<double>(length) : lag;
}
