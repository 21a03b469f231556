#pragma once

#include <deque>

#include "modules/common/SampleQueue.h"
#include "sigweave/signal/TCTypeInfo.h"

// What waits at an input, signal by signal. The samples lie in bounded memory (see SampleQueue).
class SignalQueue {
 public:
    struct Signal {
        TCTypeInfo metadata;       // of its first block
        std::int64_t waiting = 0;  // samples
        bool ended = false;        // nothing will be added any more
    };

    // The signal that such a block belongs to; null when it begins one, or comes after the end of one.
    const Signal* Continued(const TCTypeInfo& ti) const;
    // False when the temporary file cannot be written.
    bool Add(const TCTypeInfo& ti, const double* values, int count);
    // The signal that came first; there must be one.
    bool IsEmpty() const { return signals.empty(); }
    const Signal& Front() const { return signals.front(); }
    // Takes samples of the first signal, of which at least that many must wait. False when the temporary file
    // cannot be read.
    bool Take(double* values, std::int64_t count);
    // Drops what waits of the first signal, and answers how much that was.
    std::int64_t Drop();
    // Forgets the first signal, of which nothing may wait.
    void Pop() { signals.pop_front(); }

 private:
    std::deque<Signal> signals;
    SampleQueue samples;
};
