#include <algorithm>
#include <optional>
#include <utility>

#include "sigweave/module/PortRecord.h"

using Impl = TCPortHelper::TCPortHelperImpl;
using PORT = Impl::PORT;

namespace {

bool IsWiredNow(const PORT& port, bool running) {
    return running ? port.IsConnected() : port.lines != 0;
}

bool IsConnected(const PORT* port) {
    return port != nullptr && port->IsConnected();
}

Impl::BACKUPPORT* Backup(Impl& impl, PORTTYPE kind, unsigned index) {
    if (impl.Port(kind, index) == nullptr) return nullptr;
    std::vector<Impl::BACKUPPORT>& backups = kind == INPUT ? impl.inputBackups : impl.outputBackups;
    if (index >= backups.size()) backups.resize(index + 1);
    return &backups[index];
}

}  // namespace

int Impl::NotWired(PORTTYPE kind, unsigned index) {
    error = TCPortError();
    error.code = NOT_WIRED;
    error.kind = kind;
    error.portIndex = static_cast<int>(index);
    if (const PORT* port = Port(kind, index)) error.ownStream = port->stream.get();
    return NOT_WIRED;
}

void TCPortHelper::AddLine(PORTTYPE kind, unsigned index) {
    PORT* port = impl->Port(kind, index);
    if (port == nullptr) return;
    ++port->lines;
    if (Impl::DATATYPE* type = impl->Type(kind, index)) type->AddLine(1);
}

void TCPortHelper::DelLine(PORTTYPE kind, unsigned index) {
    PORT* port = impl->Port(kind, index);
    if (port == nullptr) return;
    if (port->lines != 0) --port->lines;
    if (Impl::DATATYPE* type = impl->Type(kind, index)) type->DelLine();
}

bool TCPortHelper::IsWired(PORTTYPE kind, unsigned index, LINETYPE lineType) const {
    const PORT* port = impl->Port(kind, index);
    if (port == nullptr) return false;
    switch (lineType) {
        case LINES_DRAWN:
            return IsWiredNow(*port, false);
        case STREAM_CONNECTED:
            return IsWiredNow(*port, true);
        case LINES_OR_STREAM:
            return IsWiredNow(*port, impl->running);
        default:
            return false;
    }
}

bool TCPortHelper::AnyPortWired(int kind) const {
    const auto wired = [this](const PORT& port) { return IsWiredNow(port, impl->running); };
    const bool both = kind == (INPUT | OUTPUT);
    return ((both || kind == INPUT) && std::ranges::any_of(impl->inputs, wired)) ||
           ((both || kind != INPUT) && std::ranges::any_of(impl->outputs, wired));
}

int TCPortHelper::CheckWired(unsigned inputA, unsigned inputB) {
    const PORT* a = impl->Port(INPUT, inputA);
    const PORT* b = impl->Port(INPUT, inputB);
    if (a == nullptr || b == nullptr) return 0;
    return a->IsConnected() && !b->IsConnected() ? impl->NotWired(INPUT, inputB) : 0;
}

int TCPortHelper::CheckWired(unsigned inputA, const unsigned* list, unsigned count, CHECK_PT mode) {
    if (list == nullptr || count == 0 || !IsConnected(impl->Port(INPUT, inputA))) return 0;
    for (unsigned i = 0; i < count; ++i) {
        const PORT* port = impl->Port(INPUT, list[i]);
        if (port == nullptr) return 0;
        if (mode == CHECK_AT_LEAST_ONE && port->IsConnected()) return 0;
        if (mode == CHECK_EVERY && !port->IsConnected()) return impl->NotWired(INPUT, list[i]);
    }
    return mode == CHECK_AT_LEAST_ONE ? impl->NotWired(INPUT, list[0]) : 0;
}

int TCPortHelper::CheckAllOrNoneWired(unsigned inputA, unsigned inputB) {
    const int result = CheckWired(inputA, inputB);
    return result != 0 ? result : CheckWired(inputB, inputA);
}

void TCPortHelper::SetExtPorts(unsigned first, unsigned second) {
    impl->hasExtPorts = true;
    impl->extPorts = {first, second};
}

int TCPortHelper::UseExtPar(int selector) {
    return std::exchange(impl->extSelector, selector);
}

bool TCPortHelper::IsExtWiredOK() {
    const std::optional<unsigned> input = impl->SelectedExtPort();
    if (!impl->checkObligatory || !input || IsConnected(impl->Port(INPUT, *input))) return true;
    impl->NotWired(INPUT, *input);
    return false;
}

bool TCPortHelper::AreObligatoryInputsWired() {
    if (!impl->checkObligatory) return true;
    for (unsigned i = 0; i < impl->inputs.size(); ++i) {
        if (!impl->inputs[i].obligatory || impl->inputs[i].IsConnected()) continue;
        impl->NotWired(INPUT, i);
        return false;
    }
    return true;
}

TCIOStream* TCPortHelper::SetInputStream(unsigned index, int /*unused*/, int precision) {
    PORT* port = impl->Port(INPUT, index);
    return port != nullptr ? port->stream->SetInputStream(precision) : nullptr;
}

void TCPortHelper::AddOutputStream(unsigned index, TCIOStream* receiver) {
    if (PORT* port = impl->Port(OUTPUT, index)) port->stream->AddOutputStream(receiver);
}

void TCPortHelper::DeleteStreams() {
    for (const PORTTYPE kind : {INPUT, OUTPUT})
        for (PORT& port : impl->Ports(kind)) port.stream->DeleteStreams();
}

void TCPortHelper::StoreValidation(PORTTYPE kind, unsigned index) {
    Impl::BACKUPPORT* backup = Backup(*impl, kind, index);
    if (backup != nullptr) backup->typeString = GetPortType(kind, index, &backup->count);
}

int TCPortHelper::ComputeValidationData(CALLED_FROM from, bool store) {
    int changed = 0;
    for (const PORTTYPE kind : {INPUT, OUTPUT}) {
        for (unsigned i = 0; i < impl->Ports(kind).size(); ++i) {
            if (!IsWiredNow(impl->Ports(kind)[i], from == CALLED_FROM_RUN)) continue;
            const Impl::BACKUPPORT& backup = *Backup(*impl, kind, i);
            int count = 0;
            const TCString typeString(GetPortType(kind, i, &count));
            if (!backup.typeString.IsEmpty() && (backup.count != count || backup.typeString != typeString))
                ++changed;
            if (store) StoreValidation(kind, i);
        }
    }
    impl->validated = changed == 0;
    return changed;
}
