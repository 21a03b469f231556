#include <utility>

#include "sigweave/services/SystemTime.h"
#include "sigweave/signal/StreamFan.h"
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

bool TCIOStream::Dispatch(Block* block) {
    int handed = 0;
    const bool done = tc::Guarded(
        [&] {
            for (; handed < fan.GetSize(); ++handed)
                if (Fan* receiver = fan[handed]->queue) {
                    receiver->blocks.AddTail(block);
                    ++block->referenceCount;
                }
            return true;
        },
        false);
    while (!done && handed-- > 0)
        if (Fan* receiver = fan[handed]->queue) {
            receiver->blocks.RemoveTail();
            --block->referenceCount;
        }
    if (done && block->referenceCount == 0) block->home->AddBlockToFreeList(block);
    return done;
}

// Keeps the sequence of waiting blocks at every receiver a row of whole signals.
int TCIOStream::CheckBlockState(TCTypeInfo* ti, bool fix) {
    if (ti == nullptr) return 0;
    if (fix) Repair(*ti);
    for (int i = 0; i < fan.GetSize(); ++i) {
        if (fan[i]->queue == nullptr || JoinsQueue(*fan[i]->queue, ti, fix)) continue;
        SetErrFan(i);
        return tc::STATE_CONFLICT;
    }
    return 0;
}

bool TCIOStream::JoinsQueue(const Fan& receiver, TCTypeInfo* ti, bool fix) {
    const auto* last = receiver.blocks.GetTail();
    while (last != nullptr && !last->value->typeInfoValid) last = last->previous;
    if (last == nullptr) return true;
    if (Ends(last->value->typeInfo->GetState())) {
        if (!fix) return false;
        ChangeFlags(last->value->typeInfo, -1, 0);
        ChangeFlags(ti, 0, 1);
        return true;
    }
    if (!Begins(ti->GetState())) return true;
    const auto* first = receiver.blocks.GetHead();
    while (!first->value->typeInfoValid) first = first->next;
    if (!IsOpen(first->value->typeInfo->GetState())) return true;
    if (!fix) return false;
    ChangeFlags(ti, 0, -1);
    ChangeFlags(first->value->typeInfo, 1, -1);
    return true;
}

void TCIOStream::ChangeFlags(TCTypeInfo* ti, int begins, int ends) {
    static constexpr TCBLOCKSTATUS STATES[2][2] = {{BUSY, STOP}, {START, COMPLETE}};
    const bool first = begins < 0 ? Begins(ti->GetState()) : begins != 0;
    const bool last = ends < 0 ? Ends(ti->GetState()) : ends != 0;
    ti->SetState(STATES[first ? 1 : 0][last ? 1 : 0]);
}

int TCIOStream::PeekBlock(int index) {
    if (queue == nullptr) return 0;
    actualBlock = QueuedBlock(index);
    return actualBlock != nullptr ? 1 : 0;
}

int TCIOStream::MoveBlocks(TCIOStream& source, TCBLOCKSTATUS state) {
    if (!source.RemoveBlock(false)) return 0;
    Block* taken = source.actualBlock;
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
    if (actualBlock->CopyFrom(source) && (ti == source.GetTI() || actualBlock->SetTI(ti))) {
        if (state != nullptr && actualBlock->typeInfo != nullptr) actualBlock->typeInfo->SetState(*state);
        result = ti != nullptr ? CheckBlockState(actualBlock->typeInfo, fix) : 0;
        if (result == 0) result = DispatchBlock() ? 1 : tc::NOT_WRITTEN;
    }
    if (result != 1) actualBlock->Reset(true);
    return result;
}

int TCIOStream::ForwardBlock(TCIOStream& source) {
    Block* block = source.QueuedBlock(0);
    if (block == nullptr || !CanWrite()) return 0;
    if (block->typeInfoValid) {
        const int checked = CheckBlockState(block->typeInfo, false);
        if (checked < 0) return checked;
    }
    if (!Dispatch(block)) return tc::NOT_WRITTEN;
    source.RemoveBlock(true);
    return 1;
}

int TCIOStream::CopyBlockRefs(const TCIOStream& source) {
    if (queue == nullptr || source.queue == nullptr) return 0;
    int left = source.queue->blocks.GetCount();  // the source may be this stream
    tc::Guarded(
        [&] {
            for (auto* node = source.queue->blocks.GetHead(); left > 0; node = node->next, --left) {
                queue->blocks.AddTail(node->value);
                ++node->value->referenceCount;
            }
            return true;
        },
        false);
    return queue->blocks.GetCount();
}

int TCIOStream::ExchangeBinary(Block** held, bool take) {
    if (held == nullptr) return 0;
    if (take && (queue == nullptr || queue->blocks.IsEmpty())) return 0;
    Block* taken = nullptr;
    if (take) {
        taken = queue->blocks.RemoveHead();
        actualBlock = nullptr;
    }
    if (Block* before = std::exchange(*held, taken)) Release(before);
    return take ? 1 : 0;
}

int TCIOStream::RemoveContents(bool all) {
    int removed = 0;
    while (queue != nullptr && !queue->blocks.IsEmpty()) {
        RemoveBlock(true);
        ++removed;
        if (!all) break;
    }
    return removed;
}
