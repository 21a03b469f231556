#include "sigweave/foundation/TCError.h"

#include <cstring>
#include <string_view>

#include "sigweave/foundation/HostRecords.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/platform/DebugOutput.h"

namespace {

constexpr int DEFAULT_KIND = 101;
constexpr int OTHER_KIND = 102;
constexpr int ERROR_RESULT = -2;

TCErrorMessageCallback errorMessageCallback = nullptr;

void SendToHost(CWnd& mainWindow, HostCommand command, void* record) {
    mainWindow.SendMessageA(TC_HOST_MESSAGE, static_cast<unsigned long>(command), record);
}

// Whether a text that is read as a format can do with the zeros that `SendAsFormat` passes. Characters are
// not among its conversions: a zero would end the message.
bool IsHarmlessFormat(const char* text) {
    constexpr int MAX_DIRECTIVES = 8;
    constexpr std::size_t MAX_MODIFIERS = 6;
    constexpr std::string_view CONVERSIONS = "diouxXeEfFgGaAsp";
    int directives = 0;
    for (const char* p = text; (p = std::strchr(p, '%')) != nullptr; ++p) {
        if (*++p == '%') continue;
        const std::size_t modifiers = std::strspn(p, "-+ #0123456789.*hljzt");
        p += modifiers;
        if (++directives > MAX_DIRECTIVES || modifiers > MAX_MODIFIERS) return false;
        if (CONVERSIONS.find(*p) == std::string_view::npos) return false;
    }
    return true;
}

// Deliberate: the text is a format, for callers that double their percent signs. Its directives have no
// arguments; they find zeros, and a text that cannot do with them is sent as it is.
void SendAsFormat(const char* module, const char* text) {
    if (text == nullptr || !IsHarmlessFormat(text)) {
        TCModuleMessage::Critical(module, "%s", text);
        return;
    }
    constexpr double D = 0.0;
    constexpr long Z = 0;
    TCModuleMessage::Critical(module, text, D, D, D, D, D, D, D, D, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z,
                              Z, Z, Z, Z, Z, Z, Z, Z, Z, Z);
}

CRect BalloonTarget(const CWnd& window, int controlId) {
    CRect control;
    return window.GetControlRect(controlId, control) ? control : window.GetClientRect();
}

}  // namespace

int TCError(const char* module, const char* text, int kind, CWnd* parent) {
    if (kind != OTHER_KIND) kind = DEFAULT_KIND;
    if (CWnd* mainWindow = TCGetMainWindow()) {
        TCErrorRecord record{module, text, kind, 1, parent};
        SendToHost(*mainWindow, HostCommand::ShowError, &record);
        return ERROR_RESULT;
    }
    SendAsFormat(module, text);
    if (errorMessageCallback != nullptr) errorMessageCallback(module, text);
    return ERROR_RESULT;
}

int TCError(const char* module, const char* text, int kind) {
    return TCError(module, text, kind, nullptr);
}

int TCError(const char* module, const char* text) {
    return TCError(module, text, DEFAULT_KIND, nullptr);
}

int TCError_SetErrorMessageCallback(long callback) {
    const auto candidate = reinterpret_cast<TCErrorMessageCallback>(callback);
    if (errorMessageCallback == nullptr) errorMessageCallback = candidate;
    return errorMessageCallback == candidate ? 1 : 0;
}

void TCShowBalloon(CWnd* parent, int controlId, const char* caption, const char* text) {
    CWnd* const mainWindow = TCGetMainWindow();
    if (mainWindow == nullptr) return;
    CWnd* const window = parent != nullptr ? parent : mainWindow;
    const CRect target = BalloonTarget(*window, controlId);
    TCBalloonRecord record{};
    record.one = 1;
    record.window = window;
    record.x = (target.left + target.right) / 2;
    record.y = (target.top + target.bottom) / 2;
    record.caption = caption;
    record.icon = IDI_INFORMATION;
    record.text = text;
    SendToHost(*mainWindow, HostCommand::ShowBalloon, &record);
}

int TCVerifyReleaseFailedLine(const char* file, int line, const char* expression) {
    const TCString text =
        TCString::FormatS("File: %s, Line: %d, Expression '%s' failed.", file, line, expression);
    TCModuleMessage::Debug("TCVERIFY", "%s", static_cast<const char*>(text));
    OutputDebugStringA(text);
    return 1;
}

int TCIsValidString(const char* text, int) {
    return text != nullptr;
}

int TCIsValidString(const char16_t* text, int) {
    return text != nullptr;
}

int TCIsValidAddress(const void* address, unsigned, int) {
    return address != nullptr;
}
