#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

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

// Hands the block on; without memory for a queue it stays the actual block and no receiver has it.
bool TCIOStream::DispatchBlock() {
    if (actualBlock == nullptr || !Dispatch(actualBlock)) return false;
    actualBlock = nullptr;
    return true;
}

int TCIOStream::CheckAndDispatch(Block* block, bool fix) {
    const int checked = block->typeInfoValid ? CheckBlockState(block->typeInfo, fix) : 0;
    if (checked < 0) return checked;
    return Dispatch(block) ? 1 : tc::NOT_WRITTEN;
}

// Hands the reserved block on. On failure it stays reserved with all that is in it.
int TCIOStream::DispatchChecked(bool fix) {
    const int result = CheckAndDispatch(actualBlock, fix);
    if (result == 1) actualBlock = nullptr;
    return result;
}

// Hands on a block that was filled aside; otherwise it goes back to the free list.
int TCIOStream::DispatchFilled(Block* block, bool filled) {
    const int result = filled ? CheckAndDispatch(block, false) : tc::NOT_WRITTEN;
    if (result != 1) AddBlockToFreeList(block);
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
    if (block->home != this) block->forwarded = true;
    if (!keep) source.actualBlock = source.queue.RemoveHead();
    return 1;
}
