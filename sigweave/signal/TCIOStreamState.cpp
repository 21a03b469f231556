#include <utility>

#include "sigweave/services/SystemTime.h"
#include "sigweave/signal/BlockState.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

// What is no state becomes a middle piece, which fits after any other.
void RepairAsMiddle(TCTypeInfo& ti) {
    if (!tc::IsBlockState(ti.GetState())) ti.SetState(BUSY);
    if (ti.GetTimestamp() <= 0.0) ti.SetTimestamp(TCSystemTime());
    if (ti.GetSamplerate() <= 0.0) ti.SetSamplerate(1.0);
}

}  // namespace

// Keeps the sequence of waiting blocks at every receiver a row of whole signals.
int TCIOStream::CheckBlockState(TCTypeInfo* ti, bool fix) {
    if (ti == nullptr) return 0;
    if (fix) RepairAsMiddle(*ti);
    for (int i = 0; i < fan.GetSize(); ++i) {
        Fan& waiting = fan[i]->queue;
        if (waiting.IsEmpty() || JoinQueue(waiting, ti, fix)) continue;
        SetErrFan(i);
        return tc::STATE_CONFLICT;
    }
    return 0;
}

// Makes the block and those that wait one row of signals, with `fix` by changing their states; false when
// they are none.
bool TCIOStream::JoinQueue(Fan& waiting, TCTypeInfo* ti, bool fix) {
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
