#pragma once

#include <memory>

#include "sigweave/platform/Export.h"

namespace tc {

// The time at which a run began, the same for all modules of the process that hold it at once: sources whose
// signals have no start time of their own then begin together. Any thread.
class TC_API RunTime {
 public:
    // Called in `Init`: takes the time that others hold, else the current one.
    void Take();
    // Called by a host, before it starts a run that is to have the time of an earlier one: takes the time
    // that others hold, else this one. [milliseconds since 1970-01-01 00:00 UTC]
    void Take(double known);
    // Called in `Done`. The time ends with its last holder.
    void Release() { time.reset(); }
    // Milliseconds since 1970-01-01 00:00 UTC; 0 while it is not held.
    double Get() const { return time != nullptr ? *time : 0.0; }

 private:
    std::shared_ptr<const double> time;
};

}  // namespace tc
