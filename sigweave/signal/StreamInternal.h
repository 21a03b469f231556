#pragma once

#include <cstdint>
#include <cstring>
#include <new>

#include "sigweave/foundation/TCList.h"
#include "sigweave/signal/TCIOStream.h"

inline TCIOStream::DataSegment* TCIOStream::Block::At(int index) const {
    if (index < 0 || index >= writtenCount) return nullptr;
    return writtenCount == segments.GetSize() ? segments[index] : WrittenAt(index);
}

inline TCIOStream::DataSegment* TCIOStream::Block::WriteSameAgain(DATATYPE type, int count) {
    if (segments.GetSize() != 1 || writtenCount != 0) return nullptr;
    DataSegment* segment = segments[0];
    const bool fits = segment->ownsData && segment->type == type && segment->dimensionCount == 1 &&
                      count > 0 && count <= segment->capacity && segment->name.IsEmpty();
    if (!fits) return nullptr;
    segment->dimensions[0] = segment->elementCount = count;
    segment->written = true;
    writtenCount = 1;
    return segment;
}

inline void TCIOStream::Release(Block* block) {
    if (--block->referenceCount == 0) block->home->AddBlockToFreeList(block);
}

inline TCIOStream::Block* TCIOStream::QueuedBlock(int index) const {
    return index >= 0 && index < queue.GetCount() ? queue[index] : nullptr;
}

// Takes the next block without lowering its count; null when there is none.
inline TCIOStream::Block* TCIOStream::TakeBlock() {
    if (!isInput) return nullptr;
    return actualBlock = queue.IsEmpty() ? nullptr : queue.RemoveHead();
}

inline bool TCIOStream::RemoveBlock() {
    Block* block = TakeBlock();
    if (block == nullptr) return false;
    Release(block);
    return true;
}

inline int TCIOStream::ReserveBlock(bool clearTypeInfo) {
    if (!CanWrite()) return 0;
    return actualBlock != nullptr ? 1 : ReserveNewBlock(clearTypeInfo);
}

namespace tc {

// The negative results of stream operations.
inline constexpr int OTHER_TYPE = -2;
inline constexpr int STATE_CONFLICT = -4;
inline constexpr int NOT_WRITTEN = -14;

// Levels of nested blocks that leave the process or come into it.
inline constexpr int MOST_LEVELS = 32;
// The same for XML documents: a block takes four levels of elements, and a document may have 1024.
inline constexpr int MOST_XML_LEVELS = 255;
inline constexpr char XML_TOO_DEEP[] = "Blocks are nested more than 255 levels deep";

// Whether elements of that type have values that mean something outside the process.
inline bool HasValues(int type) {
    return type >= int{TCIOStream::INT} && type <= int{TCIOStream::BLOCK} && type != int{TCIOStream::POINTER};
}

// The product of the extents, 1 without any; -1 for a negative extent or more elements than an int holds.
inline int CountElements(int dims, const int* extents) {
    std::int64_t count = 1;
    for (int i = 0; i < dims; ++i) {
        if (extents[i] < 0) return -1;
        count *= extents[i];
        if (count > INT32_MAX) return -1;
    }
    return static_cast<int>(count);
}

// The same for shapes that were read; here no extents are no elements, as in a segment.
inline int CountStored(int dims, const int* extents) {
    return dims == 0 ? 0 : CountElements(dims, extents);
}

inline bool SameText(const char* a, const char* b) {
    return *a == *b && (*a == '\0' || std::strcmp(a, b) == 0);
}

// The result of `work`, or `otherwise` when there is no memory.
template <typename Work, typename Result>
Result Guarded(Work&& work, Result otherwise) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return otherwise;
    }
}

}  // namespace tc
