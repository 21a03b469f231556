#include <utility>

#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

int TCIOStream::PeekBlock(int index) {
    actualBlock = QueuedBlock(index);
    return actualBlock != nullptr ? 1 : 0;
}

// The source's block goes, whatever becomes of its copy: deliberately, so that nothing piles up at a module
// whose output nobody reads. Until then it counts as held, for the source may be one of this writer's
// receivers.
int TCIOStream::MoveBlocks(TCIOStream& source, TCBLOCKSTATUS state) {
    Block* taken = source.TakeBlock();
    if (taken == nullptr) return 0;
    const int result = WriteMoved(*taken, state);
    Release(taken);
    return result;
}

int TCIOStream::WriteMoved(const Block& block, TCBLOCKSTATUS state) {
    if (const int reserved = ReserveBlock(true); reserved < 1) return reserved;
    if (!actualBlock->CopyFrom(block, block.GetTI())) return tc::NOT_WRITTEN;
    if (actualBlock->typeInfo != nullptr) actualBlock->typeInfo->SetState(state);
    return DispatchChecked(false);
}

int TCIOStream::MoveBlock(TCIOStream& source, int index, const TCTypeInfo* ti, bool fix) {
    if (source.QueuedBlock(index) == nullptr) return 0;
    const int reserved = ReserveBlock(true);
    if (reserved < 1) return reserved;
    source.PeekBlock(index);
    const Block& waiting = *source.actualBlock;
    if (!actualBlock->CopyFrom(waiting, ti != nullptr ? ti : waiting.GetTI())) return tc::NOT_WRITTEN;
    return DispatchChecked(fix);
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
