#include "modules/octave/Decimator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace tc {

namespace {

constexpr int REACH = 11;  // samples on each side of the middle
constexpr double KAISER_BETA = 10.0;

// Of the odd distances 1, 3 ... from the middle, whose own weight is one half; even ones have none.
std::array<double, (REACH + 1) / 2> MakeWeights() {
    std::array<double, (REACH + 1) / 2> weights;
    double sum = 0.0;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        const double distance = 2.0 * static_cast<double>(i) + 1.0;
        const double part = distance / REACH;
        const double window = std::cyl_bessel_i(0.0, KAISER_BETA * std::sqrt(1.0 - part * part)) /
                              std::cyl_bessel_i(0.0, KAISER_BETA);
        weights[i] = (i % 2 == 0 ? 1.0 : -1.0) / (std::numbers::pi * distance) * window;
        sum += weights[i];
    }
    for (double& weight : weights) weight *= 0.25 / sum;
    return weights;
}

const auto WEIGHTS = MakeWeights();

}  // namespace

Decimator::Decimator() = default;

void Decimator::Reset() {
    *this = Decimator();
}

int Decimator::Run(const double* input, double* output, int count) {
    int made = 0;
    for (int i = 0; i < count; ++i) {
        history[next] = history[next + TAPS] = input[i];
        next = next + 1 == TAPS ? 0 : next + 1;
        skips = !skips;
        if (!skips) continue;
        const double* middle = &history[next + REACH];
        double sum = 0.5 * *middle;
        for (int k = 0; k < static_cast<int>(WEIGHTS.size()); ++k)
            sum += WEIGHTS[static_cast<std::size_t>(k)] * (middle[-2 * k - 1] + middle[2 * k + 1]);
        output[made++] = sum;
    }
    return made;
}

}  // namespace tc
