#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

// A queue of small values, held by copy in a ring that grows by doubling and is kept: once the list has been
// as long as it ever gets, adding and removing allocates nothing. (A ring rather than linked nodes: handing a
// block to a receiver is then two stores, taking it off is one.) For one thread at a time.
template <class TYPE>
class TCList {
 public:
    TCList() = default;
    TCList(const TCList&) = delete;
    TCList& operator=(const TCList&) = delete;

    int GetCount() const { return static_cast<int>(added - removed); }
    bool IsEmpty() const { return added == removed; }

    // 0 is the head. The index is not checked.
    TYPE& operator[](int index) { return ring[(removed + static_cast<std::uint32_t>(index)) & mask]; }
    const TYPE& operator[](int index) const {
        return ring[(removed + static_cast<std::uint32_t>(index)) & mask];
    }

    // False, and the list unchanged, when there is no memory for a longer ring.
    bool AddTail(TYPE value) {
        if (!MakeRoom(1)) return false;
        Put(value);
        return true;
    }

    // Whether one more value fits without memory.
    bool HasRoom() const { return added - removed != room; }
    // Makes sure that `count` more values fit; false when there is no memory.
    bool MakeRoom(int count) {
        const std::uint32_t needed = added - removed + static_cast<std::uint32_t>(count);
        return needed <= room || Grow(needed);
    }
    // Adds where there is room; not checked.
    void Put(TYPE value) { ring[added++ & mask] = value; }

    // The list must not be empty.
    TYPE RemoveHead() { return ring[removed++ & mask]; }
    TYPE RemoveTail() { return ring[--added & mask]; }

    // Removes every value and gives the ring back.
    void RemoveAll() {
        ring.reset();
        added = removed = room = mask = 0;
    }

 private:
    static constexpr std::uint32_t FIRST_ROOM = 16;

    // Apart, so that adding stays short.
    [[gnu::noinline]] bool Grow(std::uint32_t needed) {
        const std::uint32_t newRoom = std::bit_ceil(std::max(needed, FIRST_ROOM));
        std::unique_ptr<TYPE[]> longer(new (std::nothrow) TYPE[newRoom]);
        if (longer == nullptr) return false;
        const int count = GetCount();
        for (int i = 0; i < count; ++i) longer[static_cast<std::uint32_t>(i)] = (*this)[i];
        ring = std::move(longer);
        room = newRoom;
        mask = newRoom - 1;
        removed = 0;
        added = static_cast<std::uint32_t>(count);
        return true;
    }

    std::unique_ptr<TYPE[]> ring;
    std::uint32_t added = 0;  // counts from the ring's start and wraps, as `removed` does
    std::uint32_t removed = 0;
    std::uint32_t room = 0;  // 0 or a power of two
    std::uint32_t mask = 0;
};
