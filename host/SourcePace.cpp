#include "host/SourcePace.h"

#include <algorithm>
#include <cmath>

namespace host {

void Intervals::Add(double milliseconds) {
    ++count;
    const double before = milliseconds - average;
    average += before / count;
    squares += before * (milliseconds - average);
    maximum = std::max(maximum, milliseconds);
}

double Intervals::StandardDeviation() const {
    return count > 0 ? std::sqrt(squares / count) : 0.0;
}

void SourcePace::Wait(void* stop) {
    if (signal == 0.0) {
        previous = clock.Milliseconds();
        return;
    }
    if (!isNew || !clock.WaitUntil(origin + signal, stop)) return;
    isNew = false;
    const double now = clock.Milliseconds();
    intervals.Add(now - previous);
    previous = now;
}

void SourcePace::HasMade(double milliseconds) {
    if (!(milliseconds > signal)) return;
    if (signal == 0.0) origin = clock.Milliseconds();
    signal = milliseconds;
    isNew = true;
}

}  // namespace host
