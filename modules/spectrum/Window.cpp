#include "modules/spectrum/Window.h"

#include <cmath>
#include <numbers>

namespace tc {

namespace {

// a0 - a1 cos(x) + a2 cos(2x) - a3 cos(3x) + a4 cos(4x), in the order of the kinds. There are several
// windows called flat top; this one is by D'Antona and Ferrero.
constexpr double WINDOW_COEFFICIENTS[][5] = {{0.5, 0.5},
                                             {1.0},
                                             {0.54, 0.46},
                                             {0.42, 0.5, 0.08},
                                             {0.21557895, 0.41663158, 0.277263158, 0.083578947, 0.006947368}};

std::vector<double> MakeKaiserWindow(double beta, int length) {
    std::vector<double> window(static_cast<std::size_t>(length));
    for (std::size_t i = 0; i < window.size(); ++i) {
        const double place = 2.0 * static_cast<double>(i) / length - 1.0;
        window[i] =
            std::cyl_bessel_i(0.0, beta * std::sqrt(1.0 - place * place)) / std::cyl_bessel_i(0.0, beta);
    }
    return window;
}

}  // namespace

std::vector<double> MakeWindow(Window kind, double beta, int length) {
    if (kind == Window::KAISER) return MakeKaiserWindow(beta, length);
    const double* a = WINDOW_COEFFICIENTS[static_cast<std::size_t>(kind)];
    std::vector<double> window(static_cast<std::size_t>(length));
    for (std::size_t i = 0; i < window.size(); ++i) {
        const double x = 2.0 * std::numbers::pi * static_cast<double>(i) / length;
        window[i] = a[0] - a[1] * std::cos(x) + a[2] * std::cos(2.0 * x) - a[3] * std::cos(3.0 * x) +
                    a[4] * std::cos(4.0 * x);
    }
    return window;
}

}  // namespace tc
