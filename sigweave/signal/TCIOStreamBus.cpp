#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

bool CopyMetadata(const TCIOStream::Block& block, TCTypeInfo& ti) {
    if (block.GetTI() != nullptr)
        ti = *block.GetTI();
    else
        ti.Init();
    return true;
}

}  // namespace

int TCIOStream::WriteBusSegment(const char* name, DATATYPE type, int dims, const int* extents,
                                const void* data, bool copy, const TCTypeInfo* ti) {
    if (!CanWrite()) return 0;
    if (actualBlock == nullptr || (data == nullptr && type != POINTER)) return tc::NOT_WRITTEN;
    return actualBlock->Append(name, type, dims, extents, data, copy, ti) ? 0 : tc::NOT_WRITTEN;
}

int TCIOStream::FindBusSegment(const char* name, int channel) const {
    return actualBlock != nullptr ? actualBlock->FindChannel(name, channel) : -1;
}

int TCIOStream::BusSegmentCnt(int index) const {
    const DataSegment* channel = Segment(index);
    return channel != nullptr && channel->type == BLOCK ? channel->GetElementCount() : 0;
}

int TCIOStream::BusSegmentElementCnt(int index) const {
    const DataSegment* channel = Segment(index);
    const Block* block = channel != nullptr ? channel->BlockAtCursor() : nullptr;
    const DataSegment* values = block != nullptr ? block->At(0) : nullptr;
    return values != nullptr ? values->GetElementCount() : 0;
}

const TCIOStream::DataSegment* TCIOStream::ReadBusSegment(int index, TCTypeInfo* ti) {
    DataSegment* channel = actualBlock != nullptr ? actualBlock->At(index) : nullptr;
    const Block* block = channel != nullptr ? channel->BlockAtCursor() : nullptr;
    if (block == nullptr) return nullptr;
    if (ti != nullptr && !tc::Guarded([&] { return CopyMetadata(*block, *ti); }, false)) return nullptr;
    ++channel->Cursor();
    return block->At(0);
}
