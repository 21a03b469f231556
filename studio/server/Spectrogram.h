#pragma once

#include <cstdint>
#include <vector>

namespace studio {

// The columns of a spectrogram of one signal, in memory of a fixed size. Each column is made of the first
// samples of an equal stretch of the signal: as many as it has, rounded down to a power of two of at most
// MOST_SAMPLES. Columns begin at multiples of their length since the signal's start.

inline constexpr std::size_t SPECTRUM_COLUMNS = 200;

// Samples of columns, one after the other.
struct SpectrumSegments {
    std::int64_t signals = 0;  // the number of the signal
    std::int64_t first = 0;    // column
    std::size_t length = 0;    // samples of a column that are transformed
    std::vector<float> samples;
};

// Keeps the samples; transforms nothing. One thread, that of the run.
class SegmentRing {
 public:
    static constexpr std::int64_t LEAST_SAMPLES = 64;
    static constexpr std::int64_t MOST_SAMPLES = 512;

    // A window of that length is to have SPECTRUM_COLUMNS columns.
    void Begin(std::int64_t signalNumber, double rate, double seconds);
    template <class Number>
    void Add(const Number* values, std::int64_t count);
    std::int64_t PerColumn() const { return perColumn; }
    // Adds those that are whole and that it has not given yet to `segments`, of which the oldest go.
    void Give(SpectrumSegments& segments);

 private:
    std::int64_t signals = 0;
    std::int64_t perColumn = LEAST_SAMPLES;
    std::int64_t length = LEAST_SAMPLES;
    std::int64_t taken = 0;  // samples
    std::int64_t given = 0;  // columns
    std::vector<float> ring;
};

// The newest columns as amplitudes. One thread, that of whoever looks.
class Spectrogram {
 public:
    static constexpr double STEP = 0.5;  // dB

    void Add(const SpectrumSegments& segments);
    std::int64_t First() const { return count > Size() ? count - Size() : 0; }  // column
    std::size_t Bins() const { return bins; }
    // Of each column its bins from 0 Hz on, below half the rate: 255 for the largest amplitude of all, whose
    // level is `top` in dB re 1, one less for each STEP below, at least 1, and 0 for what is not known.
    std::vector<std::uint8_t> Levels(double& top) const;

    // Before other threads use the library of transforms.
    static void Prepare();

 private:
    static std::int64_t Size() { return static_cast<std::int64_t>(SPECTRUM_COLUMNS); }

    std::int64_t signals = 0;
    std::int64_t count = 0;  // columns so far
    std::size_t bins = 0;
    std::vector<float> levels;  // dB, of a ring of columns
};

}  // namespace studio
