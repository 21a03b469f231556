#include "sigweave/module/TCBaseModule.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/module/TCTranslated.h"
#include "sigweave/services/Profile.h"
#include "sigweave/services/StringResources.h"

namespace {

constexpr unsigned HELPER_MESSAGES[] = {4, 7, 16, 18, 19, 26, 32, 35, 36, 38, 44, 45, 46, 47};

// In some character sets the last byte of a longer character is that of a digit.
bool EndsWithDigit(const CString& text) {
    const char last = TCString(text.c_str()).MakeReverse()[0];
    return tc::IsDigit(last);
}

int AskVersion(HINSTANCE module, const char* function, int atLeast) {
    using Question = int (*)();
    const auto question = reinterpret_cast<Question>(GetProcAddress(module, function));
    return question != nullptr ? std::max(question(), atLeast) : atLeast;
}

}  // namespace

TCBaseModule::TCBaseModule(int instance) : instanceNumber(instance) {}

TCBaseModule::~TCBaseModule() = default;

int TCBaseModule::GetTypeOfModule() {
    return 0;
}

unsigned long TCBaseModule::GetFrameColor() {
    return 0;
}

void TCBaseModule::AddLine(PORTTYPE kind, int port) {
    if (portHelper) portHelper->AddLine(kind, port);
}

void TCBaseModule::DelLine(PORTTYPE kind, int port) {
    if (portHelper) portHelper->DelLine(kind, port);
}

PORTTYPE TCBaseModule::OnLeftDblClk(unsigned, int, RET_PORT& port) {
    port.action = 2;
    return static_cast<PORTTYPE>(0);
}

long TCBaseModule::GetMessageA(unsigned id, long param) {
    switch (id) {
        case MESSAGE_TRANSLATION_FIRST:
        case MESSAGE_TRANSLATION_SECOND:
            TCTranslated::GetMessageA(id, param);
            return 0;
        case MESSAGE_SINK:
            TCModuleMessage::Init(param);
            return 0;
        case MESSAGE_LANGUAGE:
            return TCSetLoadStrResLanguage(static_cast<int>(param));
        case MESSAGE_REGISTRY_PATH:
            ChangeRegistryPath(reinterpret_cast<const char*>(param));
            return 0;
        default:
            break;
    }
    const bool forHelper =
        std::find(std::begin(HELPER_MESSAGES), std::end(HELPER_MESSAGES), id) != std::end(HELPER_MESSAGES);
    return forHelper && portHelper ? portHelper->GetMessageA(id, param) : 0;
}

long TCBaseModule::GetBaseAdr(PORTTYPE, int) {
    return 0;
}

void TCBaseModule::SetBaseAdr(PORTTYPE, int, long) {}

void TCBaseModule::DelBaseAdr(PORTTYPE, int, long) {}

int TCBaseModule::GetNoInput() {
    return portHelper ? portHelper->GetPortCnt(INPUT) : 0;
}

int TCBaseModule::GetNoOutput() {
    return portHelper ? portHelper->GetPortCnt(OUTPUT) : 0;
}

const char* TCBaseModule::GetInputName(int port) {
    if (!portHelper) return TCString::s_Empty;
    return portHelper->GetPortName(INPUT, port);
}

const char* TCBaseModule::GetOutputName(int port) {
    if (!portHelper) return TCString::s_Empty;
    return portHelper->GetPortName(OUTPUT, port);
}

void TCBaseModule::GetPortType(PORTTYPE kind, int port, const char*& typeString, int& count) {
    if (portHelper) typeString = portHelper->GetPortType(kind, port, &count);
}

int TCBaseModule::ValidatePortType(PORTTYPE kind, int port, const char* typeString, int count) {
    return portHelper && portHelper->ValidatePortType(kind, port, typeString, count) ? 1 : 0;
}

int TCBaseModule::Init() {
    return portHelper ? portHelper->Init() : 0;
}

int TCBaseModule::Fetch() {
    return portHelper ? portHelper->Fetch() : 1;
}

int TCBaseModule::Done() {
    return portHelper ? portHelper->Done() : 0;
}

TCIOStream* TCBaseModule::SetInputStream(int port, int unused, int precision) {
    return portHelper ? portHelper->SetInputStream(port, unused, precision) : nullptr;
}

void TCBaseModule::AddOutputStream(int port, TCIOStream* receiver) {
    if (portHelper) portHelper->AddOutputStream(port, receiver);
}

void TCBaseModule::DeleteStreams() {
    if (portHelper) portHelper->DeleteStreams();
}

int TCBaseModule::ComputeValidationData(CALLED_FROM from) {
    return portHelper ? portHelper->ComputeValidationData(from, true) : 0;
}

int TCBaseModule::BuildPropertyDialog(TCPropertyDialog&) {
    return 0;
}

int TCBaseModule::OnEndShowDialog(int& result) {
    return result == 1 ? 1 : 0;
}

const char* TCBaseModule::GetModuleName() {
    if (!moduleName.empty()) return moduleName.c_str();
    moduleName = TCString(GetBaseName());
    if (instanceNumber != 0) {
        if (EndsWithDigit(moduleName)) moduleName += ' ';
        moduleName += std::to_string(instanceNumber);
    }
    return moduleName.c_str();
}

int TCGetInterfaceVersionProvidedByBase(HINSTANCE module) {
    return AskVersion(module, "TCGetInterfaceVersionProvidedByModule", TC_INTERFACE_VERSION_PROVIDED);
}

int TCGetInterfaceVersionRequiredByBase(HINSTANCE module) {
    return AskVersion(module, "TCGetInterfaceVersionRequiredByModule", TC_INTERFACE_VERSION_REQUIRED);
}
