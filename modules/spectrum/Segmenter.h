#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// Cuts a signal, however it is cut into blocks, into segments of one length that overlap. Allocates nothing
// after `Begin`.
class Segmenter {
 public:
    // A signal begins. `hopSamples`, 1 to `length`, lie between the beginnings of two segments.
    void Begin(std::size_t length, std::size_t hopSamples) {
        segment.resize(length);
        hop = hopSamples;
        filled = 0;
        position = 0;
    }
    // Adds what there is still room for in the segment, and answers how many values that was.
    int Add(const double* values, int count) {
        const auto part = std::min(static_cast<std::size_t>(count), segment.size() - filled);
        std::copy_n(values, part, segment.data() + filled);
        filled += part;
        return static_cast<int>(part);
    }
    bool IsFull() const { return filled == segment.size(); }
    std::span<const double> Segment() const { return segment; }
    // Of its first sample, in the signal.
    std::int64_t Position() const { return position; }
    std::size_t Waiting() const { return filled; }
    // After a full segment: on to the next one.
    void Advance() {
        std::copy(segment.begin() + static_cast<std::ptrdiff_t>(hop), segment.end(), segment.begin());
        filled -= hop;
        position += static_cast<std::int64_t>(hop);
    }

 private:
    std::vector<double> segment;
    std::size_t hop = 1;
    std::size_t filled = 0;
    std::int64_t position = 0;
};
