#include "modules/live/RateMeter.h"

namespace live {

void RateMeter::Add(double milliseconds, std::int64_t position) {
    if (count == 0.0) {
        origin = milliseconds;
        first = position;
    }
    last = (milliseconds - origin) / 1000.0;
    const auto at = static_cast<double>(position - first);
    count += 1.0;
    const double before = last - time;
    time += before / count;
    place += (at - place) / count;
    timeSquares += before * (last - time);
    products += before * (at - place);
}

double RateMeter::Rate() const {
    return last >= 1.0 && timeSquares > 0.0 ? products / timeSquares : 0.0;
}

}  // namespace live
