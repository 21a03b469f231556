#include <algorithm>
#include <string_view>

#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

int TCIOStream::SetTI(const TCTypeInfo* ti, bool fix) {
    const int reserved = ReserveBlock(false);
    if (reserved < 1) return reserved;
    if (!actualBlock->SetTI(ti)) return tc::NOT_WRITTEN;
    return ti != nullptr ? CheckBlockState(actualBlock->typeInfo, fix) : 0;
}

int TCIOStream::StartWriteSegments() {
    return ReserveBlock(true);
}

int TCIOStream::WriteSegment(const char* name, int value) {
    return WriteSingle(name, INT, &value);
}

int TCIOStream::WriteSegment(const char* name, const double& value) {
    return WriteSingle(name, DOUBLE, &value);
}

int TCIOStream::WriteSegment(const char* name, const TCString& value) {
    return WriteSingle(name, STRING, &value);
}

int TCIOStream::WriteSegment(const char* name, const CString& value) {
    if (!CanWrite()) return 0;
    return WriteTexts(name, &value, 1) ? 0 : tc::NOT_WRITTEN;
}

int TCIOStream::WriteSegment(const char* name, const char* value) {
    if (!CanWrite()) return 0;
    const std::string_view text(value != nullptr ? value : "");
    return WriteTexts(name, &text, 1) ? 0 : tc::NOT_WRITTEN;
}

int TCIOStream::WriteSegment(const char* name, const TCArray<Block*>& blocks) {
    if (!CanWrite()) return 0;
    if (actualBlock == nullptr) return tc::NOT_WRITTEN;
    const int count = blocks.GetSize();
    return actualBlock->Write(name, BLOCK, 1, &count, blocks.GetData(), true) ? 0 : tc::NOT_WRITTEN;
}

int TCIOStream::WriteSingle(const char* name, DATATYPE type, const void* value) {
    static constexpr int ONE = 1;
    if (!CanWrite()) return 0;
    if (actualBlock == nullptr) return tc::NOT_WRITTEN;
    return actualBlock->Write(name, type, 1, &ONE, value, true) ? 0 : tc::NOT_WRITTEN;
}

template <typename Text>
bool TCIOStream::WriteTexts(const char* name, const Text* texts, int count) {
    return tc::Guarded(
        [&] {
            DataSegment* segment = actualBlock != nullptr ? actualBlock->Open(name, false) : nullptr;
            if (segment == nullptr || !segment->SetData(STRING, 1, &count, nullptr, true)) return false;
            auto* copies = static_cast<TCString*>(segment->data);
            for (int i = 0; i < count; ++i) copies[i].AllocCopy(texts[i]);
            actualBlock->Close(*segment);
            return true;
        },
        false);
}

bool TCIOStream::EndWriteSegments() {
    return CanWrite() && DispatchBlock();
}

void TCIOStream::CancelWriteSegments() {
    if (CanWrite() && actualBlock != nullptr) actualBlock->Reset(true);
}

int TCIOStream::WriteIntVec(const int* data, int count) {
    return WriteNumbers(INT, data, count);
}

int TCIOStream::WriteDblVec(const double* data, int count) {
    return WriteNumbers(DOUBLE, data, count);
}

int TCIOStream::WriteStrVec(const TCString* data, int count) {
    return WriteWhole(STRING, 1, &count, data, true);
}

int TCIOStream::WriteStrVec(const CString* data, int count) {
    const int reserved = ReserveBlock(true);
    if (reserved < 1) return reserved;
    return FinishWhole(data != nullptr && WriteTexts("", data, count));
}

int TCIOStream::WriteIntMat(const int* data, int rows, int cols, bool copy) {
    const int extents[] = {rows, cols};
    return WriteWhole(INT, 2, extents, data, copy);
}

int TCIOStream::WriteDblMat(const double* data, int rows, int cols, bool copy) {
    const int extents[] = {rows, cols};
    return WriteWhole(DOUBLE, 2, extents, data, copy);
}

int TCIOStream::WritePtr(const void* data, int count) {
    return WriteWhole(POINTER, 1, &count, data, false);
}

int TCIOStream::WriteWhole(DATATYPE type, int dims, const int* extents, const void* data, bool copy) {
    const int reserved = ReserveBlock(true);
    if (reserved < 1) return reserved;
    return FinishWhole((data != nullptr || !copy) && actualBlock->Write("", type, dims, extents, data, copy));
}

// In a steady flow every block looks like the one before: nothing to find, to shape or to allocate.
template <typename Number>
int TCIOStream::WriteNumbers(DATATYPE type, const Number* data, int count) {
    const int reserved = ReserveBlock(true);
    if (reserved < 1) return reserved;
    DataSegment* segment = data != nullptr ? actualBlock->WriteSameAgain(type, count) : nullptr;
    if (segment == nullptr) return WriteWhole(type, 1, &count, data, true);
    std::copy_n(data, count, static_cast<Number*>(segment->data));
    return FinishWhole(true);
}

int TCIOStream::FinishWhole(bool written) {
    if (!written) return tc::NOT_WRITTEN;
    if (DispatchBlock()) return 0;
    actualBlock->Reset(false);
    return tc::NOT_WRITTEN;
}

int TCIOStream::WriteCopy(const Block* src) {
    if (src == nullptr) return 0;
    const int reserved = ReserveBlock(true);
    if (reserved < 1) return reserved;
    return actualBlock->CopyFrom(*src, src->GetTI()) ? DispatchChecked(false) : tc::NOT_WRITTEN;
}
