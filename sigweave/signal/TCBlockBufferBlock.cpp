#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <numeric>
#include <type_traits>
#include <utility>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/signal/BlockState.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCBlockBuffer.h"

using TCBlock = TCBlockBuffer::TCBlock;

namespace {

constexpr TCPortHelper::TYPE INT_VECTORS =
    TCPortHelper::TYPE_SWORD | TCPortHelper::TYPE_SWORD1 | TCPortHelper::TYPE_SWORDARRAY;
constexpr TCPortHelper::TYPE DOUBLE_VECTORS =
    TCPortHelper::TYPE_DOUBLE | TCPortHelper::TYPE_DOUBLE1 | TCPortHelper::TYPE_DOUBLEARRAY;
constexpr TCPortHelper::TYPE TEXTS = TCPortHelper::TYPE_TEXT | TCPortHelper::TYPE_TEXTARRAY;
constexpr TCPortHelper::TYPE MATRICES = TCPortHelper::TYPE_SWORDMATRIX | TCPortHelper::TYPE_DOUBLEMATRIX;

// std::has_single_bit is a call where the compiler does not count on the processor's own.
bool HasSingleBit(unsigned long type) {
    return type != 0 && (type & (type - 1)) == 0;
}

// Calls `work` with a null pointer of the type's elements; answers `none` for a type that has none.
template <class Result, class Work>
Result WithElements(unsigned long type, Result none, Work work) {
    if (type == 0) return work(static_cast<char*>(nullptr));
    if (!HasSingleBit(type)) return none;
    if ((type & (INT_VECTORS | TCPortHelper::TYPE_SWORDMATRIX)) != 0) return work(static_cast<int*>(nullptr));
    if ((type & (DOUBLE_VECTORS | TCPortHelper::TYPE_DOUBLEMATRIX)) != 0)
        return work(static_cast<double*>(nullptr));
    return (type & TEXTS) != 0 ? work(static_cast<TCString*>(nullptr)) : none;
}

// The operations of the port helper by element type. A packed block has its own.
int ReadData(TCPortHelper&, unsigned, unsigned long&, char*) {
    return 0;
}
int ReadData(TCPortHelper& helper, unsigned input, unsigned long& count, int* values) {
    return helper.ReadIntData(input, count, values);
}
int ReadData(TCPortHelper& helper, unsigned input, unsigned long& count, double* values) {
    return helper.ReadDblData(input, count, values);
}
int ReadData(TCPortHelper& helper, unsigned input, unsigned long& count, TCString* values) {
    return helper.ReadStringData(input, count, values);
}

int WriteData(TCPortHelper&, unsigned, unsigned long, const char*) {
    return 0;
}
int WriteData(TCPortHelper& helper, unsigned output, unsigned long count, const int* values) {
    return helper.WriteIntData(output, count, values);
}
int WriteData(TCPortHelper& helper, unsigned output, unsigned long count, const double* values) {
    return helper.WriteDblData(output, count, values);
}
int WriteData(TCPortHelper& helper, unsigned output, unsigned long count, const TCString* values) {
    return helper.WriteStringData(output, count, values);
}

// False without memory for the name.
bool Copy(const TCTypeInfo& from, TCTypeInfo& to) {
    return tc::Guarded(
        [&] {
            to = from;
            return true;
        },
        false);
}

template <class T>
bool CopyMatrix(T* to, const void* from, int count) {
    if (to != nullptr) std::copy_n(static_cast<const T*>(from), count, to);
    return to != nullptr;
}

}  // namespace

std::uint32_t TCBlock::MakeCompatibleDatatype(unsigned long type) {
    for (const TCPortHelper::TYPE family : {INT_VECTORS, DOUBLE_VECTORS, TEXTS})
        if (HasSingleBit(type) && (type & family) != 0) return family;
    return static_cast<std::uint32_t>(type);
}

int TCBlock::ElemSize(unsigned long type) {
    return WithElements(type, 0, []<class T>(const T*) {
        return std::is_arithmetic_v<T> ? static_cast<int>(sizeof(T)) : 1;  // a text: its characters
    });
}

void* TCBlock::Alloc(int count, unsigned long type) {
    return WithElements(type, static_cast<void*>(nullptr), [count]<class T>(const T*) -> void* {
        return new (std::nothrow) T[static_cast<std::size_t>(count)];
    });
}

void TCBlock::Free(void* elements, unsigned long type) {
    WithElements(type, 0, [elements]<class T>(const T*) {
        delete[] static_cast<T*>(elements);
        return 0;
    });
}

bool TCBlock::CopyData(void* to, const void* from, unsigned int count, unsigned long type) {
    return WithElements(type, false, [&]<class T>(const T*) {
        return tc::Guarded(
            [&] {
                std::copy_n(static_cast<const T*>(from), count, static_cast<T*>(to));
                return true;
            },
            false);
    });
}

TCBlock::TCBlock(const TCBlock& other) : TCBlock(other.dataType) {
    if (!CopyFrom(other)) size = 0;
}

TCBlock& TCBlock::operator=(const TCBlock& other) {
    TCBlock copy(other.dataType);
    if (!copy.CopyFrom(other)) return *this;
    std::swap(data, copy.data);
    std::swap(size, copy.size);
    std::swap(allocSpace, copy.allocSpace);
    std::swap(columns, copy.columns);
    std::swap(dataType, copy.dataType);
    std::swap(typeInfo, copy.typeInfo);
    return *this;
}

bool TCBlock::CopyFrom(const TCBlock& other) {
    const auto count = static_cast<unsigned>(other.size);
    columns = other.columns;
    return Copy(other.typeInfo, typeInfo) && SetSize(count) &&
           (count == 0 || CopyData(data, other.data, count, dataType));
}

TCBlock::~TCBlock() {
    Free(data, dataType);
}

bool TCBlock::SetSize(unsigned int count) {
    if (count > INT_MAX) return false;
    const auto wanted = static_cast<int>(count);
    if (wanted > allocSpace) {
        void* grown = Alloc(wanted, dataType);
        if (grown == nullptr) return false;
        if (!CopyData(grown, data, static_cast<unsigned>(size), dataType)) {
            Free(grown, dataType);
            return false;
        }
        Free(std::exchange(data, grown), dataType);
        allocSpace = wanted;
    }
    size = wanted;
    return true;
}

TCBLOCKSTATUS TCBlock::GetTI(TCTypeInfo& out) const {
    Copy(typeInfo, out);
    return typeInfo.GetState();
}

void TCBlock::SetTI(const TCTypeInfo* ti) {
    if (ti != nullptr && dataType != 0) Copy(*ti, typeInfo);
}

bool TCBlock::CopyTI(const TCBlock& other, TCBLOCKSTATUS state) {
    const bool copied = Copy(other.typeInfo, typeInfo);
    typeInfo.SetState(state);
    return copied;
}

bool TCBlock::IsFree(unsigned long type, unsigned int count) const {
    return dataType == type && static_cast<unsigned>(allocSpace) >= count;
}

bool TCBlock::IsMatrix() const {
    return (dataType & MATRICES) != 0;
}

bool TCBlock::IsText() const {
    return (dataType & TEXTS) != 0;
}

int TCBlock::Misfit(const TCBlock& other) const {
    const std::uint32_t type = MakeCompatibleDatatype(dataType);
    if (type == 0 || type != MakeCompatibleDatatype(other.dataType)) return TCPortHelper::ANOTHER_TYPE;
    if (typeInfo.GetSamplerate() != other.typeInfo.GetSamplerate()) return TCPortHelper::SAMPLERATES_DIFFER;
    if (typeInfo.GetUnit() != other.typeInfo.GetUnit()) return TCPortHelper::UNITS_DIFFER;
    const bool shaped = IsMatrix() && size > 0 && other.size > 0;
    return shaped && columns != other.columns ? TCPortHelper::VALUE_COUNTS_DIFFER : 0;
}

bool TCBlock::Put(int position, const TCBlock& block) {
    if (columns == 0 || block.size > 0) columns = block.columns;
    if (block.size == 0) return true;
    return WithElements(dataType, false, [&]<class T>(const T*) {
        return CopyData(static_cast<T*>(data) + position, block.data, static_cast<unsigned>(block.size),
                        dataType);
    });
}

int TCBlock::NotCreated(TCPortHelper* ph, int kind, unsigned int port) {
    return ph->SetErrMsg(TCPortHelper::NOT_CREATED, static_cast<PORTTYPE>(kind), port, -1);
}

int TCBlock::ReadBlock(TCPortHelper* ph, unsigned int port) {
    if (ph == nullptr) return NO_PORT_HELPER;
    return tc::Guarded([&] { return Read(ph, port); }, int{TCPortHelper::NOT_CREATED});
}

int TCBlock::Read(TCPortHelper* ph, unsigned int port) {
    TCBLOCKSTATUS state;
    int blocks, values, elementSize;
    if (!ph->DoesDataTypeMatch(INPUT, port, MakeCompatibleDatatype(dataType)) ||
        !ph->DataAvail(port, state, blocks, values, elementSize))
        return 0;
    if (dataType == 0) return ReadPacked(ph, port);
    if (!SetSize(static_cast<unsigned>(values))) return NotCreated(ph, INPUT, port);
    const int result = ReadValues(ph, port);
    typeInfo.Init();
    ph->GetTypeInfo(port, &typeInfo);
    return result;
}

int TCBlock::ReadValues(TCPortHelper* ph, unsigned int port) {
    columns = 0;
    if (size == 0) return TakeEmpty(ph, port);
    auto count = static_cast<unsigned long>(size);
    const int result = IsMatrix() ? ph->ReadPolymorphicData(port, count, data, &columns)
                                  : WithElements(dataType, 0, [&]<class T>(const T*) {
                                        return ReadData(*ph, port, count, static_cast<T*>(data));
                                    });
    size = result == 1 ? static_cast<int>(count) : 0;
    return result;
}

// Reading no values would leave the block where it is.
int TCBlock::TakeEmpty(TCPortHelper* ph, unsigned int port) {
    TCIOStream::Block* taken = nullptr;
    if (ph->ExchangeBinary(port, &taken, true) != 1) return 0;
    int rows;
    if (IsMatrix() && taken->SegmentCnt() > 0) taken->Segment(0)->GetShape(rows, columns);
    ph->ExchangeBinary(port, &taken, false);
    return 1;
}

int TCBlock::ReadPacked(TCPortHelper* ph, unsigned int port) {
    typeInfo.Init();
    ph->PeekTypeInfo(port, &typeInfo);
    const int bytes = ph->SerializeBlock(port, nullptr);
    if (bytes < 0) return bytes;
    if (!SetSize(static_cast<unsigned>(bytes))) return NotCreated(ph, INPUT, port);
    return std::min(ph->SerializeBlock(port, static_cast<char*>(data)), 0);
}

int TCBlock::WriteBlock(TCPortHelper* ph, unsigned int port) const {
    if (ph == nullptr) return NO_PORT_HELPER;
    return tc::Guarded([&] { return Write(ph, port); }, int{TCPortHelper::NOT_CREATED});
}

int TCBlock::Write(TCPortHelper* ph, unsigned int port) const {
    if (!ph->DoesDataTypeMatch(OUTPUT, port, MakeCompatibleDatatype(dataType))) return 0;
    ph->SetTypeInfo(port, typeInfo);
    if (dataType == 0) return WritePacked(ph, port);
    if (IsMatrix()) return WriteMatrix(ph, port);
    return WithElements(dataType, 0, [&]<class T>(const T*) {
        return WriteData(*ph, port, static_cast<unsigned long>(size), static_cast<const T*>(data));
    });
}

int TCBlock::WritePacked(TCPortHelper* ph, unsigned int port) const {
    return size > 0 ? ph->DeSerializeBlock(port, TCString(static_cast<const char*>(data), size)) : 0;
}

int TCBlock::WriteMatrix(TCPortHelper* ph, unsigned int port) const {
    if (size == 0) return columns > 0 ? WriteEmptyMatrix(ph, port) : 0;
    const int rows = columns > 0 && size % columns == 0 ? size / columns : 0;
    const bool copied = dataType == TCPortHelper::TYPE_SWORDMATRIX
                            ? CopyMatrix(ph->AllocIntMatrix(port, rows, columns), data, size)
                            : CopyMatrix(ph->AllocDblMatrix(port, rows, columns), data, size);
    return copied ? ph->WriteInternalData(port) : NotCreated(ph, OUTPUT, port);
}

// The port's matrix operations write elements only.
int TCBlock::WriteEmptyMatrix(TCPortHelper* ph, unsigned int port) const {
    TCIOStream::Block block;
    TCTypeInfo ti = typeInfo;
    if (!tc::IsBlockState(ti.GetState())) ti.SetState(COMPLETE);
    const bool carriesTypeInfo = (ph->DataType(OUTPUT, port) & TCPortHelper::TYPE_TYPEINFO) != 0;
    const int extents[] = {0, columns};
    void* none;
    const bool filled =
        block.SetTI(carriesTypeInfo ? &ti : nullptr) &&
        block.AddEmptySegment(
            "", dataType == TCPortHelper::TYPE_SWORDMATRIX ? TCIOStream::INT : TCIOStream::DOUBLE, 2, extents,
            none);
    return filled ? ph->WriteCopy(port, &block) : NotCreated(ph, OUTPUT, port);
}

int TCBlock::StrLen(bool binary) const {
    if (!IsText()) return 0;
    const auto* texts = static_cast<const TCString*>(data);
    const auto length = [binary](std::int64_t sum, const TCString& text) {
        return sum + (binary ? text.GetLength() : static_cast<int>(std::strlen(text)));
    };
    return static_cast<int>(
        std::min<std::int64_t>(std::accumulate(texts, texts + size, std::int64_t{0}, length), INT_MAX));
}
