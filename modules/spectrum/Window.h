#pragma once

#include <vector>

#include "sigweave/module/TCModuleParameter.h"

namespace tc {

enum class Window { HANN, RECTANGULAR, HAMMING, BLACKMAN, FLATTOP, KAISER };

// Of a setting that chooses a window.
inline constexpr Choice<Window> WINDOWS[] = {
    {"hann", Window::HANN},         {"rectangular", Window::RECTANGULAR}, {"hamming", Window::HAMMING},
    {"blackman", Window::BLACKMAN}, {"flattop", Window::FLATTOP},         {"kaiser", Window::KAISER}};

// The weights of the window in its periodic form, of which the middle is 1. `beta` counts for the Kaiser
// window.
std::vector<double> MakeWindow(Window kind, double beta, int length);

}  // namespace tc
