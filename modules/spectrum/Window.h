#pragma once

#include <vector>

namespace tc {

// The words of a setting that chooses a window.
inline constexpr const char* WINDOWS = "hann|rectangular|hamming|blackman|flattop|kaiser";

// The weights of the window with that position among the words, in its periodic form, of which the middle is
// 1. `beta` counts for the Kaiser window.
std::vector<double> MakeWindow(int choice, double beta, int length);

}  // namespace tc
