#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>

#include "sigweave/signal/StreamInternal.h"

namespace {

// Blocks that lie a few bytes apart modulo 4096 would make copies between them three times slower. Few
// numbers are copied fast anyway, and so aligned they would share their places in the cache.
constexpr std::size_t CACHE_LINE = 64;
constexpr std::size_t FEW = 64;

std::align_val_t AlignmentOf(std::size_t count) {
    return std::align_val_t{count > FEW ? CACHE_LINE : __STDCPP_DEFAULT_NEW_ALIGNMENT__};
}

template <typename Number>
Number* NewNumbers(std::size_t count) {
    return new (AlignmentOf(count)) Number[count];
}

void DeleteNumbers(void* numbers, int count) {
    ::operator delete[](numbers, AlignmentOf(static_cast<std::size_t>(count)));
}

// Without a source, texts become empty; numbers are left for the caller to set.
template <typename Element>
void FillWith(void* storage, const void* source, int count) {
    auto* elements = static_cast<Element*>(storage);
    if (source != nullptr)
        std::copy_n(static_cast<const Element*>(source), count, elements);
    else if constexpr (std::is_same_v<Element, TCString>)
        for (int i = 0; i < count; ++i) elements[i].Empty(false);
}

}  // namespace

TCIOStream::DataSegment::~DataSegment() {
    Free();
}

bool TCIOStream::DataSegment::SetData(DATATYPE newType, int dims, const int* extents, const void* source,
                                      bool copy) {
    const int count = tc::CountElements(dims, extents);
    const bool owned = copy && newType != POINTER;
    if (newType == UNDEF || newType > BLOCK || count < 0 || (owned && count == 0)) return false;
    if (!owned) {
        if (source == nullptr && newType != POINTER && count > 0) return false;
        if (ownsData) Free();
        SetShape(newType, dims, extents);
        data = const_cast<void*>(source);
        return true;
    }
    if (OwnsBlocks() && count != elementCount) Free();
    Storage(newType, count);
    SetShape(newType, dims, extents);
    return Fill(count, source);
}

void TCIOStream::DataSegment::SetShape(DATATYPE newType, int dims, const int* extents) {
    const int count = std::max(dims, 0);
    if (dimensions.GetSize() != count + 1) dimensions.SetSize(count + 1);
    for (int i = 0; i < count; ++i) dimensions[i] = extents[i];
    dimensions[count] = 0;
    dimensionCount = count;
    elementCount = count == 0 ? 0 : tc::CountElements(count, extents);
    type = newType;
}

// Makes sure that the segment owns storage for `count` elements of the type.
void* TCIOStream::DataSegment::Storage(DATATYPE newType, int count) {
    if (ownsData && type == newType && capacity >= count) return data;
    if (!ownsData || type != newType || newType != BLOCK) Free();
    const auto size = static_cast<std::size_t>(count);
    if (newType == INT) data = NewNumbers<int>(size);
    if (newType == DOUBLE) data = NewNumbers<double>(size);
    if (newType == STRING) data = new TCString[size];
    if (newType == BLOCK) {
        auto* blocks = new Block* [size] {};
        if (ownsData) std::copy_n(static_cast<Block**>(data), capacity, blocks);
        if (ownsData) delete[] static_cast<Block**>(data);
        data = blocks;
    }
    type = newType;
    ownsData = true;
    capacity = count;
    return data;
}

bool TCIOStream::DataSegment::Fill(int count, const void* source) {
    if (type == INT) FillWith<int>(data, source, count);
    if (type == DOUBLE) FillWith<double>(data, source, count);
    if (type == STRING) FillWith<TCString>(data, source, count);
    if (type != BLOCK) return true;
    auto* const* from = static_cast<Block* const*>(source);
    for (int i = 0; i < count; ++i) {
        Block* block = OwnBlock(i);
        block->Reset(true);
        if (from != nullptr && (from[i] == nullptr || !block->CopyFrom(*from[i], from[i]->GetTI())))
            return false;
    }
    return true;
}

TCIOStream::Block* TCIOStream::DataSegment::OwnBlock(int index) {
    const int room = OwnsBlocks() ? capacity : 0;
    if (index >= room) Storage(BLOCK, std::max(index + 1, 2 * room));
    Block*& block = static_cast<Block**>(data)[index];
    if (block == nullptr) block = new Block;
    return block;
}

TCIOStream::Block* TCIOStream::DataSegment::BlockAtCursor() const {
    const bool there = type == BLOCK && dimensionCount == 1 && Cursor() >= 0 && Cursor() < dimensions[0];
    return there ? GetBlocks()[Cursor()] : nullptr;
}

void TCIOStream::DataSegment::Free() {
    if (ownsData && (type == INT || type == DOUBLE)) DeleteNumbers(data, capacity);
    if (ownsData && type == STRING) delete[] static_cast<TCString*>(data);
    if (ownsData && type == BLOCK) {
        auto** blocks = static_cast<Block**>(data);
        for (int i = 0; i < capacity; ++i) delete blocks[i];
        delete[] blocks;
    }
    data = nullptr;
    type = UNDEF;
    ownsData = false;
    capacity = 0;
    dimensionCount = elementCount = 0;
}
