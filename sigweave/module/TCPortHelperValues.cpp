#include "sigweave/module/PortValueOperations.h"

using Impl = TCPortHelper::TCPortHelperImpl;
using PORT = Impl::PORT;
using tc::PortValueTraits;

namespace {

constexpr TCPortHelper::TYPE POINTERS = TCPortHelper::TYPE_POINTER | TCPortHelper::TYPE_POINTERARRAY;

template <class T, class Array>
int ReadArray(Impl& impl, unsigned input, Array& values) {
    PORT* port = impl.ReadablePort(input, PortValueTraits<T>::KINDS);
    if (port == nullptr || !port->HoldsBlock()) return 0;
    const int result = impl.Guarded(*port, [&] {
        int count = port->ValuesWaiting();
        tc::ResizeArray(values, count);
        return tc::ReadBlock(impl, *port, tc::ArrayData(values), count);
    });
    if (result != 1) tc::ResizeArray(values, 0);
    return result;
}

// Delivers the newest value of the block just taken.
template <class T>
int TakenLastVal(Impl& impl, const PORT& port, T& value) {
    const TCIOStream::DataSegment* segment = port.stream->Segment(0);
    const int count = segment != nullptr ? segment->GetElementCount() : 0;
    if (count == 0) return 0;
    const auto* data = PortValueTraits<T>::Data(*segment);
    if (data == nullptr) return impl.WrongData(port);
    tc::AssignValue(value, data[count - 1]);
    return 1;
}

template <class T>
int ReadLastVal(Impl& impl, unsigned input, T& value, bool all) {
    PORT* port = impl.ReadablePort(input, PortValueTraits<T>::KINDS);
    if (port == nullptr) return 0;
    int delivered = 0;
    for (int left = all ? port->stream->GetBlockCnt(nullptr) : 1; left > 0 && impl.Take(*port, false);
         --left) {
        const int result = impl.Guarded(*port, [&] { return TakenLastVal(impl, *port, value); });
        if (result < 0) return result;
        delivered |= result;
    }
    return delivered;
}

template <class T>
int ReadMatrix(Impl& impl, unsigned input, const T** values, int& rows, int& cols) {
    PORT* port = impl.ReadablePort(input, PortValueTraits<T>::MATRIX_KIND);
    if (port == nullptr || values == nullptr || !impl.Take(*port, false)) return 0;
    const TCIOStream::DataSegment* segment = port->stream->Segment(0);
    if (segment == nullptr || segment->GetElementCount() == 0) return 0;
    const T* data = PortValueTraits<T>::Data(*segment);
    if (data == nullptr) return impl.WrongData(*port);
    *values = data;
    segment->GetShape(rows, cols);
    return 1;
}

template <class T>
const T* AccessData(const Impl& impl, unsigned input, int& count) {
    count = 0;
    const PORT* port = impl.Port(INPUT, input);
    const TCIOStream::DataSegment* segment = port != nullptr ? port->stream->Segment(0) : nullptr;
    const T* data = segment != nullptr ? PortValueTraits<T>::Data(*segment) : nullptr;
    if (data != nullptr) count = segment->GetElementCount();
    return data;
}

}  // namespace

PORT* Impl::WritablePort(unsigned output, TYPE kinds) {
    PORT* port = Port(OUTPUT, output);
    if (port == nullptr || (kinds != 0 && (port->Code() & kinds) == 0)) return nullptr;
    return port->IsConnected() ? port : nullptr;
}

PORT* Impl::ReadablePort(unsigned input, TYPE kinds) {
    PORT* port = Port(INPUT, input);
    return port != nullptr && (kinds == 0 || (port->Code() & kinds) != 0) ? port : nullptr;
}

int Impl::WrongData(const PORT& port) {
    return Fail(port, ANOTHER_TYPE, "Block data does not match datatype of input port");
}

int Impl::FinishRead(PORT& port, int wanted, int result) {
    if (port.CarriesTypeInfo()) port.KeepTypeInfo(port.stream->GetTI());
    if (result < 0) return Fail(port, result);
    if (result == 0) return wanted > 0 ? WrongData(port) : 0;
    return 1;
}

bool Impl::Take(PORT& port, bool firstElements) {
    if (port.stream->StartReadSegments(firstElements) != 1) return false;
    if (port.CarriesTypeInfo()) port.KeepTypeInfo(port.stream->GetTI());
    return true;
}

int TCPortHelper::WriteIntData(unsigned output, unsigned long count, const int* values) {
    return tc::WriteData(*impl, output, count, values);
}
int TCPortHelper::WriteIntVal(unsigned output, int value) {
    return tc::WriteData(*impl, output, 1, &value);
}
int TCPortHelper::WriteIntArray(unsigned output, const TCArray<int, int>& values) {
    return tc::WriteData(*impl, output, static_cast<unsigned long>(values.GetSize()), values.GetData());
}
int TCPortHelper::WriteDblData(unsigned output, unsigned long count, const double* values) {
    return tc::WriteData(*impl, output, count, values);
}
int TCPortHelper::WriteDblVal(unsigned output, double value) {
    return tc::WriteData(*impl, output, 1, &value);
}
int TCPortHelper::WriteDblArray(unsigned output, const TCArray<double, double>& values) {
    return tc::WriteData(*impl, output, static_cast<unsigned long>(values.GetSize()), values.GetData());
}
int TCPortHelper::WriteStringData(unsigned output, unsigned long count, const TCString* values) {
    return tc::WriteData(*impl, output, count, values);
}
int TCPortHelper::WriteStringVal(unsigned output, const TCString& value) {
    return tc::WriteData(*impl, output, 1, &value);
}
int TCPortHelper::WriteStringArray(unsigned output, const TCArray<TCString, const TCString&>& values) {
    return tc::WriteData(*impl, output, static_cast<unsigned long>(values.GetSize()), values.GetData());
}
int TCPortHelper::WriteCStringData(unsigned output, unsigned long count, const CString* values) {
    return tc::WriteData(*impl, output, count, values);
}
int TCPortHelper::WriteCStringVal(unsigned output, const CString& value) {
    return tc::WriteData(*impl, output, 1, &value);
}
int TCPortHelper::WriteCStringArray(unsigned output, const CStringArray& values) {
    return tc::WriteData(*impl, output, values.size(), values.data());
}
int TCPortHelper::WriteIntMatrix(unsigned output, int rows, int cols, const int* values) {
    return tc::WriteMatrix(*impl, output, rows, cols, values, false);
}
int TCPortHelper::WriteDblMatrix(unsigned output, int rows, int cols, const double* values) {
    return tc::WriteMatrix(*impl, output, rows, cols, values, false);
}

int TCPortHelper::WritePtr(unsigned output, const void* data, int count) {
    PORT* port = impl->WritablePort(output, POINTERS);
    if (port == nullptr || (port->Code() & tc::KIND_MASK) != 0) return 0;  // a matrix is written as such
    return tc::WriteBlock(*impl, *port, data != nullptr && count > 0, static_cast<std::uint64_t>(count),
                          [&](TCIOStream& stream) { return stream.WritePtr(data, count); });
}

int TCPortHelper::ReadIntData(unsigned input, unsigned long& count, int* buffer) {
    return tc::ReadData(*impl, input, count, buffer);
}
int TCPortHelper::ReadIntLastVal(unsigned input, int& value, bool all) {
    return ReadLastVal(*impl, input, value, all);
}
int TCPortHelper::ReadIntArray(unsigned input, TCArray<int, int>& values) {
    return ReadArray<int>(*impl, input, values);
}
int TCPortHelper::ReadDblData(unsigned input, unsigned long& count, double* buffer) {
    return tc::ReadData(*impl, input, count, buffer);
}
int TCPortHelper::ReadDblLastVal(unsigned input, double& value, bool all) {
    return ReadLastVal(*impl, input, value, all);
}
int TCPortHelper::ReadDblArray(unsigned input, TCArray<double, double>& values) {
    return ReadArray<double>(*impl, input, values);
}
int TCPortHelper::ReadStringData(unsigned input, unsigned long& count, TCString* buffer) {
    return tc::ReadData(*impl, input, count, buffer);
}
int TCPortHelper::ReadStringLastVal(unsigned input, TCString& value, bool all) {
    return ReadLastVal(*impl, input, value, all);
}
int TCPortHelper::ReadStringArray(unsigned input, TCArray<TCString, const TCString&>& values) {
    return ReadArray<TCString>(*impl, input, values);
}
int TCPortHelper::ReadCStringData(unsigned input, unsigned long& count, CString* buffer) {
    return tc::ReadData(*impl, input, count, buffer);
}
int TCPortHelper::ReadCStringLastVal(unsigned input, CString& value, bool all) {
    return ReadLastVal(*impl, input, value, all);
}
int TCPortHelper::ReadCStringArray(unsigned input, CStringArray& values) {
    return ReadArray<CString>(*impl, input, values);
}
int TCPortHelper::ReadIntMatrix(unsigned input, const int** values, int& rows, int& cols) {
    return ReadMatrix(*impl, input, values, rows, cols);
}
int TCPortHelper::ReadDblMatrix(unsigned input, const double** values, int& rows, int& cols) {
    return ReadMatrix(*impl, input, values, rows, cols);
}

int TCPortHelper::ReadPtr(unsigned input, void** data, int* count) {
    PORT* port = impl->ReadablePort(input, POINTERS);
    if (port == nullptr || (port->Code() & tc::KIND_MASK) != 0 || !impl->Take(*port, false)) return 0;
    const TCIOStream::DataSegment* segment = port->stream->Segment(0);
    if (segment == nullptr) return 0;
    if (segment->GetType() != TCIOStream::POINTER) return impl->WrongData(*port);
    if (data != nullptr) *data = const_cast<void*>(segment->GetData());
    if (count != nullptr) *count = segment->GetElementCount();
    return 1;
}

int TCPortHelper::TakeBlock(unsigned input) {
    PORT* port = impl->ReadablePort(input, 0);
    return port != nullptr && impl->Take(*port, port->multipleBlocksInChannel) ? 1 : 0;
}

const int* TCPortHelper::AccessIntData(unsigned input, int& count) const {
    return AccessData<int>(*impl, input, count);
}
const double* TCPortHelper::AccessDblData(unsigned input, int& count) const {
    return AccessData<double>(*impl, input, count);
}
const TCString* TCPortHelper::AccessStringData(unsigned input, int& count) const {
    return AccessData<TCString>(*impl, input, count);
}
