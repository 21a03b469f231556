#include <utility>

#include "sigweave/module/PortRecord.h"

using Impl = TCPortHelper::TCPortHelperImpl;
using PORT = Impl::PORT;

namespace {

struct ErrorText {
    int code;
    const char* text;
};
constexpr ErrorText ERROR_TEXTS[] = {
    {TCPortHelper::ANOTHER_TYPE, "the data are of another type"},
    {TCPortHelper::NOT_WIRED, "the port is not wired"},
    {TCPortHelper::STATE_CONFLICT, "the block's state does not follow that of a block that waits"},
    {TCPortHelper::STATE_CONFLICT_AGAIN,
     "again the block's state does not follow that of a block that waits"},
    {TCPortHelper::VALUE_COUNTS_DIFFER, "the blocks differ in length"},
    {TCPortHelper::UNITS_DIFFER, "the signals differ in unit"},
    {TCPortHelper::BLOCK_COUNTS_DIFFER, "the numbers of waiting blocks differ"},
    {TCPortHelper::STATES_DIFFER, "the blocks differ in state"},
    {TCPortHelper::SAMPLERATES_DIFFER, "the signals differ in samplerate"},
    {TCPortHelper::NOT_CREATED, "the block could not be made"},
};

const char* TextOf(int code) {
    for (const ErrorText& row : ERROR_TEXTS)
        if (row.code == code) return row.text;
    return "the operation failed";
}

}  // namespace

int Impl::Fail(const PORT& port, int code, const TCString& text) {
    const bool isInput = port.kind == INPUT;
    error.code = code;
    error.kind = port.kind;
    error.portIndex = static_cast<int>(&port - Ports(port.kind).data());
    error.otherIndex = isInput ? -1 : port.stream->GetErrFan();
    error.ownStream = port.stream.get();
    error.otherStream = isInput ? nullptr : port.stream->GetFan(error.otherIndex);
    error.text1 = text;
    error.text2 = "";
    return code;
}

const TCPortError& TCPortHelper::GetErrorRecord() const {
    return impl->error;
}

void TCPortHelper::ClearErrorRecord() {
    impl->error = TCPortError();
}

int TCPortHelper::SetErrMsg(int code, PORTTYPE kind, unsigned index, int otherIndex, const char* text1,
                            const char* text2) {
    TCPortError error;  // apart from the record, whose texts may be among the arguments
    error.code = code;
    error.kind = kind == INPUT ? INPUT : OUTPUT;
    error.portIndex = static_cast<int>(index);
    error.otherIndex = otherIndex;
    error.text1 = text1;
    error.text2 = text2;
    const PORT* port = impl->Port(kind, index);
    const PORT* other = otherIndex >= 0 ? impl->Port(kind, static_cast<unsigned>(otherIndex)) : nullptr;
    if (port != nullptr) error.ownStream = port->stream.get();
    if (kind == INPUT && other != nullptr) error.otherStream = other->stream.get();
    if (kind != INPUT && port != nullptr) error.otherStream = port->stream->GetFan(otherIndex);
    impl->error = std::move(error);
    return code;
}

int TCPortHelper::SetErrMsg(int code, PORTTYPE kind, unsigned index, int otherIndex) {
    return SetErrMsg(code, kind, index, otherIndex, nullptr, nullptr);
}

TCString TCPortHelper::GetErrorText() const {
    const TCPortError& error = impl->error;
    if (error.code == 0) return TCString();
    const bool isInput = error.kind == INPUT;
    TCString text = isInput ? "Input" : "Output";
    text.FormatAppend(
        " \"%s\"", static_cast<const char*>(GetPortName(error.kind, static_cast<unsigned>(error.portIndex))));
    const bool namesOther = error.otherIndex >= 0 && error.otherStream != nullptr;
    if (namesOther && isInput)
        text.FormatAppend(" and input \"%s\"", static_cast<const char*>(GetPortName(
                                                   INPUT, static_cast<unsigned>(error.otherIndex))));
    if (namesOther && !isInput) text.FormatAppend(", receiver %d", error.otherIndex + 1);
    text += ": ";
    text += error.text1.IsEmpty() ? TCString(TextOf(error.code)) : error.text1;
    if (!error.text2.IsEmpty()) text += " " + error.text2;
    text.FormatAppend(" (%d)", error.code);
    return text;
}
