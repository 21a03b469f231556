#include "sigweave/signal/TCIOStream.h"

#include <memory>
#include <utility>

#include "sigweave/signal/StreamInternal.h"

namespace {

constexpr const char* TYPE_NAMES[] = {"UNDEF", "INT", "DOUBLE", "STRING", "POINTER", "BLOCK"};
constexpr unsigned TYPE_COUNT = sizeof TYPE_NAMES / sizeof TYPE_NAMES[0];

}  // namespace

TCIOStream::~TCIOStream() {
    DeleteStreams();
}

TCIOStream* TCIOStream::SetInputStream(int precision) {
    isInput = true;
    digits = precision;
    return this;
}

int TCIOStream::AddOutputStream(TCIOStream* receiver) {
    if (receiver != nullptr && receiver->isInput) tc::Guarded([&] { return fan.Add(receiver) >= 0; }, false);
    return GetFanCnt();
}

TCIOStream* TCIOStream::GetFan(int index) {
    if (isInput && index == 0) return this;
    return index >= 0 && index < fan.GetSize() ? fan[index] : nullptr;
}

int TCIOStream::GetErrFan() const {
    return std::exchange(errorFan, -1);
}

bool TCIOStream::VerifyType(DATATYPE type, int dims) {
    for (int i = 0; i < fan.GetSize(); ++i) {
        const Fan& waiting = fan[i]->queue;
        if (waiting.IsEmpty()) continue;
        const DataSegment* last = waiting[waiting.GetCount() - 1]->At(0);
        if (last == nullptr || (last->type == type && last->dimensionCount == dims)) continue;
        SetErrFan(i);
        return false;
    }
    return true;
}

// Blocks that wait in other queues go as well, and those queues do not learn of it: they may be gone already.
void TCIOStream::DeleteStreams() {
    fan.RemoveAll(true);
    queue.RemoveAll();
    isInput = false;
    for (Block* block : allBlocks) delete block;
    allBlocks.RemoveAll(true);
    freeList.RemoveAll();
    actualBlock = nullptr;
}

int TCIOStream::ReserveNewBlock(bool clearTypeInfo) {
    actualBlock = TakeFreeBlock();
    if (actualBlock == nullptr) return tc::NOT_WRITTEN;
    actualBlock->Reset(clearTypeInfo);
    return 1;
}

TCIOStream::Block* TCIOStream::TakeFreeBlock() {
    if (!freeList.IsEmpty()) return freeList.RemoveHead();
    return tc::Guarded(
        [this] {
            auto block = std::make_unique<Block>();
            block->home = this;
            allBlocks.Add(block.get());
            return block.release();
        },
        static_cast<Block*>(nullptr));
}

// Without memory for the list the block stays out of use until the stream is deleted.
void TCIOStream::AddBlockToFreeList(Block* block) {
    freeList.AddTail(block);
}

int TCIOStream::GiveBack(Block* block, int result) {
    block->home->AddBlockToFreeList(block);
    return result;
}

const char* TCIOStream::DataTypeToString(DATATYPE type) {
    return type < TYPE_COUNT ? TYPE_NAMES[type] : "UNKNOWN";
}

int TCIOStream::StringToDataType(const char* text) {
    const TCString name(text);
    for (unsigned i = 0; i < TYPE_COUNT; ++i)
        if (name.CompareNoCase(TYPE_NAMES[i]) == 0) return static_cast<int>(i);
    return -1;
}
