#pragma once

#include <complex>
#include <cstdint>
#include <memory>
#include <vector>

#include "modules/spectrum/FourierTransform.h"

// The auto and cross spectra of a reference and other signals, averaged over segments. From each segment its
// mean is removed before it is weighted. Steady flow allocates nothing.
class CrossSpectrum {
 public:
    using Complex = std::complex<double>;

    // `hop` samples lie between the beginnings of two segments; `signals` counts the reference, the first.
    CrossSpectrum(std::vector<double> window, std::size_t hop, std::size_t signals);

    void Reset();
    // So many samples may be added before a segment is full, at least one.
    std::size_t Room() const { return window.size() - filled; }
    // Where the next samples of a signal go.
    double* Next(std::size_t signal) { return segments[signal].data() + filled; }
    // That many have been put there, for every signal.
    void Advance(std::size_t count);

    std::int64_t Segments() const { return used; }
    // Segments with values that are not finite, which are left out.
    std::int64_t Skipped() const { return skipped; }
    std::size_t Bins() const { return bins.size(); }
    double Power(std::size_t signal, std::size_t bin) const { return powers[signal][bin]; }
    // The sum of conj(X) Y: its angle is that of the signal after the reference.
    Complex Cross(std::size_t signal, std::size_t bin) const { return crosses[signal][bin]; }
    // Where the correlation of the reference and the signal is greatest, in samples; above 0: the signal is
    // later. Between samples by a parabola.
    double Delay(std::size_t signal);

 private:
    bool Transform(std::size_t signal);
    void Use();

    std::vector<double> window;
    std::size_t hop;
    std::size_t filled = 0;
    std::int64_t used = 0;
    std::int64_t skipped = 0;
    FourierTransform transform;
    std::vector<std::vector<double>> segments;
    std::vector<std::vector<Complex>> spectra;
    std::vector<std::vector<double>> powers;
    std::vector<std::vector<Complex>> crosses;
    std::vector<Complex> bins;
};
