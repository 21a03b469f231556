#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "sigweave/services/Bilingual.h"

namespace tc {

// What to report when samples could not be added, or the queue is broken.
inline constexpr Bilingual QUEUE_FAILED(
    "the temporary file for signals that are ahead of others cannot be written and read",
    "die temporäre Datei für Signale, die anderen voraus sind, ist nicht schreib- und lesbar");

}  // namespace tc

// Samples in the order of their arrival, any number in bounded memory: what is too much for it waits in an
// unnamed temporary file.
class SampleQueue {
 public:
    // False when the temporary file cannot be made or written.
    bool Add(const double* values, std::size_t count);
    std::int64_t Waiting() const { return waiting; }
    // At least that many must be waiting.
    void Take(double* values, std::size_t count);
    double Take();
    // True once the temporary file could not be read; what was taken since is NaN.
    bool IsBroken() const { return broken; }

 private:
    struct Closer {
        void operator()(std::FILE* opened) const { std::fclose(opened); }
    };

    bool Spill(const double* values, std::size_t count);
    void Fetch();

    std::vector<double> memory;
    std::size_t next = 0;  // the first of `memory` that was not taken
    std::unique_ptr<std::FILE, Closer> file;
    std::int64_t fileBegin = 0;  // in samples
    std::int64_t fileEnd = 0;
    std::int64_t waiting = 0;
    bool broken = false;
};
