#include <algorithm>
#include <cstdint>

#include "sigweave/module/PortRecord.h"

using Impl = TCPortHelper::TCPortHelperImpl;

namespace {

constexpr unsigned MAX_PORTS = 65536;

// False when there would be too many ports.
bool GrowPorts(std::vector<Impl::PORT>& ports, PORTTYPE kind, std::uint64_t count) {
    if (count > MAX_PORTS) return false;
    while (ports.size() < count) ports.emplace_back().kind = kind;
    return true;
}

void Attach(Impl& impl, Impl::PORT& port, PORTTYPE kind, const TCString& name, unsigned typeIndex) {
    if (port.types != nullptr) return;
    port.kind = kind;
    port.name = name;
    port.typeIndex = typeIndex;
    port.types = &impl.typeTable;
}

unsigned AddType(Impl& impl) {
    const int index = impl.typeTable.GetSize();
    impl.typeTable.SetSize(index + 1);
    return static_cast<unsigned>(index);
}

unsigned AddType(Impl& impl, const char* token, const char* declarator, bool withTypeInfo) {
    const unsigned index = AddType(impl);
    impl.typeTable[static_cast<int>(index)].ParseType(token, declarator, withTypeInfo);
    return index;
}

unsigned AddType(Impl& impl, TCPortHelper::TYPE code) {
    const unsigned index = AddType(impl);
    impl.typeTable[static_cast<int>(index)].GenType(code);
    return index;
}

PORTTYPE KindOf(PORTTYPE kind) {
    return kind == INPUT ? INPUT : OUTPUT;
}

// True when another port of that kind has the name.
bool IsNameTaken(const std::vector<Impl::PORT>& ports, unsigned index, const TCString& name) {
    for (std::size_t i = 0; i < ports.size(); ++i)
        if (i != index && ports[i].name == name) return true;
    return false;
}

// Blocks wait in queues that outlive the streams that made them: all of them go back first.
void ReleaseBlocks(Impl& impl) {
    for (Impl::PORT& port : impl.inputs) tc::DropBlocks(*port.stream);
    for (Impl::PORT& port : impl.outputs)
        for (int i = 0; i < port.stream->GetFanCnt(); ++i) tc::DropBlocks(*port.stream->GetFan(i));
}

}  // namespace

unsigned TCPortHelper::SetPort(PORTTYPE kind, unsigned index, const char* name, const char* token,
                               const char* declarator, bool withTypeInfo) {
    const unsigned typeIndex = AddType(*impl, token, declarator, withTypeInfo);
    AttachPort(kind, index, name, typeIndex);
    return typeIndex;
}

unsigned TCPortHelper::SetPort(PORTTYPE kind, unsigned index, const char* name, TYPE code) {
    const unsigned typeIndex = AddType(*impl, code);
    AttachPort(kind, index, name, typeIndex);
    return typeIndex;
}

unsigned TCPortHelper::SetPortRange(PORTTYPE kind, unsigned first, unsigned count, PortNameFunction name,
                                    const char* token, const char* declarator, bool withTypeInfo) {
    const unsigned typeIndex = AddType(*impl, token, declarator, withTypeInfo);
    AttachPortRange(kind, first, count, name, typeIndex);
    return typeIndex;
}

unsigned TCPortHelper::SetPortRange(PORTTYPE kind, unsigned first, unsigned count, PortNameFunction name,
                                    TYPE code) {
    const unsigned typeIndex = AddType(*impl, code);
    AttachPortRange(kind, first, count, name, typeIndex);
    return typeIndex;
}

void TCPortHelper::AttachPort(PORTTYPE kind, unsigned index, const char* name, unsigned typeIndex) {
    std::vector<Impl::PORT>& ports = impl->Ports(kind);
    if (!GrowPorts(ports, KindOf(kind), std::uint64_t{index} + 1)) return;
    if (typeIndex < static_cast<unsigned>(impl->typeTable.GetSize()))
        Attach(*impl, ports[index], KindOf(kind), name, typeIndex);
}

void TCPortHelper::AttachPortRange(PORTTYPE kind, unsigned first, unsigned count, PortNameFunction name,
                                   unsigned typeIndex) {
    std::vector<Impl::PORT>& ports = impl->Ports(kind);
    if (!GrowPorts(ports, KindOf(kind), std::uint64_t{first} + count)) return;
    if (typeIndex >= static_cast<unsigned>(impl->typeTable.GetSize())) return;
    for (unsigned index = first; index < first + count; ++index) {
        if (ports[index].types != nullptr) continue;
        const TCString portName = name != nullptr ? name(kind, index) : TCString();  // may declare more ports
        Attach(*impl, ports[index], KindOf(kind), portName, typeIndex);
    }
}

int TCPortHelper::GetPortCnt(PORTTYPE kind) const {
    return static_cast<int>(impl->Ports(kind).size());
}

const TCString& TCPortHelper::GetPortName(PORTTYPE kind, unsigned index) const {
    static const TCString none;
    const Impl::PORT* port = impl->Port(kind, index);
    return port != nullptr ? port->name : none;
}

int TCPortHelper::CheckPortNames(PORTTYPE kind) {
    const std::vector<Impl::PORT>& ports = impl->Ports(kind);
    for (unsigned i = 0; i < ports.size(); ++i) {
        if (ports[i].name.IsEmpty())
            return SetErrMsg(NOT_WIRED, kind, i, -1, "The port has no name", nullptr);
        for (unsigned other = 0; other < i; ++other) {
            if (ports[other].name != ports[i].name) continue;
            SetErrMsg(NOT_WIRED, kind, i, static_cast<int>(other), "Two ports have the same name", nullptr);
            if (kind != INPUT) impl->error.otherStream = nullptr;  // the other port is no receiver
            return NOT_WIRED;
        }
    }
    return 0;
}

TCString TCPortHelper::MakePortNameUnique(PORTTYPE kind, unsigned index, const char* name) const {
    const std::vector<Impl::PORT>& ports = impl->Ports(kind);
    TCString result(name);
    for (int number = 2; IsNameTaken(ports, index, result); ++number) {
        result = name;
        result.FormatAppend(" %d", number);
    }
    return result;
}

void TCPortHelper::SetObligatoryInput(unsigned index) {
    if (Impl::PORT* port = impl->Port(INPUT, index)) port->obligatory = true;
}

void TCPortHelper::SetObligatoryInputs(const unsigned* indexes, unsigned count) {
    if (indexes == nullptr) return;
    std::for_each_n(indexes, count, [this](unsigned index) { SetObligatoryInput(index); });
}

bool TCPortHelper::IsObligatoryInput(unsigned index) const {
    const Impl::PORT* port = impl->Port(INPUT, index);
    return port != nullptr && port->obligatory;
}

void TCPortHelper::SetTriggerInputs(const unsigned* indexes, unsigned count) {
    if (indexes != nullptr && count != 0) impl->triggerGroups.emplace_back(indexes, indexes + count);
}

void TCPortHelper::SetTriggerInputs(unsigned a, unsigned b) {
    impl->triggerGroups.push_back({a, b});
}

void TCPortHelper::ClearTriggerInputs() {
    impl->triggerGroups.clear();
}

void TCPortHelper::ClearPorts(bool release) {
    impl->validated = false;
    if (release) ReleaseBlocks(*impl);
    impl->inputs.clear();
    impl->outputs.clear();
    impl->typeTable.RemoveAll(true);
    impl->triggerGroups.clear();
    UseDynPorts(nullptr, 0);
}
