#pragma once

#include <cstdint>
#include <memory>
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
    // Puts what can be made by now into `output`, replacing its content. `last`: the signal ends with these
    // samples; then all has been made, `round(samples * outputRate / inputRate)` samples in all. False, with
    // the reason, when the library fails.
    bool Run(const double* values, int count, bool last, std::vector<double>& output, std::string& error);
    // Values that were not finite; they count as 0.
    std::int64_t LeftOut() const { return leftOut; }

 private:
    struct Converter;

    bool Process(const double* values, std::size_t count, std::vector<double>& output, std::string& error);

    std::unique_ptr<Converter> converter;
    double ratio = 1.0;
    std::int64_t taken = 0;
    std::int64_t made = 0;
    std::int64_t leftOut = 0;
    std::vector<double> finite;
};
