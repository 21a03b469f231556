#include "studio/server/Spectrogram.h"

#include <fftw3.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>

namespace studio {
namespace {

constexpr float SILENCE = -1e6F;  // dB; NONE: not known
constexpr float NONE = -std::numeric_limits<float>::infinity();
constexpr std::size_t LONGEST = SegmentRing::MOST_SAMPLES;

// The library plans on one thread at a time, and modules plan too: all plans are made at the start.
class Plans {
 public:
    Plans() {
        std::array<double, LONGEST> in{};
        std::array<fftw_complex, LONGEST / 2 + 1> out{};
        for (unsigned i = 0; i < plans.size(); ++i)
            plans[i] = fftw_plan_dft_r2c_1d(static_cast<int>(SegmentRing::LEAST_SAMPLES) << i, in.data(),
                                            out.data(), FFTW_ESTIMATE | FFTW_UNALIGNED);
    }
    fftw_plan Of(std::size_t length) const {
        return plans[static_cast<std::size_t>(
            std::countr_zero(length / static_cast<std::size_t>(SegmentRing::LEAST_SAMPLES)))];
    }

 private:
    std::array<fftw_plan, 4> plans{};
};

const Plans& ThePlans() {
    static const Plans plans;
    return plans;
}

// The level of each amplitude in dB re 1, with a Hann window.
void Transform(const float* samples, std::size_t length, float* levels) {
    std::array<double, LONGEST> in;
    std::array<fftw_complex, LONGEST / 2 + 1> out;
    for (std::size_t i = 0; i < length; ++i) {
        const double turn = 2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(length);
        const double value = std::isfinite(samples[i]) ? static_cast<double>(samples[i]) : 0.0;
        in[i] = value * (0.5 - 0.5 * std::cos(turn));
    }
    fftw_execute_dft_r2c(ThePlans().Of(length), in.data(), out.data());
    for (std::size_t bin = 0; bin < length / 2; ++bin) {
        const double both = bin == 0 ? 1.0 : 2.0;
        const double amplitude =
            2.0 * both * std::hypot(out[bin][0], out[bin][1]) / static_cast<double>(length);
        levels[bin] = amplitude > 0.0 ? static_cast<float>(20.0 * std::log10(amplitude)) : SILENCE;
    }
}

}  // namespace

void SegmentRing::Begin(std::int64_t signalNumber, double rate, double seconds) {
    signals = signalNumber;
    const double wanted = std::ceil(rate * seconds / static_cast<double>(SPECTRUM_COLUMNS) - 1e-9);
    perColumn = static_cast<std::int64_t>(std::clamp(wanted, static_cast<double>(LEAST_SAMPLES), 1e15));
    length = std::min(MOST_SAMPLES,
                      static_cast<std::int64_t>(std::bit_floor(static_cast<std::uint64_t>(perColumn))));
    taken = 0;
    given = 0;
    ring.assign(SPECTRUM_COLUMNS * static_cast<std::size_t>(length), 0.0F);
}

template <class Number>
void SegmentRing::Add(const Number* values, std::int64_t count) {
    const auto columns = static_cast<std::int64_t>(SPECTRUM_COLUMNS);
    for (std::int64_t i = 0; i < count;) {
        const std::int64_t column = taken / perColumn;
        const std::int64_t inside = taken % perColumn;
        const std::int64_t step = std::min(count - i, (inside < length ? length : perColumn) - inside);
        if (inside < length)
            std::transform(values + i, values + i + step,
                           ring.begin() + static_cast<std::ptrdiff_t>(column % columns * length + inside),
                           [](Number value) { return static_cast<float>(value); });
        i += step;
        taken += step;
    }
}

template void SegmentRing::Add(const double* values, std::int64_t count);
template void SegmentRing::Add(const int* values, std::int64_t count);

void SegmentRing::Give(SpectrumSegments& segments) {
    const auto columns = static_cast<std::int64_t>(SPECTRUM_COLUMNS);
    const std::int64_t whole = taken / perColumn + (taken % perColumn >= length ? 1 : 0);
    // The slot of the oldest one is written again already while another one is taken.
    const std::int64_t inside = taken % perColumn;
    const std::int64_t begin = std::max(given, whole - columns + (inside > 0 && inside < length ? 1 : 0));
    const auto size = static_cast<std::size_t>(length);
    if (segments.signals != signals || begin != given) segments = {};
    if (segments.samples.empty()) segments = {signals, begin, size, std::move(segments.samples)};
    for (std::int64_t column = begin; column < whole; ++column) {
        const auto from = ring.begin() + static_cast<std::ptrdiff_t>(column % columns * length);
        segments.samples.insert(segments.samples.end(), from, from + static_cast<std::ptrdiff_t>(length));
    }
    given = std::max(given, whole);
    const std::size_t most = SPECTRUM_COLUMNS * size;
    if (segments.samples.size() <= most) return;
    const std::size_t over = segments.samples.size() - most;
    segments.samples.erase(segments.samples.begin(),
                           segments.samples.begin() + static_cast<std::ptrdiff_t>(over));
    segments.first += static_cast<std::int64_t>(over / size);
}

void Spectrogram::Prepare() {
    ThePlans();
}

void Spectrogram::Add(const SpectrumSegments& segments) {
    if (segments.length == 0) return;
    if (segments.signals != signals || bins != segments.length / 2) {
        signals = segments.signals;
        bins = segments.length / 2;
        count = 0;
        levels.assign(SPECTRUM_COLUMNS * bins, NONE);
    }
    const auto slot = [this](std::int64_t column) {
        return levels.data() + static_cast<std::size_t>(column % Size()) * bins;
    };
    for (count = std::max(count, segments.first - Size()); count < segments.first; ++count)
        std::fill_n(slot(count), bins, NONE);
    count = std::max(count, segments.first);
    for (std::size_t at = 0; at + segments.length <= segments.samples.size(); at += segments.length)
        Transform(segments.samples.data() + at, segments.length, slot(count++));
}

std::vector<std::uint8_t> Spectrogram::Levels(double& top) const {
    float most = NONE;
    for (std::int64_t column = First(); column < count; ++column)
        for (std::size_t bin = 0; bin < bins; ++bin)
            most = std::max(most, levels[static_cast<std::size_t>(column % Size()) * bins + bin]);
    top = most > SILENCE ? static_cast<double>(most) : 0.0;
    std::vector<std::uint8_t> codes;
    codes.reserve(SPECTRUM_COLUMNS * bins);
    for (std::int64_t column = First(); column < count; ++column)
        for (std::size_t bin = 0; bin < bins; ++bin) {
            const auto level =
                static_cast<double>(levels[static_cast<std::size_t>(column % Size()) * bins + bin]);
            const double code = std::clamp(std::round(255.0 - (top - level) / STEP), 1.0, 255.0);
            codes.push_back(std::isfinite(level) ? static_cast<std::uint8_t>(code) : 0);
        }
    return codes;
}

}  // namespace studio
