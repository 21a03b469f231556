#pragma once

#include <vector>

namespace tc {

// Every second sample after a linear-phase low pass: to 0.1 of the incoming rate it passes all to 0.0002 dB,
// and from 0.4 of it, which is where samples at half the rate would mistake it for that, it stops 97 dB. How
// samples are shared out among calls makes no difference.
class Decimator {
 public:
    Decimator();
    // Back to silence.
    void Reset();
    // `output` must have room for (count + 1) / 2 values; answers how many it got. It may be `input`.
    int Run(const double* input, double* output, int count);

 private:
    static constexpr int TAPS = 23;

    double history[2 * TAPS] = {};  // the last samples, twice, so that they always lie together
    int next = 0;
    bool skips = false;
};

}  // namespace tc
