#include <climits>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>

#include "sigweave/module/PortRecord.h"
#include "sigweave/module/PortValueTraits.h"
#include "sigweave/services/SystemTime.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

using Impl = TCPortHelper::TCPortHelperImpl;
using PORT = Impl::PORT;
using TYPE = TCPortHelper::TYPE;
using tc::PortValueTraits;

namespace {

// What one block of a channel holds, and how it is named in messages.
struct ChannelKind {
    TYPE code;
    const char* element;
    const char* shape;
};

template <class T>
constexpr ChannelKind VALUE{TCPortHelper::TYPE_TYPEINFO | PortValueTraits<T>::SINGLE,
                            PortValueTraits<T>::NAME, "value"};
template <class T>
constexpr ChannelKind ARRAY{TCPortHelper::TYPE_TYPEINFO | PortValueTraits<T>::ARRAY, PortValueTraits<T>::NAME,
                            "array"};
template <class T>
constexpr ChannelKind MATRIX{TCPortHelper::TYPE_TYPEINFO | PortValueTraits<T>::MATRIX,
                             PortValueTraits<T>::NAME, "matrix"};
constexpr ChannelKind POINTER_VALUE{TCPortHelper::TYPE_TYPEINFO | TCPortHelper::TYPE_POINTER, "pointer",
                                    "value"};

struct Channel {
    int index;
    const char* name;
    const TCTypeInfo* typeInfo;
};

struct Values {
    TCIOStream::DATATYPE element;
    int dimensions;
    int extents[2];
    const void* data;
    bool copy;

    bool IsEmpty() const {
        return data == nullptr || extents[0] <= 0 || (dimensions == 2 && extents[1] <= 0);
    }
    bool IsTooLong() const { return dimensions == 2 && std::int64_t{extents[0]} * extents[1] > INT_MAX; }
};

// Valid until the next write; null when no segment can have that name.
const char* SegmentName(Impl& impl, PORT& port, const ChannelKind& kind, const Channel& channel) {
    const char* signal = channel.name != nullptr ? channel.name : "";
    tc::ChannelName& known = port.channelNames[channel.index];
    if (known.code == kind.code && known.signal == signal) return known.segment;
    if (std::strstr(signal, "\r\n") != nullptr) return nullptr;
    int items = 0;
    const TCString typeString = Impl::DATATYPE::GetTypeStr(kind.code, "", &items);
    known.segment = TCBusSerializeHelper::GenSegmentName(kind.code, typeString, items, channel.index, signal,
                                                         impl.SymbolName());
    known.signal = signal;
    known.code = kind.code;
    return known.segment;
}

int WriteChannel(Impl& impl, unsigned output, const ChannelKind& kind, const Channel& channel,
                 const Values& values) {
    PORT* port = impl.WritablePort(output, TCPortHelper::TYPE_MULTI);
    if (port == nullptr || values.IsEmpty()) return 0;
    if (values.IsTooLong()) return impl.Fail(*port, TCPortHelper::NOT_CREATED);
    const char* name = SegmentName(impl, *port, kind, channel);
    if (name == nullptr)
        return impl.Fail(*port, TCPortHelper::NOT_CREATED, "The name of a channel holds a line break");
    int result = impl.StartParts(*port);
    if (result < 1) return result;
    result = port->stream->WriteBusSegment(name, values.element, values.dimensions, values.extents,
                                           values.data, values.copy, channel.typeInfo);
    return result < 0 ? impl.Fail(*port, result) : 0;
}

template <class T>
int WriteValue(Impl& impl, unsigned output, const T& value, const Channel& channel) {
    return WriteChannel(impl, output, VALUE<T>, channel,
                        {PortValueTraits<T>::ELEMENT, 1, {1, 1}, &value, true});
}

template <class T>
int WriteData(Impl& impl, unsigned output, int count, const T* values, const Channel& channel) {
    return WriteChannel(impl, output, ARRAY<T>, channel,
                        {PortValueTraits<T>::ELEMENT, 1, {count, 1}, values, true});
}

template <class T>
int WriteMatrix(Impl& impl, unsigned output, int rows, int cols, const T* values, bool copy,
                const Channel& channel) {
    return WriteChannel(impl, output, MATRIX<T>, channel,
                        {PortValueTraits<T>::ELEMENT, 2, {rows, cols}, values, copy});
}

// A channel is asked for by its name or by its index.
int FindChannel(const TCIOStream& stream, const char* name) {
    return name != nullptr ? stream.FindBusSegment(name, -1) : -1;
}
int FindChannel(const TCIOStream& stream, int channel) {
    return stream.FindBusSegment(nullptr, channel);
}
TCString Place(const char* name) {
    return TCString::FormatS("'%s'", name);
}
TCString Place(int channel) {
    return TCString::FormatS("%d", channel);
}

bool IsOfKind(const TCIOStream& stream, int segment, const ChannelKind& kind) {
    TCBusSerializeHelper::Parts name;
    return TCBusSerializeHelper::SplitSegmentName(stream.SegmentName(segment), name) &&
           TCBusSerializeHelper::SameDataType(name.validation, kind.code);
}

// Hands the next block of a channel to `deliver`, which is false when it is of another element type.
template <class Where, class Deliver>
int ReadChannel(Impl& impl, unsigned input, Where where, const ChannelKind& kind, TCTypeInfo* ti,
                Deliver deliver) {
    PORT* port = impl.ReadablePort(input, TCPortHelper::TYPE_MULTI);
    if (port == nullptr || !port->IsConnected()) return 0;
    const int segment = FindChannel(*port->stream, where);
    if (segment < 0) return 0;
    if (IsOfKind(*port->stream, segment, kind)) {
        const TCIOStream::DataSegment* values = port->stream->ReadBusSegment(segment, ti);
        if (values == nullptr) return 0;
        const int result = impl.Guarded(*port, [&] { return deliver(*values) ? 1 : 0; });
        if (result != 0) return result;
    }
    return impl.Fail(*port, TCPortHelper::ANOTHER_TYPE,
                     TCString::FormatS("Datatype does not match while reading BUS %s %s at channel %s",
                                       kind.element, kind.shape, static_cast<const char*>(Place(where))));
}

template <class T, class Where>
int ReadValue(Impl& impl, unsigned input, Where where, T& value, TCTypeInfo* ti) {
    return ReadChannel(impl, input, where, VALUE<T>, ti, [&value](const TCIOStream::DataSegment& values) {
        const T* data = PortValueTraits<T>::Data(values);
        const int count = values.GetElementCount();
        if (data == nullptr || count == 0) return false;
        value = data[count - 1];
        return true;
    });
}

template <class T, class Where, class Array>
int ReadArray(Impl& impl, unsigned input, Where where, Array& array, TCTypeInfo* ti) {
    return ReadChannel(impl, input, where, ARRAY<T>, ti, [&array](const TCIOStream::DataSegment& values) {
        const T* data = PortValueTraits<T>::Data(values);
        if (data == nullptr) return false;
        tc::ResizeArray(array, values.GetElementCount());
        std::copy_n(data, values.GetElementCount(), tc::ArrayData(array));
        return true;
    });
}

template <class T, class Where>
int ReadMatrix(Impl& impl, unsigned input, Where where, const T** matrix, int& rows, int& cols,
               TCTypeInfo* ti) {
    if (matrix == nullptr) return 0;
    return ReadChannel(impl, input, where, MATRIX<T>, ti, [&](const TCIOStream::DataSegment& values) {
        const T* data = PortValueTraits<T>::Data(values);
        if (data == nullptr) return false;
        *matrix = data;
        values.GetShape(rows, cols);
        return true;
    });
}

template <class Where>
int ReadPointer(Impl& impl, unsigned input, Where where, void** data, int* count, TCTypeInfo* ti) {
    return ReadChannel(impl, input, where, POINTER_VALUE, ti, [&](const TCIOStream::DataSegment& values) {
        if (values.GetType() != TCIOStream::POINTER) return false;
        if (data != nullptr) *data = const_cast<void*>(values.GetData());
        if (count != nullptr) *count = values.GetElementCount();
        return true;
    });
}

using CountChannel = int (TCIOStream::*)(int) const;

template <class Where>
int Count(const Impl& impl, unsigned input, Where where, CountChannel count) {
    const PORT* port = impl.Port(INPUT, input);
    if (port == nullptr || (port->Code() & TCPortHelper::TYPE_MULTI) == 0) return 0;
    const int segment = FindChannel(*port->stream, where);
    return segment >= 0 ? ((*port->stream).*count)(segment) : 0;
}

}  // namespace

const TCString& Impl::SymbolName() {
    static std::mutex mutex;  // of the numbers: modules may write on several threads
    static std::minstd_rand random(static_cast<unsigned>(static_cast<std::uint64_t>(TCSystemTime())));
    if (symbolName.IsEmpty()) {
        const std::lock_guard lock(mutex);
        const std::uint32_t product =
            static_cast<std::uint32_t>(random()) * static_cast<std::uint32_t>(random());
        symbolName.Format("%x", product);
    }
    return symbolName;
}

int TCPortHelper::WriteIntBusBlock(unsigned output, int value, int channel, const char* name,
                                   const TCTypeInfo* ti) {
    return WriteValue(*impl, output, value, {channel, name, ti});
}
int TCPortHelper::WriteDblBusBlock(unsigned output, double value, int channel, const char* name,
                                   const TCTypeInfo* ti) {
    return WriteValue(*impl, output, value, {channel, name, ti});
}
int TCPortHelper::WriteStringBusBlock(unsigned output, const TCString& value, int channel, const char* name,
                                      const TCTypeInfo* ti) {
    return WriteValue(*impl, output, value, {channel, name, ti});
}
int TCPortHelper::WriteIntDataBusBlock(unsigned output, int count, const int* values, int channel,
                                       const char* name, const TCTypeInfo* ti) {
    return WriteData(*impl, output, count, values, {channel, name, ti});
}
int TCPortHelper::WriteDblDataBusBlock(unsigned output, int count, const double* values, int channel,
                                       const char* name, const TCTypeInfo* ti) {
    return WriteData(*impl, output, count, values, {channel, name, ti});
}
int TCPortHelper::WriteStringDataBusBlock(unsigned output, int count, const TCString* values, int channel,
                                          const char* name, const TCTypeInfo* ti) {
    return WriteData(*impl, output, count, values, {channel, name, ti});
}
int TCPortHelper::WriteIntMatrixBusBlock(unsigned output, int rows, int cols, const int* values, bool copy,
                                         int channel, const char* name, const TCTypeInfo* ti) {
    return WriteMatrix(*impl, output, rows, cols, values, copy, {channel, name, ti});
}
int TCPortHelper::WriteDblMatrixBusBlock(unsigned output, int rows, int cols, const double* values, bool copy,
                                         int channel, const char* name, const TCTypeInfo* ti) {
    return WriteMatrix(*impl, output, rows, cols, values, copy, {channel, name, ti});
}
int TCPortHelper::WritePtrBusBlock(unsigned output, const void* data, int count, int channel,
                                   const char* name, const TCTypeInfo* ti) {
    return WriteChannel(*impl, output, POINTER_VALUE, {channel, name, ti},
                        {TCIOStream::POINTER, 1, {count, 1}, data, false});
}

int TCPortHelper::ReadIntBusBlock(unsigned input, const char* name, int& value, TCTypeInfo* ti) {
    return ReadValue(*impl, input, name, value, ti);
}
int TCPortHelper::ReadIntBusBlock(unsigned input, int channel, int& value, TCTypeInfo* ti) {
    return ReadValue(*impl, input, channel, value, ti);
}
int TCPortHelper::ReadDblBusBlock(unsigned input, const char* name, double& value, TCTypeInfo* ti) {
    return ReadValue(*impl, input, name, value, ti);
}
int TCPortHelper::ReadDblBusBlock(unsigned input, int channel, double& value, TCTypeInfo* ti) {
    return ReadValue(*impl, input, channel, value, ti);
}
int TCPortHelper::ReadStringBusBlock(unsigned input, const char* name, TCString& value, TCTypeInfo* ti) {
    return ReadValue(*impl, input, name, value, ti);
}
int TCPortHelper::ReadStringBusBlock(unsigned input, int channel, TCString& value, TCTypeInfo* ti) {
    return ReadValue(*impl, input, channel, value, ti);
}
int TCPortHelper::ReadIntArrayBusBlock(unsigned input, const char* name, TCArray<int, int>& values,
                                       TCTypeInfo* ti) {
    return ReadArray<int>(*impl, input, name, values, ti);
}
int TCPortHelper::ReadIntArrayBusBlock(unsigned input, int channel, TCArray<int, int>& values,
                                       TCTypeInfo* ti) {
    return ReadArray<int>(*impl, input, channel, values, ti);
}
int TCPortHelper::ReadDblArrayBusBlock(unsigned input, const char* name, TCArray<double, double>& values,
                                       TCTypeInfo* ti) {
    return ReadArray<double>(*impl, input, name, values, ti);
}
int TCPortHelper::ReadDblArrayBusBlock(unsigned input, int channel, TCArray<double, double>& values,
                                       TCTypeInfo* ti) {
    return ReadArray<double>(*impl, input, channel, values, ti);
}
int TCPortHelper::ReadStringArrayBusBlock(unsigned input, const char* name,
                                          TCArray<TCString, const TCString&>& values, TCTypeInfo* ti) {
    return ReadArray<TCString>(*impl, input, name, values, ti);
}
int TCPortHelper::ReadStringArrayBusBlock(unsigned input, int channel,
                                          TCArray<TCString, const TCString&>& values, TCTypeInfo* ti) {
    return ReadArray<TCString>(*impl, input, channel, values, ti);
}
int TCPortHelper::ReadIntMatrixBusBlock(unsigned input, const char* name, const int** values, int& rows,
                                        int& cols, TCTypeInfo* ti) {
    return ReadMatrix(*impl, input, name, values, rows, cols, ti);
}
int TCPortHelper::ReadIntMatrixBusBlock(unsigned input, int channel, const int** values, int& rows, int& cols,
                                        TCTypeInfo* ti) {
    return ReadMatrix(*impl, input, channel, values, rows, cols, ti);
}
int TCPortHelper::ReadDblMatrixBusBlock(unsigned input, const char* name, const double** values, int& rows,
                                        int& cols, TCTypeInfo* ti) {
    return ReadMatrix(*impl, input, name, values, rows, cols, ti);
}
int TCPortHelper::ReadDblMatrixBusBlock(unsigned input, int channel, const double** values, int& rows,
                                        int& cols, TCTypeInfo* ti) {
    return ReadMatrix(*impl, input, channel, values, rows, cols, ti);
}
int TCPortHelper::ReadPtrBusBlock(unsigned input, const char* name, void** data, int* count, TCTypeInfo* ti) {
    return ReadPointer(*impl, input, name, data, count, ti);
}
int TCPortHelper::ReadPtrBusBlock(unsigned input, int channel, void** data, int* count, TCTypeInfo* ti) {
    return ReadPointer(*impl, input, channel, data, count, ti);
}

int TCPortHelper::GetBusBlockCnt(unsigned input, const char* name) const {
    return Count(*impl, input, name, &TCIOStream::BusSegmentCnt);
}
int TCPortHelper::GetBusBlockCnt(unsigned input, int channel) const {
    return Count(*impl, input, channel, &TCIOStream::BusSegmentCnt);
}
int TCPortHelper::GetBusBlockElementCnt(unsigned input, const char* name) const {
    return Count(*impl, input, name, &TCIOStream::BusSegmentElementCnt);
}
int TCPortHelper::GetBusBlockElementCnt(unsigned input, int channel) const {
    return Count(*impl, input, channel, &TCIOStream::BusSegmentElementCnt);
}

void TCPortHelper::EnableMultipleBlocksInBusChannel(unsigned input, bool enable) {
    if (PORT* port = impl->Port(INPUT, input)) port->multipleBlocksInChannel = enable;
}
