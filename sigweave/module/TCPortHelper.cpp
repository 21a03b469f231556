#include "sigweave/module/TCPortHelper.h"

#include "sigweave/module/PortRecord.h"
#include "sigweave/module/TCBaseModule.h"
#include "sigweave/services/SystemTime.h"

using Impl = TCPortHelper::TCPortHelperImpl;

namespace {

constexpr int SOURCE_MODULE = 1;

void ClearPort(Impl::PORT& port) {
    tc::DropBlocks(*port.stream);
    port.stream->CancelWriteSegments();
    port.refused = false;
    port.previousState = INVALID;
    port.metadata.handedOverBefore = false;
    if (port.kind == INPUT) port.typeInfo.Init();
}

}  // namespace

Impl::TCPortHelperImpl(TCBaseModule* owner) : module(owner) {}

Impl::~TCPortHelperImpl() = default;

Impl::DATATYPE* Impl::Type(PORTTYPE kind, unsigned index) {
    const PORT* port = Port(kind, index);
    return port != nullptr && port->types != nullptr ? &typeTable[static_cast<int>(port->typeIndex)]
                                                     : nullptr;
}

const Impl::DATATYPE* Impl::Type(PORTTYPE kind, unsigned index) const {
    return const_cast<TCPortHelperImpl*>(this)->Type(kind, index);
}

double Impl::SyncTime() {
    if (syncTime == 0.0) syncTime = TCSystemTime();
    return syncTime;
}

TCPortHelper::TCPortHelper(TCBaseModule* module) : impl(std::make_unique<TCPortHelperImpl>(module)) {}

TCPortHelper::~TCPortHelper() = default;

int TCPortHelper::Init() {
    ClearBuffers();
    if (!IsExtWiredOK() || !AreObligatoryInputsWired()) return NOT_WIRED;
    impl->ready = true;
    if (impl->module != nullptr) impl->moduleType = impl->module->GetTypeOfModule();
    return 0;
}

int TCPortHelper::Fetch() {
    if (TriggerDataAvail()) return 0;
    if (impl->moduleType != SOURCE_MODULE) return 1;
    const SourceBehaviour behaviour = impl->sourceBehaviour;
    if (behaviour != SOURCE_UNTIL_READY_CLEARED && behaviour != SOURCE_REPORT_END) return 1;
    if (impl->ready) return 0;
    if (behaviour == SOURCE_UNTIL_READY_CLEARED) return 1;
    impl->moduleType = 0;  // the end is reported once
    return 2;
}

int TCPortHelper::Done() {
    ClearBuffers();
    return 0;
}

void TCPortHelper::ClearBuffers() {
    for (const PORTTYPE kind : {INPUT, OUTPUT})
        for (TCPortHelperImpl::PORT& port : impl->Ports(kind)) ClearPort(port);
}

void TCPortHelper::ClearBuffer(PORTTYPE kind, unsigned index) {
    if (TCPortHelperImpl::PORT* port = impl->Port(kind, index)) ClearPort(*port);
}

bool TCPortHelper::FirstInCycle(bool clear) {
    const bool first = impl->firstInCycle;
    if (clear) impl->firstInCycle = false;
    return first;
}

bool TCPortHelper::ReadyToExecute() const {
    return impl->ready;
}

void TCPortHelper::SetReadyFlag(bool ready) {
    impl->ready = ready;
}

bool TCPortHelper::IsRunning() const {
    return impl->running;
}

bool TCPortHelper::IsValidated() const {
    return impl->validated;
}

double TCPortHelper::SyncTime() {
    return impl->SyncTime();
}

HINSTANCE TCPortHelper::GetInstanceHandle() const {
    return impl->instanceHandle;
}

const char* TCPortHelper::GetModuleName() const {
    return impl->module != nullptr ? impl->module->GetModuleName() : "No module";
}

void TCPortHelper::BehaviourAsSource(SourceBehaviour behaviour) {
    impl->sourceBehaviour = behaviour;
}

void TCPortHelper::UseDynPorts(DynPortCallback callback, long user) {
    impl->dynPorts = callback;
    impl->dynPortsUser = callback != nullptr ? user : 0;
}

long TCPortHelper::GetMessageA(unsigned id, long param) {
    switch (id) {
        case MESSAGE_RUNNING:
            impl->running = param != 0;
            if (impl->running) impl->syncTime = 0.0;
            return 0;
        case MESSAGE_VALIDATED:
            impl->validated = param != 0;
            return 0;
        case MESSAGE_FIRST_IN_CYCLE:
            impl->firstInCycle = true;
            return 0;
        case MESSAGE_INSTANCE_HANDLE:
            impl->instanceHandle = reinterpret_cast<HINSTANCE>(param);
            return 0;
        case MESSAGE_CHECK_OBLIGATORY:
            impl->checkObligatory = param != 0;
            return 0;
        case MESSAGE_DYN_PORTS:
            return impl->dynPorts != nullptr ? impl->dynPorts(impl->dynPortsUser, static_cast<int>(param))
                                             : -1;
        default:
            return 0;
    }
}
