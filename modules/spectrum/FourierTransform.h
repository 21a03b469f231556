#pragma once

#include <complex>
#include <memory>
#include <span>

// The discrete Fourier transform of real values, planned once for one length and run many times. The plan is
// the same on every machine, so results are too as far as the processor's arithmetic allows.
class FourierTransform {
 public:
    explicit FourierTransform(int length);
    ~FourierTransform();

    int Length() const { return length; }
    int Bins() const { return length / 2 + 1; }
    // `Length()` values for the caller to fill.
    double* Input();
    // Fills them with a segment, less its mean, times the window, both of that length. False, with nothing
    // done, when one of its values is not finite.
    bool Place(std::span<const double> segment, std::span<const double> window);
    // Transforms the input and writes the unscaled magnitude |X[k]| of each of the `Bins()` bins.
    void Run(double* magnitudes);
    // The same, but adds |X[k]|^2 to each of as many sums.
    void RunAndAdd(double* powers);
    // The same, but writes the unscaled X[k] itself.
    void Run(std::complex<double>* bins);

 private:
    struct Plan;
    int length;
    std::unique_ptr<Plan> plan;
};
