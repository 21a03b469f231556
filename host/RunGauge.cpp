#include "host/RunGauge.h"

#include <chrono>

namespace host {

bool RunGauge::Ask(RunFigures& figures, int milliseconds) {
    std::unique_lock lock(mutex);
    asked = true;
    const bool done =
        answered.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] { return !asked.load(); });
    if (done) figures = answer;
    return done;
}

}  // namespace host
