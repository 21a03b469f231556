#include "sigweave/module/TCModuleMessage.h"

#include <cstdarg>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/DebugOutput.h"
#include "sigweave/platform/Window.h"

TCModuleMessage::Sink TCModuleMessage::s_PFN = nullptr;

namespace {

void SendV(const char* module, TCModuleMessage::Types type, const char* format, va_list arguments) {
    TCModuleMessage::Send(module, type, TCString::FormatVS(format, arguments));
}

}  // namespace

void TCModuleMessage::Init(long sink) {
    if (s_PFN == nullptr) s_PFN = reinterpret_cast<Sink>(sink);
}

void TCModuleMessage::Send(const char* module, Types type, const char* message) {
    if (s_PFN != nullptr) {
        s_PFN(module, type, message);
        return;
    }
    if (TCGetMainWindow() != nullptr) return;
    OutputDebugStringA(TCString::FormatS("TCMessage: modul='%s', type=%d, message='%s'\n", module,
                                         static_cast<int>(type), message));
}

void TCModuleMessage::Emergency(const char* module, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    SendV(module, Types::Emergency, format, arguments);
    va_end(arguments);
}

void TCModuleMessage::Alert(const char* module, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    SendV(module, Types::Alert, format, arguments);
    va_end(arguments);
}

void TCModuleMessage::Critical(const char* module, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    SendV(module, Types::Critical, format, arguments);
    va_end(arguments);
}

void TCModuleMessage::Warning(const char* module, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    SendV(module, Types::Warning, format, arguments);
    va_end(arguments);
}

void TCModuleMessage::Notice(const char* module, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    SendV(module, Types::Notice, format, arguments);
    va_end(arguments);
}

void TCModuleMessage::Info(const char* module, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    SendV(module, Types::Info, format, arguments);
    va_end(arguments);
}

void TCModuleMessage::Debug(const char* module, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    SendV(module, Types::Debug, format, arguments);
    va_end(arguments);
}
