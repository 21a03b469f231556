#include "sigweave/signal/TCBlockBuffer.h"

#include <algorithm>
#include <climits>
#include <functional>
#include <memory>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/signal/BlockState.h"
#include "sigweave/signal/StreamInternal.h"

namespace {

using TCBlock = TCBlockBuffer::TCBlock;

constexpr unsigned long KIND_MASK = 0x00FFFFFF;
constexpr int SPARE_BLOCKS = 20;
constexpr int SPARE_BLOCKS_WHEN_EMPTY = 10;

bool Append(TCArray<TCBlock*>& blocks, TCBlock* block) {
    return tc::Guarded([&] { return blocks.Add(block) >= 0; }, false);
}

void DeleteFrom(TCArray<TCBlock*>& blocks, int first) {
    for (int i = first; i < blocks.GetSize(); ++i) delete blocks[i];
    if (first < blocks.GetSize()) blocks.RemoveAt(first, blocks.GetSize() - first);
}

template <class Measure>
std::int64_t Total(const TCArray<TCBlock*>& blocks, Measure measure) {
    std::int64_t total = 0;
    for (const TCBlock* block : blocks) total += std::invoke(measure, *block);
    return total;
}

int Limited(std::int64_t number) {
    return static_cast<int>(std::min<std::int64_t>(number, INT_MAX));
}

}  // namespace

TCBlockBuffer::~TCBlockBuffer() {
    RemoveAll(true);
}

TCBlock* TCBlockBuffer::NewBlock(unsigned long type, unsigned int size) {
    std::unique_ptr<TCBlock> block(TakeFreeBlock(type, size));
    if (block == nullptr) block.reset(new (std::nothrow) TCBlock(type));
    if (block == nullptr || !block->SetSize(size) || !Append(blocks, block.get())) return nullptr;
    return block.release();
}

TCBlock* TCBlockBuffer::TakeFreeBlock(unsigned long type, unsigned int size) {
    const auto found =
        std::ranges::find_if(freeBlocks, [&](const TCBlock* block) { return block->IsFree(type, size); });
    if (found == freeBlocks.end()) return nullptr;
    TCBlock* block = *found;
    freeBlocks.RemoveAt(static_cast<int>(found - freeBlocks.begin()));
    block->columns = 0;
    block->typeInfo.Init();
    return block;
}

int TCBlockBuffer::Add(TCBlock* block) {
    return block != nullptr && Append(blocks, block) ? blocks.GetSize() - 1 : -1;
}

bool TCBlockBuffer::KeepFree(TCBlock* block) {
    block->SetSize(0);
    return Append(freeBlocks, block);
}

void TCBlockBuffer::RemoveAt(unsigned int index, bool freeMemory) {
    if (index >= static_cast<unsigned>(blocks.GetSize())) return;
    std::unique_ptr<TCBlock> block(blocks[static_cast<int>(index)]);
    blocks.RemoveAt(static_cast<int>(index));
    const bool kept = !freeMemory && freeBlocks.GetSize() <= 2 * blocks.GetSize() + SPARE_BLOCKS;
    if (kept && KeepFree(block.get())) block.release();
}

void TCBlockBuffer::RemoveAll(bool freeMemory) {
    for (TCBlock* block : blocks) {
        if (freeMemory || !KeepFree(block)) delete block;
    }
    blocks.RemoveAll(freeMemory);
    DeleteFrom(freeBlocks, freeMemory ? 0 : SPARE_BLOCKS_WHEN_EMPTY);
}

int TCBlockBuffer::ReadBlock(unsigned int port, bool all) {
    if (!CheckPortHelper()) return TCBlock::NO_PORT_HELPER;
    const unsigned long type = portHelper->DataType(INPUT, port) & KIND_MASK;
    TCBLOCKSTATUS state;
    int waiting, values, elementSize;
    int read = 0;
    while ((all || read == 0) && portHelper->DataAvail(port, state, waiting, values, elementSize)) {
        TCBlock* block = NewBlock(type, static_cast<unsigned>(values));
        if (block == nullptr) return TCBlock::NotCreated(portHelper, INPUT, port);
        const int result = block->ReadBlock(portHelper, port);
        const bool taken = portHelper->BlocksOnStream(INPUT, port) < waiting;
        if (result < 0 || !taken) {
            RemoveAt(static_cast<unsigned>(blocks.GetSize() - 1), false);
            return result < 0 ? result : read;
        }
        ++read;
    }
    return read;
}

int TCBlockBuffer::WriteBlock(unsigned int port, unsigned int index) {
    if (!CheckPortHelper()) return TCBlock::NO_PORT_HELPER;
    return index < static_cast<unsigned>(GetSize()) ? (*this)[index]->WriteBlock(portHelper, port) : 0;
}

int TCBlockBuffer::WriteAllBlocks(unsigned int port, bool concatenated) {
    if (!CheckPortHelper()) return TCBlock::NO_PORT_HELPER;
    if (concatenated) return WriteConcatenatedBlocks(port);
    for (const TCBlock* block : blocks)
        if (const int result = block->WriteBlock(portHelper, port); result < 0) return result;
    return 0;
}

int TCBlockBuffer::WriteConcatenatedBlocks(unsigned int port) {
    const int count = blocks.GetSize();
    if (count == 0) return 0;
    const TCBLOCKSTATUS state = GetCommonStatus();
    if (count == 1 && blocks[0]->GetStatus() == state) return blocks[0]->WriteBlock(portHelper, port);
    if (const int code = CheckConcatenation(port); code < 0) return code;
    // For the time of the write the joined block is one of the buffer's, so that its storage is used again.
    TCBlock* joined = NewBlock(blocks[0]->DataType(), static_cast<unsigned>(CountElems()));
    if (joined == nullptr) return TCBlock::NotCreated(portHelper, OUTPUT, port);
    bool done = joined->CopyTI(*blocks[0], state);
    int position = 0;
    for (int i = 0; i < count && done; position += blocks[i++]->GetSize())
        done = joined->Put(position, *blocks[i]);
    const int result =
        done ? joined->WriteBlock(portHelper, port) : TCBlock::NotCreated(portHelper, OUTPUT, port);
    RemoveAt(static_cast<unsigned>(count), false);
    return result;
}

int TCBlockBuffer::CheckConcatenation(unsigned int port) const {
    const TCBlock* before = blocks[0];
    const int count = blocks.GetSize();
    for (int i = 1; i < count; ++i) {
        if (const int code = before->Misfit(*blocks[i]); code < 0) {
            const TCString where = TCString::FormatS("at block %d of the %d to be joined", i + 1, count);
            return portHelper->SetErrMsg(code, OUTPUT, port, -1, nullptr, where);
        }
        if (blocks[i]->GetSize() > 0) before = blocks[i];
    }
    const bool fits = Total(blocks, &TCBlock::GetSize) <= INT_MAX;
    return fits ? 0 : TCBlock::NotCreated(portHelper, OUTPUT, port);
}

TCBLOCKSTATUS TCBlockBuffer::GetCommonStatus() const {
    const bool begins = std::ranges::any_of(blocks, tc::MarksBegin, &TCBlock::GetStatus);
    const bool ends = std::ranges::any_of(blocks, tc::MarksEnd, &TCBlock::GetStatus);
    if (begins) return ends ? COMPLETE : START;
    return ends ? STOP : BUSY;
}

int TCBlockBuffer::CountElems() const {
    return Limited(Total(blocks, &TCBlock::GetSize));
}

int TCBlockBuffer::ElemSize(int index) const {
    return index >= 0 && index < blocks.GetSize() ? TCBlock::ElemSize(blocks[index]->DataType()) : 0;
}

int TCBlockBuffer::StrLen() const {
    return Limited(Total(blocks, [this](const TCBlock& block) { return block.StrLen(binaryStrings); }));
}

int TCBlockBuffer::GetDataSize() const {
    return Limited(Total(blocks, [this](const TCBlock& block) {
        return block.IsText() ? std::int64_t{block.StrLen(binaryStrings)}
                              : std::int64_t{TCBlock::ElemSize(block.DataType())} * block.GetSize();
    }));
}
