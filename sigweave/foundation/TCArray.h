#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "sigweave/platform/Export.h"

// A growable array of values, the list type of the interface. It owns its elements. Elements are constructed
// when they come into use and destroyed when they leave it; storage is given back only by a size of 0, by
// `RemoveAll` with `freeMemory`, and by the destructor, so an array that is filled again and again allocates
// nothing.
//
// Pointers, references and iterators that it hands out are valid until the array grows beyond its storage
// (GetAllocSize), gives the storage back, or is assigned to, moved from or destroyed. Removing elements moves
// the ones after them, so what pointed there then shows another element, or none.
//
// ARG_TYPE is the type of the parameter of `Add`. Indexes are not checked; use one thread at a time.
//
// Field order and the order of the two virtual operations are part of the binary interface.
template <class TYPE, class ARG_TYPE = const TYPE&>
class TCArray {
 public:
    TCArray() = default;
    TCArray(const TCArray& other) { Assign(other); }
    TCArray(TCArray&& other) noexcept { Swap(other); }
    TCArray& operator=(const TCArray& other) {
        if (this != &other) Assign(other);
        return *this;
    }
    TCArray& operator=(TCArray&& other) noexcept {
        Swap(other);
        return *this;
    }

    // The number of elements to add when the storage must grow: `growBy`, or an eighth of the size, at least
    // 4 and at most 1024, when that is 0.
    virtual int GetGrowBy() const { return growBy != 0 ? growBy : std::clamp(size / 8, 4, 1024); }
    virtual ~TCArray() { Release(); }

    int GetSize() const { return size; }
    int GetAllocSize() const { return maxSize; }
    bool IsEmpty() const { return size == 0; }

    // Null while there is no storage.
    TYPE* GetData() { return data; }
    const TYPE* GetData() const { return data; }
    TYPE& operator[](int index) { return data[index]; }
    const TYPE& operator[](int index) const { return data[index]; }

    TYPE* begin() { return data; }
    TYPE* end() { return data + size; }
    const TYPE* begin() const { return data; }
    const TYPE* end() const { return data + size; }

    // Sets the number of elements; added ones are zero or default-constructed. 0 releases the storage, -1
    // empties the array and keeps it. The first storage is for exactly `newSize` elements; then it grows by
    // the growth step, or to `newSize` when that is more. `newGrowBy` -1 keeps the step.
    void SetSize(int newSize, int newGrowBy = -1);

    // Appends one element and answers its index.
    int Add(ARG_TYPE element) {
        TYPE copy(element);  // the argument may lie in this array
        const int index = size;
        SetSize(size + 1);
        data[index] = std::move(copy);
        return index;
    }

    // Removes `count` elements (none below 1) from `index` on, keeping the order of the others. The range
    // must lie in the array.
    void RemoveAt(int index, int count = 1) {
        if (count < 1) return;
        std::move(data + index + count, data + size, data + index);
        const int left = size - count;
        SetSize(left > 0 ? left : -1);
    }

    // Empties the array, by default keeping its storage.
    void RemoveAll(bool freeMemory = false) { SetSize(freeMemory ? 0 : -1); }

 private:
    static TYPE* Allocate(int count) {
        return static_cast<TYPE*>(
            ::operator new (static_cast<std::size_t>(count) * sizeof(TYPE), std::align_val_t{alignof(TYPE)}));
    }
    static void Deallocate(TYPE* storage) { ::operator delete (storage, std::align_val_t{alignof(TYPE)}); }

    void Release() {
        std::destroy_n(data, size);
        Deallocate(data);
        data = nullptr;
        size = maxSize = 0;
    }

    void Grow(int newSize) {
        const std::int64_t stepped = maxSize == 0 ? newSize : std::int64_t{maxSize} + GetGrowBy();
        const int newMax = static_cast<int>(std::clamp<std::int64_t>(stepped, newSize, INT32_MAX));
        TYPE* storage = Allocate(newMax);
        std::uninitialized_move_n(data, size, storage);
        std::destroy_n(data, size);
        Deallocate(data);
        data = storage;
        maxSize = newMax;
    }

    void Assign(const TCArray& other) {
        SetSize(-1, other.growBy);
        if (other.size == 0) return;
        SetSize(other.size);
        std::copy_n(other.data, other.size, data);
    }

    void Swap(TCArray& other) noexcept {
        std::swap(data, other.data);
        std::swap(size, other.size);
        std::swap(maxSize, other.maxSize);
        std::swap(growBy, other.growBy);
    }

    TYPE* data = nullptr;
    std::int32_t size = 0;
    std::int32_t maxSize = 0;
    std::int32_t growBy = 0;
};

template <class TYPE, class ARG_TYPE>
void TCArray<TYPE, ARG_TYPE>::SetSize(int newSize, int newGrowBy) {
    if (newGrowBy != -1) growBy = newGrowBy;
    if (newSize == 0) {
        Release();
        return;
    }
    const int kept = std::max(newSize, 0);
    if (kept > maxSize) Grow(kept);
    const int used = std::max<int>(size, 0);  // shows the optimiser that it is not negative
    if (kept > used)
        std::uninitialized_value_construct(data + used, data + kept);
    else
        std::destroy(data + kept, data + used);
    size = kept;
}

// The table of virtual operations, the storage and three 32-bit numbers.
static_assert(sizeof(TCArray<char>) == 32 && sizeof(TCArray<double, double>) == 32);
