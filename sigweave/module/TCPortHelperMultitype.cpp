#include <utility>

#include "sigweave/module/PortRecord.h"
#include "sigweave/module/PortValueTraits.h"

using Impl = TCPortHelper::TCPortHelperImpl;
using PORT = Impl::PORT;

namespace {

template <class T>
constexpr const char* PART_NAME = tc::PortValueTraits<T>::SEGMENT_NAME;
template <>
constexpr const char* PART_NAME<TCArray<TCIOStream::Block*>> = "block";

template <class T>
constexpr const char* PLURAL = "";
template <>
constexpr const char* PLURAL<TCArray<TCIOStream::Block*>> = "s";

TCString Place(int segment) {
    return TCString::FormatS("%d", segment);
}
TCString Place(const char* name) {
    return TCString::FormatS("'%s'", name);
}

template <class T>
int WritePart(Impl& impl, unsigned output, const char* name, const T& value) {
    PORT* port = impl.WritablePort(output, TCPortHelper::TYPE_MULTI);
    if (port == nullptr) return 0;
    int result = impl.StartParts(*port);
    if (result < 1) return result;
    result = port->stream->WriteSegment(name != nullptr ? name : "", value);
    return result < 0 ? impl.Fail(*port, result) : 0;
}

// `where` is an index or a name.
template <class Where, class T>
int ReadPart(Impl& impl, unsigned input, Where where, T& value) {
    PORT* port = impl.ReadablePort(input, TCPortHelper::TYPE_MULTI);
    if (port == nullptr) return 0;
    const int result = port->stream->ReadSegment(where, value);
    if (result >= 0) return result > 0 ? 1 : 0;
    return impl.Fail(*port, result,
                     TCString::FormatS("Datatype does not match while reading %s value%s at segment %s",
                                       PART_NAME<T>, PLURAL<T>, static_cast<const char*>(Place(where))));
}

template <class T>
int ReadNamedPart(Impl& impl, unsigned input, const char* name, T& value) {
    return name != nullptr ? ReadPart(impl, input, name, value) : 0;
}

}  // namespace

int Impl::StartParts(PORT& port) {
    if (std::exchange(port.refused, false)) port.stream->CancelWriteSegments();
    const int result = port.stream->StartWriteSegments();
    return result < 0 ? Fail(port, result) : result;
}

int TCPortHelper::WriteMultitypeInt(unsigned output, const char* name, int value) {
    return WritePart(*impl, output, name, value);
}
int TCPortHelper::WriteMultitypeDbl(unsigned output, const char* name, double value) {
    return WritePart(*impl, output, name, value);
}
int TCPortHelper::WriteMultitypeString(unsigned output, const char* name, const TCString& value) {
    return WritePart(*impl, output, name, value);
}
int TCPortHelper::WriteMultitypeBlocks(unsigned output, const char* name,
                                       const TCArray<TCIOStream::Block*>& blocks) {
    return WritePart(*impl, output, name, blocks);
}

int TCPortHelper::EndWriteMultitype(unsigned output) {
    PORT* port = impl->WritablePort(output, TYPE_MULTI);
    if (port == nullptr) return 0;
    if (port->stream->SegmentCnt() == 0)
        return impl->Fail(*port, NOT_CREATED, "EndWriteMultitype was called without former Write... call");
    port->refused = true;
    if (const int result = impl->WriteTypeInfo(*port); result < 0) return result;
    port->refused = false;
    return impl->FinishBlock(*port, port->stream->EndWriteSegments() ? 0 : NOT_CREATED);
}

int TCPortHelper::StartReadMultitype(unsigned input) {
    PORT* port = impl->ReadablePort(input, TYPE_MULTI);
    return port != nullptr && impl->Take(*port, port->multipleBlocksInChannel) ? 1 : 0;
}

int TCPortHelper::ReadMultitypeInt(unsigned input, int segment, int& value) {
    return ReadPart(*impl, input, segment, value);
}
int TCPortHelper::ReadMultitypeInt(unsigned input, const char* name, int& value) {
    return ReadNamedPart(*impl, input, name, value);
}
int TCPortHelper::ReadMultitypeDbl(unsigned input, int segment, double& value) {
    return ReadPart(*impl, input, segment, value);
}
int TCPortHelper::ReadMultitypeDbl(unsigned input, const char* name, double& value) {
    return ReadNamedPart(*impl, input, name, value);
}
int TCPortHelper::ReadMultitypeString(unsigned input, int segment, TCString& value) {
    return ReadPart(*impl, input, segment, value);
}
int TCPortHelper::ReadMultitypeString(unsigned input, const char* name, TCString& value) {
    return ReadNamedPart(*impl, input, name, value);
}
int TCPortHelper::ReadMultitypeBlocks(unsigned input, int segment, TCArray<TCIOStream::Block*>& blocks) {
    return ReadPart(*impl, input, segment, blocks);
}
int TCPortHelper::ReadMultitypeBlocks(unsigned input, const char* name, TCArray<TCIOStream::Block*>& blocks) {
    return ReadNamedPart(*impl, input, name, blocks);
}
