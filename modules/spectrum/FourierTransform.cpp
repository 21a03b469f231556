#include "modules/spectrum/FourierTransform.h"

#include <fftw3.h>

#include <cmath>
#include <mutex>
#include <new>
#include <numeric>

namespace {

std::mutex planning;  // the library's planner serves one thread at a time

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
    const long double sum = std::accumulate(segment.begin(), segment.end(), 0.0L);
    const auto mean = static_cast<double>(sum / static_cast<long double>(segment.size()));
    if (!std::isfinite(mean)) return false;
    double* values = Input();
    for (std::size_t i = 0; i < segment.size(); ++i) values[i] = (segment[i] - mean) * window[i];
    return true;
}

void FourierTransform::Run(double* magnitudes) {
    fftw_execute(plan->plan);
    for (int k = 0; k < Bins(); ++k) magnitudes[k] = std::hypot(plan->bins[k][0], plan->bins[k][1]);
}

void FourierTransform::Run(std::complex<double>* bins) {
    fftw_execute(plan->plan);
    for (int k = 0; k < Bins(); ++k) bins[k] = {plan->bins[k][0], plan->bins[k][1]};
}
