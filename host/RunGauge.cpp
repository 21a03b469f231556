#include "host/RunGauge.h"

#include <chrono>

namespace host {

bool RunGauge::Ask(RunFigures& figures, int milliseconds) {
    std::unique_lock lock(mutex);
    const std::uint64_t before = answers;
    ++waiting;
    asked = true;
    asking.Set();
    const bool done =
        answered.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] { return answers != before; });
    if (--waiting == 0) {  // also a question that nobody answered is over
        asked = false;
        asking.Reset();
    }
    if (done) figures = answer;
    return done;
}

}  // namespace host
