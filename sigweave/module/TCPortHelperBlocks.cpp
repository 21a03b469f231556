#include <algorithm>

#include "sigweave/module/PortRecord.h"

using Impl = TCPortHelper::TCPortHelperImpl;
using PORT = Impl::PORT;
using TYPE = TCPortHelper::TYPE;

namespace {

constexpr char WRONG_OUTPUT[] = "Block data does not match datatype of output port";

// Port kinds by the element type of their blocks. Ports of other kinds take anything.
struct Family {
    TYPE kinds;
    TCIOStream::DATATYPE element;
    int dimensions;
};
constexpr Family FAMILIES[] = {
    {TCPortHelper::TYPE_SWORDMATRIX, TCIOStream::INT, 2},
    {TCPortHelper::TYPE_DOUBLEMATRIX, TCIOStream::DOUBLE, 2},
    {Impl::INT_KINDS, TCIOStream::INT, 1},
    {Impl::DOUBLE_KINDS, TCIOStream::DOUBLE, 1},
    {Impl::TEXT_KINDS, TCIOStream::STRING, 1},
    {TCPortHelper::TYPE_POINTER | TCPortHelper::TYPE_POINTERARRAY, TCIOStream::POINTER, 1},
};

const Family* FamilyOf(TYPE code) {
    for (const Family& family : FAMILIES)
        if ((code & family.kinds) != 0) return &family;
    return nullptr;
}

bool AreAlike(const PORT& a, const PORT& b) {
    return FamilyOf(a.Code()) == FamilyOf(b.Code());
}

bool Takes(const PORT& output, const TCIOStream::Block& block) {
    const Family* family = FamilyOf(output.Code());
    if (family == nullptr || block.SegmentCnt() == 0) return true;
    const TCIOStream::DataSegment* segment = block.Segment(0);
    return segment != nullptr && segment->GetType() == family->element &&
           segment->GetDimensionCount() == family->dimensions;
}

// The result of a stream operation that wrote a block with metadata of its own.
int FinishForeign(Impl& impl, PORT& port, TCBLOCKSTATUS state, int result) {
    if (impl.RecordConflict(port, result) < 0) return impl.error.code;
    port.previousState = state;
    return result;
}

// The same of a copy: one that a receiver refused is not mixed with what is written next.
int FinishCopy(Impl& impl, PORT& port, TCBLOCKSTATUS state, int result) {
    if (result == TCPortHelper::STATE_CONFLICT) port.stream->CancelWriteSegments();
    return FinishForeign(impl, port, state, result);
}

TCBLOCKSTATUS StateOf(const TCTypeInfo* ti) {
    return ti != nullptr ? ti->GetState() : INVALID;
}

// After the block that `ti` belongs to was taken.
void FinishTake(PORT& input, const TCTypeInfo* ti) {
    if (input.CarriesTypeInfo()) input.KeepTypeInfo(ti);
}

}  // namespace

int TCPortHelper::ForwardBlock(unsigned output, unsigned input) {
    PORT* to = impl->Port(OUTPUT, output);
    PORT* from = impl->Port(INPUT, input);
    if (to == nullptr || from == nullptr || !from->HoldsBlock()) return 0;
    if (!AreAlike(*to, *from)) return impl->Fail(*to, ANOTHER_TYPE, WRONG_OUTPUT);
    const TCTypeInfo* ti = from->stream->PeekTI();
    // To no receiver is done when the block is taken, or the flow would stop here.
    const int result =
        to->IsConnected() ? to->stream->ForwardBlock(*from->stream) : from->stream->RemoveContents(false);
    if (result == 1) FinishTake(*from, ti);
    return FinishForeign(*impl, *to, StateOf(ti), result);
}

int TCPortHelper::WriteCopy(unsigned output, const TCIOStream::Block* block) {
    PORT* port = impl->WritablePort(output, 0);
    if (port == nullptr || block == nullptr) return 0;
    if (!Takes(*port, *block)) return impl->Fail(*port, ANOTHER_TYPE, WRONG_OUTPUT);
    return std::min(FinishCopy(*impl, *port, StateOf(block->GetTI()), port->stream->WriteCopy(block)), 0);
}

int TCPortHelper::ExchangeBinary(unsigned input, TCIOStream::Block** held, bool take) {
    PORT* port = impl->Port(INPUT, input);
    if (port == nullptr) return 0;
    const int result = port->stream->ExchangeBinary(held, take);
    if (result == 1) FinishTake(*port, (*held)->GetTI());
    return result;
}

int TCPortHelper::CopyStreamContent(unsigned input, unsigned output) {
    const PORT* from = impl->Port(INPUT, input);
    PORT* to = impl->WritablePort(output, 0);
    const int blocks = from != nullptr ? from->stream->GetBlockCnt(nullptr) : 0;
    if (to == nullptr || blocks == 0) return 0;
    if (!AreAlike(*to, *from)) return impl->Fail(*to, ANOTHER_TYPE, WRONG_OUTPUT);
    for (int i = 0; i < blocks; ++i) {
        const int moved = to->stream->MoveBlock(*from->stream, i, nullptr, false);
        const int result = FinishCopy(*impl, *to, StateOf(from->stream->GetTI()), moved);
        if (result < 0) return result;
    }
    return blocks;
}

int TCPortHelper::SerializeBlock(unsigned input, char* buffer) {
    PORT* port = impl->Port(INPUT, input);
    if (port == nullptr) return 0;
    const TCTypeInfo* ti = port->stream->PeekTI();
    const int size = port->stream->SerializeBlock(buffer);
    if (size < 0) return impl->Fail(*port, size);
    if (size > 0 && buffer != nullptr) FinishTake(*port, ti);
    return size;
}

int TCPortHelper::DeSerializeBlock(unsigned output, const TCString& frame) {
    PORT* port = impl->WritablePort(output, 0);
    if (port == nullptr) return 0;
    // First on streams of its own, so that a block of another type is refused here and not by its readers.
    TCIOStream trial;
    TCIOStream queue;
    TCIOStream::Block* block = nullptr;
    trial.AddOutputStream(queue.SetInputStream(0));
    if (const int bad = trial.DeSerializeBlock(frame, frame.GetLength()); bad < 0)
        return impl->Fail(*port, bad);
    queue.ExchangeBinary(&block, true);
    if (block == nullptr) return impl->Fail(*port, NOT_CREATED);
    if (!Takes(*port, *block)) return impl->Fail(*port, ANOTHER_TYPE, WRONG_OUTPUT);
    const int result = port->stream->DeSerializeBlock(frame, frame.GetLength());
    return std::min(FinishForeign(*impl, *port, StateOf(block->GetTI()), result), 0);
}
