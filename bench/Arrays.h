#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Three arrays on cache lines, as the values in blocks are, that begin at different places of a page: luck in
// either would decide a comparison.
class Arrays {
 public:
    // Each has room for `size` values, the last one for `more` on top. All are 1.
    explicit Arrays(std::size_t size, std::size_t more = 0)
        : step((size / 512 + 1) * 512 + 136), memory(3 * step + more + 8, 1.0) {
        while (reinterpret_cast<std::uintptr_t>(memory.data() + offset) % 64 != 0) ++offset;
    }
    double* operator[](std::size_t index) { return memory.data() + offset + index * step; }
    std::vector<double>& All() { return memory; }

 private:
    std::size_t step;  // a multiple of 8
    std::size_t offset = 0;
    std::vector<double> memory;
};
