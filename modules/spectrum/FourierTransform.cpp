#include "modules/spectrum/FourierTransform.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <new>
#include <numeric>

namespace {

std::mutex planning;  // the library's planner serves one thread at a time

constexpr std::size_t LANES = 8;
constexpr std::size_t PIECE = 32;  // samples of each lane

// Short sums of doubles, several at once, which are added up with more digits.
long double QuickSum(std::span<const double> values) {
    long double sum = 0.0L;
    for (; values.size() >= LANES * PIECE; values = values.subspan(LANES * PIECE)) {
        double lanes[LANES] = {};
        for (std::size_t i = 0; i < LANES * PIECE; i += LANES)
            for (std::size_t lane = 0; lane < LANES; ++lane) lanes[lane] += values[i + lane];
        sum = std::accumulate(lanes, lanes + LANES, sum);
    }
    return std::accumulate(values.begin(), values.end(), sum);
}

double Mean(std::span<const double> values) {
    long double sum = QuickSum(values);
    // Finite values may be too large for that.
    if (!std::isfinite(sum)) sum = std::accumulate(values.begin(), values.end(), 0.0L);
    return static_cast<double>(sum / static_cast<long double>(values.size()));
}

// Between these the square of a magnitude keeps its digits.
constexpr double LEAST = 1e-140;
constexpr double GREATEST = 1e140;

}  // namespace

struct FourierTransform::Plan {
    explicit Plan(int length)
        : values(fftw_alloc_real(static_cast<std::size_t>(length))),
          bins(fftw_alloc_complex(static_cast<std::size_t>(length / 2 + 1))) {
        const std::lock_guard lock(planning);
        if (values == nullptr || bins == nullptr) throw std::bad_alloc();
        plan = fftw_plan_dft_r2c_1d(length, values, bins, FFTW_ESTIMATE | FFTW_PRESERVE_INPUT);
    }
    ~Plan() {
        const std::lock_guard lock(planning);
        fftw_destroy_plan(plan);
        fftw_free(bins);
        fftw_free(values);
    }
    Plan(const Plan&) = delete;
    Plan& operator=(const Plan&) = delete;

    double* values;
    fftw_complex* bins;
    fftw_plan plan = nullptr;
};

FourierTransform::FourierTransform(int transformLength)
    : length(transformLength), plan(std::make_unique<Plan>(transformLength)) {}

FourierTransform::~FourierTransform() = default;

double* FourierTransform::Input() {
    return plan->values;
}

bool FourierTransform::Place(std::span<const double> segment, std::span<const double> window) {
    const double mean = Mean(segment);
    if (!std::isfinite(mean)) return false;
    double* values = Input();
    for (std::size_t i = 0; i < segment.size(); ++i) values[i] = (segment[i] - mean) * window[i];
    return true;
}

void FourierTransform::Run(double* magnitudes) {
    std::fill_n(magnitudes, Bins(), 0.0);
    RunAndAdd(magnitudes);
    for (int k = 0; k < Bins(); ++k) magnitudes[k] = std::sqrt(magnitudes[k]);
    for (int k = 0; k < Bins(); ++k)
        if (!(magnitudes[k] >= LEAST && magnitudes[k] <= GREATEST))
            magnitudes[k] = std::hypot(plan->bins[k][0], plan->bins[k][1]);
}

void FourierTransform::RunAndAdd(double* powers) {
    fftw_execute(plan->plan);
    const fftw_complex* bins = plan->bins;
    for (int k = 0; k < Bins(); ++k) powers[k] += bins[k][0] * bins[k][0] + bins[k][1] * bins[k][1];
}

void FourierTransform::Run(std::complex<double>* bins) {
    fftw_execute(plan->plan);
    for (int k = 0; k < Bins(); ++k) bins[k] = {plan->bins[k][0], plan->bins[k][1]};
}
