#include <algorithm>

#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

const TCString NO_NAME;

using Segment = TCIOStream::DataSegment;

const int* Elements(const Segment& segment, const int*) {
    return segment.GetInts();
}

const double* Elements(const Segment& segment, const double*) {
    return segment.GetDoubles();
}

const TCString* Elements(const Segment& segment, const TCString*) {
    return segment.GetStrings();
}

const TCString* Elements(const Segment& segment, const CString*) {
    return segment.GetStrings();
}

template <typename Value>
void CopyElements(const Value* elements, int count, Value* values) {
    std::copy_n(elements, count, values);
}

void CopyElements(const TCString* elements, int count, CString* values) {
    for (int i = 0; i < count; ++i)
        values[i].assign(elements[i], static_cast<std::size_t>(elements[i].GetLength()));
}

// The last `count` elements of the segment; a negative `count` means all of them.
template <typename Value>
int CopyLast(const Segment& segment, Value* values, int count) {
    const auto* elements = Elements(segment, values);
    if (elements == nullptr) return 0;
    const int size = segment.GetElementCount();
    const int copied = count < 0 ? size : std::min(count, size);
    CopyElements(elements + size - copied, copied, values);
    return copied;
}

template <typename Value>
int CopyVector(const Segment* segment, Value* buffer, int* count) {
    if (segment != nullptr && count != nullptr && *count < 0) return tc::NOT_WRITTEN;
    const int wanted = count != nullptr ? *count : -1;
    const bool there = segment != nullptr && buffer != nullptr;
    const int copied =
        there ? tc::Guarded([&] { return CopyLast(*segment, buffer, wanted); }, tc::NOT_WRITTEN) : 0;
    if (count != nullptr) *count = std::max(copied, 0);
    return copied;
}

template <typename Value>
int ReadLast(const Segment* segment, Value& value) {
    if (segment == nullptr || segment->GetElementCount() == 0) return 0;
    const auto* elements = Elements(*segment, &value);
    if (elements == nullptr) return tc::OTHER_TYPE;
    return tc::Guarded(
        [&] {
            CopyElements(elements + segment->GetElementCount() - 1, 1, &value);
            return 1;
        },
        tc::NOT_WRITTEN);
}

int ReadBlocks(const Segment* segment, TCArray<TCIOStream::Block*>& blocks) {
    if (segment == nullptr) return 0;
    const int count = segment->GetElementCount();
    return tc::Guarded(
        [&] {
            blocks.SetSize(count);
            if (segment->GetType() != TCIOStream::BLOCK) return tc::OTHER_TYPE;
            std::copy_n(segment->GetBlocks(), count, blocks.GetData());
            return count;
        },
        tc::NOT_WRITTEN);
}

// Hands out the address and the shape of the elements; the result is their number, or `otherwise`. Without
// elements the address may be null.
template <typename Address>
int HandOut(const Segment* segment, TCIOStream::DATATYPE type, Address& data, int* rows, int* cols,
            int otherwise) {
    if (segment == nullptr || segment->GetType() != type) return otherwise;
    data = static_cast<Address>(const_cast<void*>(segment->GetData()));
    int shownRows, shownCols;
    segment->GetShape(shownRows, shownCols);
    if (rows != nullptr) *rows = shownRows;
    if (cols != nullptr) *cols = shownCols;
    return segment->GetElementCount();
}

}  // namespace

int TCIOStream::StartReadSegments(bool firstElements) {
    if (!RemoveBlock()) return 0;
    for (DataSegment* segment : actualBlock->segments) {
        if (!segment->written) continue;
        const bool last = !firstElements && segment->type == BLOCK;
        segment->Cursor() = last ? segment->GetElementCount() - 1 : 0;
    }
    return 1;
}

int TCIOStream::SegmentCnt() const {
    return actualBlock != nullptr ? actualBlock->writtenCount : 0;
}

const TCString& TCIOStream::SegmentName(int index) const {
    const DataSegment* segment = Segment(index);
    return segment != nullptr ? segment->name : NO_NAME;
}

TCIOStream::DATATYPE TCIOStream::SegmentType(int index) const {
    const DataSegment* segment = Segment(index);
    return segment != nullptr ? segment->type : UNDEF;
}

int TCIOStream::AvailableSegments(TCArray<TCString>* names) const {
    const int count = SegmentCnt();
    if (names == nullptr) return count;
    return tc::Guarded(
        [&] {
            names->SetSize(count);
            for (int i = 0; i < count; ++i) (*names)[i] = SegmentName(i);
            return count;
        },
        tc::NOT_WRITTEN);
}

const TCIOStream::DataSegment* TCIOStream::Segment(int index) const {
    return actualBlock != nullptr ? actualBlock->At(index) : nullptr;
}

const TCIOStream::DataSegment* TCIOStream::Segment(const char* name) const {
    return actualBlock != nullptr ? actualBlock->Find(name, true) : nullptr;
}

int TCIOStream::ReadSegment(int index, int& value) const {
    return ReadLast(Segment(index), value);
}

int TCIOStream::ReadSegment(int index, double& value) const {
    return ReadLast(Segment(index), value);
}

int TCIOStream::ReadSegment(int index, TCString& value) const {
    return ReadLast(Segment(index), value);
}

int TCIOStream::ReadSegment(int index, CString& value) const {
    return ReadLast(Segment(index), value);
}

int TCIOStream::ReadSegment(const char* name, int& value) const {
    return ReadLast(Segment(name), value);
}

int TCIOStream::ReadSegment(const char* name, double& value) const {
    return ReadLast(Segment(name), value);
}

int TCIOStream::ReadSegment(const char* name, TCString& value) const {
    return ReadLast(Segment(name), value);
}

int TCIOStream::ReadSegment(const char* name, CString& value) const {
    return ReadLast(Segment(name), value);
}

int TCIOStream::ReadSegment(int index, TCArray<Block*>& blocks) const {
    return ReadBlocks(Segment(index), blocks);
}

int TCIOStream::ReadSegment(const char* name, TCArray<Block*>& blocks) const {
    return ReadBlocks(Segment(name), blocks);
}

// Takes the next block and reads its first segment (null when there is none). The block is given back last,
// so that nothing has to be kept across that call.
template <typename Read>
int TCIOStream::TakeWhole(Read read) {
    Block* block = TakeBlock();
    const int result = read(block != nullptr ? block->At(0) : nullptr);
    return block != nullptr && --block->referenceCount == 0 ? GiveBack(block, result) : result;
}

int TCIOStream::ReadIntVec(int* buffer, int* count) {
    return TakeWhole([&](const DataSegment* segment) { return CopyVector(segment, buffer, count); });
}

int TCIOStream::ReadDblVec(double* buffer, int* count) {
    return TakeWhole([&](const DataSegment* segment) { return CopyVector(segment, buffer, count); });
}

int TCIOStream::ReadStrVec(TCString* buffer, int* count) {
    return TakeWhole([&](const DataSegment* segment) { return CopyVector(segment, buffer, count); });
}

int TCIOStream::ReadStrVec(CString* buffer, int* count) {
    return TakeWhole([&](const DataSegment* segment) { return CopyVector(segment, buffer, count); });
}

int TCIOStream::ReadStr(TCString& value) {
    return TakeWhole([&](const DataSegment* segment) { return std::max(ReadLast(segment, value), 0); });
}

int TCIOStream::ReadStr(CString& value) {
    return TakeWhole([&](const DataSegment* segment) { return std::max(ReadLast(segment, value), 0); });
}

int TCIOStream::ReadIntMat(int** data, int& rows, int& cols) {
    return TakeWhole([&](const DataSegment* segment) {
        return data != nullptr ? HandOut(segment, INT, *data, &rows, &cols, 0) : 0;
    });
}

int TCIOStream::ReadDblMat(double** data, int& rows, int& cols) {
    return TakeWhole([&](const DataSegment* segment) {
        return data != nullptr ? HandOut(segment, DOUBLE, *data, &rows, &cols, 0) : 0;
    });
}

int TCIOStream::ReadPtr(void** data, int* count) {
    return TakeWhole([&](const DataSegment* segment) {
        if (segment == nullptr || segment->type != POINTER || data == nullptr) return 0;
        *data = segment->data;
        if (count != nullptr) *count = segment->GetElementCount();
        return 1;
    });
}

const TCTypeInfo* TCIOStream::GetTI() const {
    return actualBlock != nullptr ? actualBlock->GetTI() : nullptr;
}

int TCIOStream::PeekIntData(int block, const int*& data, int* rows, int* cols) const {
    return HandOut(PeekSegment(block, 0, INT), INT, data, rows, cols, -1);
}

int TCIOStream::PeekDblData(int block, const double*& data, int* rows, int* cols) const {
    return HandOut(PeekSegment(block, 0, DOUBLE), DOUBLE, data, rows, cols, -1);
}

int TCIOStream::PeekStrData(int block, const TCString*& data) const {
    return HandOut(PeekSegment(block, 0, STRING), STRING, data, nullptr, nullptr, -1);
}

const TCTypeInfo* TCIOStream::PeekTI() const {
    const Block* first = QueuedBlock(0);
    return first != nullptr ? first->GetTI() : nullptr;
}

TCBLOCKSTATUS TCIOStream::PeekStatus(bool combine) const {
    const TCTypeInfo* first = PeekTI();
    if (first == nullptr) return INVALID;
    if (!combine) return first->GetState();
    TCBLOCKSTATUS folded = INVALID;
    for (int i = 0; i < queue.GetCount(); ++i) {
        const TCTypeInfo* ti = queue[i]->GetTI();
        const TCBLOCKSTATUS state = ti != nullptr ? ti->GetState() : INVALID;
        if (state == INVALID || state == folded) continue;
        if (folded == INVALID || folded == BUSY)
            folded = state;
        else if (state != BUSY)
            folded = COMPLETE;
    }
    return folded;
}

int TCIOStream::LongestQueue(int* fanIndex) const {
    int longest = queue.GetCount();
    int index = 0;
    for (int i = 0; !isInput && i < fan.GetSize(); ++i) {
        const int count = fan[i]->queue.GetCount();
        if (count <= longest) continue;
        longest = count;
        index = i;
    }
    if (fanIndex != nullptr) *fanIndex = index;
    return longest;
}

const TCIOStream::Block* TCIOStream::GetWaitingBlock(int block) const {
    return QueuedBlock(block);
}

int TCIOStream::GetBlockLen(int block, int segment) const {
    const DataSegment* found = PeekSegment(block, segment, UNDEF);
    return found != nullptr ? found->GetElementCount() : 0;
}

const TCIOStream::DataSegment* TCIOStream::PeekSegment(int block, int segment, DATATYPE type) const {
    const Block* waiting = QueuedBlock(block);
    const DataSegment* found = waiting != nullptr ? waiting->At(segment) : nullptr;
    return found != nullptr && (type == UNDEF || found->type == type) ? found : nullptr;
}
