#include <utility>

#include "sigweave/services/SystemTime.h"
#include "sigweave/signal/BlockState.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

// What is no state becomes a middle piece, which fits behind any other.
void RepairAsMiddle(TCTypeInfo& ti) {
    if (!tc::IsBlockState(ti.GetState())) ti.SetState(BUSY);
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
        Fan& waiting = receivers[i]->queue;
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
    if (fix) RepairAsMiddle(*ti);
    for (int i = 0; i < fan.GetSize(); ++i) {
        Fan& waiting = fan[i]->queue;
        if (waiting.IsEmpty() || JoinsQueue(waiting, ti, fix)) continue;
        SetErrFan(i);
        return tc::STATE_CONFLICT;
    }
    return 0;
}

bool TCIOStream::JoinsQueue(Fan& waiting, TCTypeInfo* ti, bool fix) {
    int last = waiting.GetCount() - 1;
    while (last >= 0 && !waiting[last]->typeInfoValid) --last;
    if (last < 0) return true;
    if (tc::MarksEnd(waiting[last]->typeInfo->GetState())) {
        if (!fix) return false;
        ChangeFlags(OwnTypeInfo(waiting, last), -1, 0);
        ChangeFlags(ti, 0, 1);
        return true;
    }
    if (!tc::MarksBegin(ti->GetState())) return true;
    int first = 0;
    while (!waiting[first]->typeInfoValid) ++first;
    const TCBLOCKSTATUS start = waiting[first]->typeInfo->GetState();
    if (!tc::LeavesOpen(start)) return true;
    if (!fix) return false;
    ChangeFlags(ti, 0, -1);
    if (start != START) ChangeFlags(OwnTypeInfo(waiting, first), 1, -1);
    return true;
}

// The metadata of a waiting block, to be changed. A block that was forwarded may wait in queues that are none
// of this writer's, so a copy takes its place here; without memory for one the block itself is changed.
TCTypeInfo* TCIOStream::OwnTypeInfo(Fan& waiting, int index) {
    Block*& block = waiting[index];
    if (!block->forwarded || block->home == this || block->referenceCount == 1) return block->typeInfo;
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
    const bool first = begins < 0 ? tc::MarksBegin(ti->GetState()) : begins != 0;
    const bool last = ends < 0 ? tc::MarksEnd(ti->GetState()) : ends != 0;
    ti->SetState(STATES[first ? 1 : 0][last ? 1 : 0]);
}

int TCIOStream::PeekBlock(int index) {
    actualBlock = QueuedBlock(index);
    return actualBlock != nullptr ? 1 : 0;
}

// The source's block is taken as soon as there is a copy of it, before the states are compared: the source
// may be one of this writer's receivers.
int TCIOStream::MoveBlocks(TCIOStream& source, TCBLOCKSTATUS state) {
    const Block* next = source.QueuedBlock(0);
    if (next == nullptr) return 0;
    if (const int reserved = ReserveBlock(true); reserved < 1) return reserved;
    if (!actualBlock->CopyFrom(*next, next->GetTI())) return tc::NOT_WRITTEN;
    Block* taken = source.TakeBlock();
    if (actualBlock->typeInfo != nullptr) actualBlock->typeInfo->SetState(state);
    const int result = CheckAndDispatch(false);
    Release(taken);
    return result;
}

int TCIOStream::MoveBlock(TCIOStream& source, int index, const TCTypeInfo* ti, bool fix) {
    if (source.QueuedBlock(index) == nullptr) return 0;
    const int reserved = ReserveBlock(true);
    if (reserved < 1) return reserved;
    source.PeekBlock(index);
    const Block& waiting = *source.actualBlock;
    if (!actualBlock->CopyFrom(waiting, ti != nullptr ? ti : waiting.GetTI())) return tc::NOT_WRITTEN;
    return CheckAndDispatch(fix);
}

// Hands the reserved block on. On failure it stays reserved with all that is in it.
int TCIOStream::CheckAndDispatch(bool fix) {
    const int checked = actualBlock->typeInfoValid ? CheckBlockState(actualBlock->typeInfo, fix) : 0;
    if (checked < 0) return checked;
    return DispatchBlock() ? 1 : tc::NOT_WRITTEN;
}

int TCIOStream::ForwardBlock(TCIOStream& source, bool keep) {
    if (source.queue.IsEmpty() || !CanWrite()) return 0;
    Block* block = source.queue[0];
    if (block->typeInfoValid) {
        const int checked = CheckBlockState(block->typeInfo, false);
        if (checked < 0) return checked;
    }
    if (!Dispatch(block, keep ? 0 : 1)) return tc::NOT_WRITTEN;
    if (block->home != this) block->forwarded = true;
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
    Block* block = TakeBlock();
    if (block == nullptr) return 0;
    return --block->referenceCount == 0 ? GiveBack(block, 1) : 1;
}

[[gnu::noinline]] int TCIOStream::RemoveAllContents() {
    const int count = queue.GetCount();
    if (!RemoveBlock()) return 0;
    while (!queue.IsEmpty()) RemoveBlock();
    return count;
}
