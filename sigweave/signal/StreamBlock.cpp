#include <cstring>
#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

using DataSegment = TCIOStream::DataSegment;

namespace {

constexpr int MANY = 32;  // segments, from where on an index finds them faster
constexpr int NO_INDEX = -2;

bool SameText(const char* a, const char* b) {
    return *a == *b && (*a == '\0' || std::strcmp(a, b) == 0);
}

// The port index in front of a bus name, -1 when it does not begin with a digit or has too many.
int LeadingIndex(const char* name) {
    constexpr int MOST_DIGITS = 9;
    int index = *name >= '0' && *name <= '9' ? 0 : -1;
    for (int i = 0; i < MOST_DIGITS && *name >= '0' && *name <= '9'; ++i)
        index = index * 10 + (*name++ - '0');
    return *name >= '0' && *name <= '9' ? -1 : index;
}

// Compares many names with one. Most other channels are told apart by their index alone.
class WantedName {
 public:
    explicit WantedName(const char* wanted)
        : name(wanted), isBus(std::strchr(wanted, '\r') != nullptr), index(LeadingIndex(wanted)) {}

    bool IsSame(const char* other) const {
        if (SameText(other, name)) return true;
        const int otherIndex = isBus ? LeadingIndex(other) : -1;
        if (!isBus || (index >= 0 && otherIndex >= 0 && index != otherIndex)) return false;
        return TCBusSerializeHelper::CompareSegmentNames(other, name) == 0;
    }

 private:
    const char* name;
    bool isBus;
    int index;
};

}  // namespace

// Finds one of many segments, with the same answer as a comparison with every one of them.
class tc::SegmentIndex {
 public:
    // Where the segment of that name stands, or -1.
    int Find(const TCArray<DataSegment*>& segments, const char* name) {
        Learn(segments);
        const WantedName same(name);
        const auto [first, last] = places.equal_range(HashOf(name));
        for (auto place = first; place != last; ++place)
            if (same.IsSame(segments[place->second]->GetName())) return place->second;
        return -1;
    }

    // To be told before two segments change places.
    void Swap(const TCArray<DataSegment*>& segments, int a, int b) {
        Learn(segments);
        int& placeOfA = PlaceOf(segments, a);
        PlaceOf(segments, b) = a;
        placeOfA = b;
    }

 private:
    void Learn(const TCArray<DataSegment*>& segments) {
        for (; known < segments.GetSize(); ++known) places.emplace(HashOf(segments[known]->GetName()), known);
    }

    int& PlaceOf(const TCArray<DataSegment*>& segments, int index) {
        auto place = places.find(HashOf(segments[index]->GetName()));
        while (place->second != index) ++place;
        return place->second;
    }

    // The same for names that count as the same.
    static std::size_t HashOf(const char* name) {
        const std::hash<std::string_view> hash;
        TCBusSerializeHelper::Parts parts;
        if (!TCBusSerializeHelper::SplitSegmentName(name, parts)) return hash(name);
        return hash(parts.segmentName) + static_cast<std::size_t>(parts.portIdx);
    }

    std::unordered_multimap<std::size_t, int> places;
    int known = 0;
};

TCIOStream::Block::Block() = default;

TCIOStream::Block::~Block() {
    for (DataSegment* segment : segments) delete segment;
    delete typeInfo;
}

bool TCIOStream::Block::SetTI(const TCTypeInfo* ti) {
    typeInfoValid = false;
    if (ti == nullptr) return true;
    typeInfoValid = tc::Guarded(
        [&] {
            if (typeInfo == nullptr) typeInfo = new TCTypeInfo;
            *typeInfo = *ti;
            return true;
        },
        false);
    return typeInfoValid;
}

int TCIOStream::Block::SegmentCnt() const {
    return writtenCount;
}

const DataSegment* TCIOStream::Block::Segment(int index) const {
    return At(index);
}

bool TCIOStream::Block::AddSegment(const char* name, DATATYPE type, int dims, const int* extents,
                                   const void* data) {
    return (data != nullptr || type == POINTER) && WriteNext(name, type, dims, extents, data, true);
}

bool TCIOStream::Block::AddEmptySegment(const char* name, DATATYPE type, int dims, const int* extents,
                                        void*& elements) {
    const bool plain = dims == 1 && (name == nullptr || *name == '\0') && (type == INT || type == DOUBLE);
    if (DataSegment* segment = plain ? SameAgain(type, extents[0]) : nullptr) {
        segment->dimensions[0] = segment->elementCount = extents[0];
        Close(*segment);
        elements = segment->data;
        return true;
    }
    const bool any = tc::CountElements(dims, extents) != 0;
    if (type == POINTER || !WriteNext(name, type, dims, extents, nullptr, any)) return false;
    elements = segments[currentSegment]->data;
    return true;
}

DataSegment* TCIOStream::Block::Next() {
    if (++currentSegment >= segments.GetSize()) currentSegment = 0;
    return segments[currentSegment];
}

DataSegment* TCIOStream::Block::Find(const char* name, bool writtenOnly) {
    const char* wanted = name != nullptr ? name : "";
    if (segments.IsEmpty()) return nullptr;
    const int before = currentSegment;
    DataSegment* next = Next();
    if (SameText(next->name, wanted) && (next->written || !writtenOnly)) return next;
    const int found = segments.GetSize() >= MANY ? FindIndexed(wanted) : NO_INDEX;
    if (found != NO_INDEX) {
        const bool there = found >= 0 && (segments[found]->written || !writtenOnly);
        currentSegment = there ? found : before;
        return there ? segments[found] : nullptr;
    }
    const WantedName same(wanted);
    for (int left = segments.GetSize(); left > 0; --left) {
        if ((next->written || !writtenOnly) && same.IsSame(next->name)) return next;
        if (left > 1) next = Next();
    }
    return nullptr;
}

int TCIOStream::Block::FindIndexed(const char* name) {
    return tc::Guarded(
        [&] {
            if (names == nullptr) names = std::make_unique<tc::SegmentIndex>();
            return names->Find(segments, name);
        },
        NO_INDEX);
}

DataSegment* TCIOStream::Block::Open(const char* name, bool append) {
    DataSegment* found = Find(name, false);
    if (found == nullptr) {
        auto segment = std::make_unique<DataSegment>();
        segment->name = name;
        currentSegment = segments.Add(segment.get());
        return segment.release();
    }
    if (found->written) return append ? found : nullptr;
    // A bus channel is found by its number and signal name; its other texts may have changed.
    if (name != nullptr && !SameText(found->name, name)) found->name = name;
    return found;
}

void TCIOStream::Block::Close(DataSegment& segment) {
    if (!segment.written) ++writtenCount;
    segment.written = true;
}

bool TCIOStream::Block::Write(const char* name, DATATYPE type, int dims, const int* extents, const void* data,
                              bool copy) {
    return tc::Guarded(
        [&] {
            DataSegment* segment = Open(name, false);
            if (segment == nullptr || !segment->SetData(type, dims, extents, data, copy)) return false;
            Close(*segment);
            return true;
        },
        false);
}

bool TCIOStream::Block::WriteNext(const char* name, DATATYPE type, int dims, const int* extents,
                                  const void* data, bool copy) {
    if (!Write(name, type, dims, extents, data, copy)) return false;
    const int place = writtenCount - 1;
    if (currentSegment == place || segments[place]->written) return true;
    const auto swapNames = [&] {
        if (names != nullptr) names->Swap(segments, currentSegment, place);
        return true;
    };
    if (!tc::Guarded(swapNames, false)) names = nullptr;
    std::swap(segments[currentSegment], segments[place]);
    currentSegment = place;
    return true;
}

bool TCIOStream::Block::Append(const char* name, DATATYPE type, int dims, const int* extents,
                               const void* data, bool copy, const TCTypeInfo* ti) {
    return tc::Guarded(
        [&] {
            DataSegment* channel = Open(name, true);
            if (channel == nullptr || (channel->written && !channel->OwnsBlocks())) return false;
            int count = channel->written ? channel->GetElementCount() : 0;
            Block* block = channel->OwnBlock(count++);
            block->Reset(true);
            if (!block->SetTI(ti) || !block->Write("", type, dims, extents, data, copy)) return false;
            channel->SetShape(BLOCK, 1, &count);
            Close(*channel);
            return true;
        },
        false);
}

bool TCIOStream::Block::CopyFrom(const Block& source, const TCTypeInfo* ti) {
    if (!SetTI(ti)) return false;
    for (const DataSegment* segment : source.segments) {
        if (!segment->written) continue;
        if (!WriteNext(segment->name, segment->type, segment->dimensionCount, segment->dimensions.GetData(),
                       segment->data, segment->ownsData))
            return false;
    }
    return true;
}

// Nested blocks are reset when they are written again; until then nobody sees them.
void TCIOStream::Block::Reset(bool clearTypeInfo) {
    if (clearTypeInfo) typeInfoValid = false;
    if (writtenCount == 0) return;
    for (DataSegment* segment : segments) segment->written = false;
    writtenCount = 0;
}
