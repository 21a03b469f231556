#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

enum class ResampleQuality { QUICK, LOW, MEDIUM, HIGH, VERY_HIGH };

// One signal at another samplerate (libsoxr). The first sample that comes out is at the time of the first one
// that went in. How samples are shared out among calls makes no difference but for rounding.
class RateConverter {
 public:
    RateConverter();
    ~RateConverter();
    RateConverter(RateConverter&&) noexcept;
    RateConverter& operator=(RateConverter&&) noexcept;

    // A signal begins. False, with the reason, for rates that cannot be converted.
    bool Begin(double inputRate, double outputRate, ResampleQuality quality, std::string& error);
    // `output` is what can be made by now, and valid until the next call. `last`: the signal ends with these
    // samples; then all has been made, `round(samples * outputRate / inputRate)` samples in all. False, with
    // the reason, when the library fails.
    bool Run(const double* values, int count, bool last, std::span<const double>& output, std::string& error);
    // Values that were not finite; they count as 0.
    std::int64_t LeftOut() const { return leftOut; }

 private:
    struct Converter;

    void EndAtWhole();
    bool Process(const double* values, std::size_t count, std::string& error);

    std::unique_ptr<Converter> converter;
    double ratio = 1.0;
    std::int64_t taken = 0;
    std::int64_t made = 0;
    std::int64_t leftOut = 0;
    std::vector<double> finite;
    std::vector<double> buffer;  // only grows
    std::size_t filled = 0;      // of it
};
