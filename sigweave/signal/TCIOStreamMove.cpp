#include <utility>

#include "sigweave/services/SystemTime.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

bool IsState(TCBLOCKSTATUS state) {
    return state >= START && state <= COMPLETE;
}

bool Begins(TCBLOCKSTATUS state) {
    return state == START || state == COMPLETE;
}

bool Ends(TCBLOCKSTATUS state) {
    return state == STOP || state == COMPLETE;
}

bool IsOpen(TCBLOCKSTATUS state) {
    return state == START || state == BUSY;
}

void Repair(TCTypeInfo& ti) {
    if (!IsState(ti.GetState())) ti.SetState(BUSY);
    if (ti.GetTimestamp() <= 0.0) ti.SetTimestamp(TCSystemTime());
    if (ti.GetSamplerate() <= 0.0) ti.SetSamplerate(1.0);
}

}  // namespace

// Hands the block on; without memory for a queue it stays the actual block and no receiver has it.
bool TCIOStream::DispatchBlock() {
    if (actualBlock == nullptr || !Dispatch(actualBlock)) return false;
    actualBlock = nullptr;
    return true;
}

// Hands on a block that was filled aside; otherwise it goes back to the free list.
int TCIOStream::DispatchFilled(Block* block, bool filled) {
    int result =
        filled ? CheckBlockState(block->typeInfoValid ? block->typeInfo : nullptr, false) : tc::NOT_WRITTEN;
    if (result == 0) result = Dispatch(block) ? 1 : tc::NOT_WRITTEN;
    if (result != 1) AddBlockToFreeList(block);
    return result;
}

// All receivers get the block and count as its holders, or none when there is no memory; then `held` holders
// are done with it. A receiver whose queue has no room left, or that is no input any more, takes the longer
// way.
inline bool TCIOStream::Dispatch(Block* block, int held) {
    TCIOStream* const* const receivers = fan.GetData();
    const int count = fan.GetSize();
    for (int i = 0; i < count; ++i) {
        TCList<Block*>& waiting = receivers[i]->queue;
        if (!waiting.HasRoom()) return DispatchFrom(i, block, held);
        waiting.Put(block);
    }
    if (count == held) return true;  // passed from one holder to another
    block->referenceCount += count - held;
    if (block->referenceCount == 0) block->home->AddBlockToFreeList(block);
    return true;
}

// The same where the first `done` receivers have the block.
bool TCIOStream::DispatchFrom(int done, Block* block, int held) {
    int handed = done;
    for (int i = done; i < fan.GetSize(); ++i) {
        if (!fan[i]->isInput) continue;
        if (!fan[i]->queue.AddTail(block)) return TakeBack(i);
        ++handed;
    }
    block->referenceCount += handed - held;
    if (block->referenceCount == 0) block->home->AddBlockToFreeList(block);
    return true;
}

bool TCIOStream::TakeBack(int receivers) {
    while (receivers-- > 0)
        if (fan[receivers]->isInput) fan[receivers]->queue.RemoveTail();
    return false;
}

// Keeps the sequence of waiting blocks at every receiver a row of whole signals.
int TCIOStream::CheckBlockState(TCTypeInfo* ti, bool fix) {
    if (ti == nullptr) return 0;
    if (fix) Repair(*ti);
    for (int i = 0; i < fan.GetSize(); ++i) {
        TCList<Block*>& waiting = fan[i]->queue;
        if (waiting.IsEmpty() || JoinsQueue(waiting, ti, fix)) continue;
        SetErrFan(i);
        return tc::STATE_CONFLICT;
    }
    return 0;
}

bool TCIOStream::JoinsQueue(TCList<Block*>& waiting, TCTypeInfo* ti, bool fix) {
    int last = waiting.GetCount() - 1;
    while (last >= 0 && !waiting[last]->typeInfoValid) --last;
    if (last < 0) return true;
    if (Ends(waiting[last]->typeInfo->GetState())) {
        if (!fix) return false;
        ChangeFlags(OwnTypeInfo(waiting, last), -1, 0);
        ChangeFlags(ti, 0, 1);
        return true;
    }
    if (!Begins(ti->GetState())) return true;
    int first = 0;
    while (!waiting[first]->typeInfoValid) ++first;
    const TCBLOCKSTATUS start = waiting[first]->typeInfo->GetState();
    if (!IsOpen(start)) return true;
    if (!fix) return false;
    ChangeFlags(ti, 0, -1);
    if (start != START) ChangeFlags(OwnTypeInfo(waiting, first), 1, -1);
    return true;
}

// The metadata of a waiting block, to be changed. A block of another writer may wait in queues that are none
// of this writer's, so a copy takes its place here; without memory for one the block itself is changed.
TCTypeInfo* TCIOStream::OwnTypeInfo(TCList<Block*>& waiting, int index) {
    Block*& block = waiting[index];
    if (block->home == this || block->referenceCount == 1) return block->typeInfo;
    Block* copy = TakeFreeBlock();
    if (copy == nullptr) return block->typeInfo;
    copy->Reset(true);
    if (!copy->CopyFrom(*block, block->GetTI())) {
        AddBlockToFreeList(copy);
        return block->typeInfo;
    }
    copy->referenceCount = 1;
    Release(std::exchange(block, copy));
    return copy->typeInfo;
}

void TCIOStream::ChangeFlags(TCTypeInfo* ti, int begins, int ends) {
    static constexpr TCBLOCKSTATUS STATES[2][2] = {{BUSY, STOP}, {START, COMPLETE}};
    const bool first = begins < 0 ? Begins(ti->GetState()) : begins != 0;
    const bool last = ends < 0 ? Ends(ti->GetState()) : ends != 0;
    ti->SetState(STATES[first ? 1 : 0][last ? 1 : 0]);
}

int TCIOStream::PeekBlock(int index) {
    if (!isInput) return 0;
    actualBlock = QueuedBlock(index);
    return actualBlock != nullptr ? 1 : 0;
}

int TCIOStream::MoveBlocks(TCIOStream& source, TCBLOCKSTATUS state) {
    Block* taken = source.TakeBlock();
    if (taken == nullptr) return 0;
    int result = ReserveBlock(true);
    if (result >= 1) result = CopyAndDispatch(*taken, taken->GetTI(), &state, false);
    Release(taken);
    return result;
}

int TCIOStream::MoveBlock(TCIOStream& source, int index, const TCTypeInfo* ti, bool fix) {
    if (source.QueuedBlock(index) == nullptr) return 0;
    const int reserved = ReserveBlock(true);
    if (reserved < 1) return reserved;
    source.PeekBlock(index);
    const Block& waiting = *source.actualBlock;
    return CopyAndDispatch(waiting, ti != nullptr ? ti : waiting.GetTI(), nullptr, fix);
}

// Fills the reserved block and hands it on. On failure it stays reserved, empty.
int TCIOStream::CopyAndDispatch(const Block& source, const TCTypeInfo* ti, const TCBLOCKSTATUS* state,
                                bool fix) {
    int result = tc::NOT_WRITTEN;
    if (actualBlock->CopyFrom(source, ti)) {
        if (state != nullptr && actualBlock->typeInfo != nullptr) actualBlock->typeInfo->SetState(*state);
        result = ti != nullptr ? CheckBlockState(actualBlock->typeInfo, fix) : 0;
        if (result == 0) result = DispatchBlock() ? 1 : tc::NOT_WRITTEN;
    }
    if (result != 1) actualBlock->Reset(true);
    return result;
}

int TCIOStream::ForwardBlock(TCIOStream& source, bool keep) {
    if (source.queue.IsEmpty() || !CanWrite()) return 0;
    Block* block = source.queue[0];
    if (block->typeInfoValid) {
        const int checked = CheckBlockState(block->typeInfo, false);
        if (checked < 0) return checked;
    }
    if (!Dispatch(block, keep ? 0 : 1)) return tc::NOT_WRITTEN;
    if (!keep) source.actualBlock = source.queue.RemoveHead();
    return 1;
}

int TCIOStream::CopyBlockRefs(const TCIOStream& source) {
    if (!isInput || !source.isInput) return 0;
    const int count = source.queue.GetCount();  // beforehand: the source may be this stream
    if (!queue.MakeRoom(count)) return queue.GetCount();
    for (int i = 0; i < count; ++i) {
        Block* block = source.queue[i];
        queue.Put(block);
        ++block->referenceCount;
    }
    return queue.GetCount();
}

int TCIOStream::ExchangeBinary(Block** held, bool take) {
    if (held == nullptr) return 0;
    if (take && queue.IsEmpty()) return 0;
    Block* taken = nullptr;
    if (take) {
        taken = queue.RemoveHead();
        actualBlock = nullptr;
    }
    if (Block* before = std::exchange(*held, taken)) Release(before);
    return take ? 1 : 0;
}

int TCIOStream::RemoveContents(bool all) {
    if (all) return RemoveAllContents();
    if (queue.IsEmpty()) return 0;
    actualBlock = queue.RemoveHead();
    return --actualBlock->referenceCount == 0 ? GiveBack(actualBlock, 1) : 1;
}

[[gnu::noinline]] int TCIOStream::RemoveAllContents() {
    int removed = 0;
    for (; !queue.IsEmpty(); ++removed) RemoveBlock();
    return removed;
}
