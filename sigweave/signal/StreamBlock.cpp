#include <memory>

#include "sigweave/signal/SegmentIndex.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

using DataSegment = TCIOStream::DataSegment;

namespace {

constexpr int MANY = 32;  // segments, from where on an index finds them faster
constexpr int NO_INDEX = -2;

}  // namespace

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
    return (data != nullptr || type == POINTER) && Write(name, type, dims, extents, data, true);
}

bool TCIOStream::Block::AddEmptySegment(const char* name, DATATYPE type, int dims, const int* extents,
                                        void*& elements) {
    const bool plain = dims == 1 && (name == nullptr || *name == '\0') && (type == INT || type == DOUBLE);
    if (DataSegment* segment = plain ? WriteSameAgain(type, extents[0]) : nullptr) {
        elements = segment->data;
        return true;
    }
    const bool any = tc::CountElements(dims, extents) != 0;
    if (type == POINTER || !Write(name, type, dims, extents, nullptr, any)) return false;
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
    if (tc::SameText(next->name, wanted) && (next->written || !writtenOnly)) return next;
    const int found = AskIndex([&](tc::SegmentIndex& index) { return index.Find(segments, wanted); });
    if (found != NO_INDEX) {
        const bool there = found >= 0 && (segments[found]->written || !writtenOnly);
        currentSegment = there ? found : before;
        return there ? segments[found] : nullptr;
    }
    const tc::WantedName same(wanted);
    for (int left = segments.GetSize(); left > 0; --left) {
        if ((next->written || !writtenOnly) && same.IsSame(next->name)) return next;
        if (left > 1) next = Next();
    }
    return nullptr;
}

// Asks the index, which is made for many segments only; NO_INDEX when there is none.
template <typename Ask>
int TCIOStream::Block::AskIndex(Ask ask) const {
    if (segments.GetSize() < MANY) return NO_INDEX;
    return tc::Guarded(
        [&] {
            if (names == nullptr) names = std::make_unique<tc::SegmentIndex>();
            return ask(*names);
        },
        NO_INDEX);
}

DataSegment* TCIOStream::Block::WrittenAt(int number) const {
    const int place =
        AskIndex([&](tc::SegmentIndex& index) { return index.PlaceOf(segments, number, writtenCount); });
    if (place >= 0) return segments[place];
    for (DataSegment* segment : segments)
        if (segment->written && number-- == 0) return segment;
    return nullptr;
}

int TCIOStream::Block::FindChannel(const char* signal, int port) const {
    const int found = AskIndex([&](tc::SegmentIndex& index) {
        const int place = index.FindChannel(segments, signal, port);
        return place < 0 || writtenCount == segments.GetSize()
                   ? place
                   : index.NumberOf(segments, place, writtenCount);
    });
    if (found != NO_INDEX) return found;
    TCBusSerializeHelper::Parts parts;
    int number = 0;
    for (const DataSegment* segment : segments) {
        if (!segment->written) continue;
        if (TCBusSerializeHelper::SplitSegmentName(segment->name, parts) &&
            (signal != nullptr ? parts.segmentName == signal : parts.portIdx == port))
            return number;
        ++number;
    }
    return -1;
}

DataSegment* TCIOStream::Block::Open(const char* name, bool append) {
    DataSegment* found = Find(name, false);
    if (found == nullptr) {
        auto segment = std::make_unique<DataSegment>();
        segment->name = name;
        currentSegment = segments.Add(segment.get());
        return segment.release();
    }
    return !found->written || append ? found : nullptr;
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
        if (!Write(segment->name, segment->type, segment->dimensionCount, segment->dimensions.GetData(),
                   segment->data, segment->ownsData))
            return false;
    }
    return true;
}

// Nested blocks are reset when they are written again; until then nobody sees them.
void TCIOStream::Block::Reset(bool clearTypeInfo) {
    if (clearTypeInfo) typeInfoValid = false;
    forwarded = false;
    if (writtenCount == 0) return;
    if (names != nullptr) names->ForgetWritten();
    for (DataSegment* segment : segments) segment->written = false;
    writtenCount = 0;
}
