#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace host {

// A set of small numbers whose largest is found fast.
class PositionSet {
 public:
    explicit PositionSet(int size) : words(static_cast<std::size_t>(size + 63) / 64) {}
    void Add(int position) { Word(position) |= Bit(position); }
    void Remove(int position) { Word(position) &= ~Bit(position); }
    // -1 when the set is empty.
    int Largest() const {
        for (std::size_t index = words.size(); index-- > 0;)
            if (words[index] != 0) return static_cast<int>(index * 64) + 63 - std::countl_zero(words[index]);
        return -1;
    }

 private:
    static std::uint64_t Bit(int position) { return std::uint64_t{1} << (position & 63); }
    std::uint64_t& Word(int position) { return words[static_cast<std::size_t>(position >> 6)]; }

    std::vector<std::uint64_t> words;
};

}  // namespace host
