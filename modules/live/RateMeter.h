#pragma once

#include <cstdint>

namespace live {

// The rate of a device by another clock: the slope of the line that fits its positions best.
class RateMeter {
 public:
    // The device had reached that position at that time.
    void Add(double milliseconds, std::int64_t position);
    // Positions a second; 0 before a second has passed.
    double Rate() const;

 private:
    double origin = 0.0;  // ms
    std::int64_t first = 0;
    double count = 0.0;
    double time = 0.0;  // means, in seconds and positions from the first on
    double place = 0.0;
    double last = 0.0;
    double timeSquares = 0.0;  // sums of products of deviations from the means
    double products = 0.0;
};

}  // namespace live
