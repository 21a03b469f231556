#include "sigweave/services/RunTime.h"

#include <mutex>

#include "sigweave/services/SystemTime.h"

namespace tc {

void RunTime::Take() {
    Take(TCSystemTime());
}

void RunTime::Take(double known) {
    static std::mutex lock;
    static std::weak_ptr<const double> held;
    const std::lock_guard guard(lock);
    time.reset();
    time = held.lock();
    if (time == nullptr) held = time = std::make_shared<const double>(known);
}

}  // namespace tc
