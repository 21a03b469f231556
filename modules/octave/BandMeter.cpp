#include "modules/octave/BandMeter.h"

#include <algorithm>
#include <cmath>

#include "modules/filter/FilterDesign.h"
#include "sigweave/foundation/NumberFormat.h"

namespace tc {

namespace {

constexpr int ORDER = 4;                   // of each side
constexpr double HIGHEST_EDGE = 0.48;      // of the rate
constexpr double HIGHEST_DECIMATED = 0.1;  // of the rate before it is halved
constexpr int PART = 512;

// Thirds and octaves have the same names.
constexpr double NOMINAL[] = {1.0, 1.25, 1.6, 2.0, 2.5, 3.15, 4.0, 5.0, 6.3, 8.0};

int NearestNumber(int fraction, double frequency) {
    const int step = 3 / fraction;  // numbers are thirds
    return step * static_cast<int>(std::lround(10.0 * std::log10(frequency) / step));
}

int Halvings(const OctaveBand& band, double rate) {
    int halvings = 0;
    for (; band.upper <= HIGHEST_DECIMATED * rate; rate /= 2.0) ++halvings;
    return halvings;
}

}  // namespace

std::string OctaveBand::NominalName() const {
    const int decade = static_cast<int>(std::floor(number / 10.0));
    // Divided where the power is negative: a negative power of ten is no exact number.
    const double digit = NOMINAL[number - 10 * decade];
    return ShortestText(decade < 0 ? digit / std::pow(10.0, -decade) : digit * std::pow(10.0, decade));
}

std::vector<OctaveBand> FindBands(int fraction, double lowest, double highest, double rate) {
    std::vector<OctaveBand> bands;
    const int step = 3 / fraction;
    for (int number = NearestNumber(fraction, lowest); number <= NearestNumber(fraction, highest);
         number += step) {
        const double half = 0.05 * step;
        const OctaveBand band{number, std::pow(10.0, 0.1 * number - half),
                              std::pow(10.0, 0.1 * number + half)};
        if (band.upper < HIGHEST_EDGE * rate) bands.push_back(band);
    }
    return bands;
}

BandMeter::BandMeter(std::vector<OctaveBand> bandsOfSignal, double rate, std::int64_t samplesPerInterval)
    : bands(std::move(bandsOfSignal)), part(PART), filtered(PART), interval(samplesPerInterval) {
    int most = 0;
    for (const OctaveBand& band : bands) {
        Band meter;
        meter.halvings = Halvings(band, rate);
        const long double perSample = std::ldexp(1.0L, meter.halvings) / rate;
        meter.cascade = SectionCascade(
            DesignButterworth(FilterBand::BANDPASS, ORDER, band.lower * perSample, band.upper * perSample));
        most = std::max(most, meter.halvings);
        meters.push_back(std::move(meter));
    }
    decimators.resize(static_cast<std::size_t>(most));
}

void BandMeter::Add(const double* values, int count, std::vector<double>& rows) {
    while (count > 0) {
        const auto taken = static_cast<int>(std::min<std::int64_t>({count, PART, interval - inInterval}));
        AddPart(values, taken);
        values += taken;
        count -= taken;
        inInterval += taken;
        samples += taken;
        if (inInterval == interval) EndInterval(rows);
    }
}

void BandMeter::AddPart(const double* values, int count) {
    for (int i = 0; i < count; ++i) {
        const bool finite = std::isfinite(values[i]);
        part[static_cast<std::size_t>(i)] = finite ? values[i] : 0.0;
        leftOut += finite ? 0 : 1;
    }
    for (std::size_t halvings = 0; count > 0; ++halvings) {
        for (Band& band : meters) {
            if (band.halvings != static_cast<int>(halvings)) continue;
            band.cascade.Run(part.data(), filtered.data(), count);
            double sum = band.sum;
            for (int i = 0; i < count; ++i)
                sum += filtered[static_cast<std::size_t>(i)] * filtered[static_cast<std::size_t>(i)];
            band.sum = sum;
            band.count += count;
        }
        if (halvings == decimators.size()) break;
        count = decimators[halvings].Run(part.data(), part.data(), count);
    }
}

void BandMeter::EndInterval(std::vector<double>& rows) {
    for (Band& band : meters) {
        if (band.count > 0) band.last = band.sum / static_cast<double>(band.count);
        rows.push_back(band.last);
        band.total += band.sum;
        band.totalCount += band.count;
        band.sum = 0.0;
        band.count = 0;
    }
    inInterval = 0;
}

double BandMeter::MeanPower(std::size_t band) const {
    const Band& meter = meters[band];
    const std::int64_t count = meter.totalCount + meter.count;
    return count == 0 ? 0.0
                      : static_cast<double>((meter.total + meter.sum) / static_cast<long double>(count));
}

}  // namespace tc
