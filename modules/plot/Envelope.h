#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

// The outline of a signal of any length in bounded memory: the least and the greatest value of each of a
// limited number of equal stretches. When all are full, neighbours merge in pairs and each covers twice
// as many samples, so that a single spike stays visible however long the signal gets.
class Envelope {
 public:
    struct Stretch {
        double minimum = std::numeric_limits<double>::infinity();
        double maximum = -std::numeric_limits<double>::infinity();

        // No finite value fell into it.
        bool IsEmpty() const { return minimum > maximum; }
        void Add(const Stretch& other);
    };

    // `limit` is the greatest number of stretches, an even one.
    explicit Envelope(std::size_t limit) : most(limit) {}

    // Values that are no finite numbers are counted and leave a gap.
    void Add(const double* values, std::size_t count);
    void Clear();

    const std::vector<Stretch>& Stretches() const { return stretches; }
    // The last stretch may hold fewer.
    std::int64_t SamplesPerStretch() const { return perStretch; }
    std::int64_t Samples() const { return samples; }
    std::int64_t NotFinite() const { return notFinite; }
    // Over all samples.
    Stretch Extremes() const;

 private:
    void MergePairs();

    std::size_t most;
    std::vector<Stretch> stretches;
    std::int64_t perStretch = 1;
    std::int64_t inLast = 0;
    std::int64_t samples = 0;
    std::int64_t notFinite = 0;
};
