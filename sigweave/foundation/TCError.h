#pragma once

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Window.h"

// Reports for the user. With a main window up, the window shows them; without one, an error goes to the
// module messages and to one callback. Everything here reports and returns: nothing throws, nothing fails.
// Any thread; the calls to the main window are synchronous.

// Shows an error box. `module` is its caption; a kind other than 101 and 102 counts as 101; the parent window
// may be null. Without a main window the text goes to the callback as it is, and is a critical module
// message, read as a printf format without arguments: directives for numbers and texts print zeros, and a
// text with other directives is sent as it is. Always answers -2, so that a function can end with `return
// TCError(...)`.
TC_API int TCError(const char* module, const char* text, int kind, CWnd* parent);
TC_API int TCError(const char* module, const char* text, int kind);
TC_API int TCError(const char* module, const char* text);

using TCErrorMessageCallback = void (*)(const char* module, const char* text);

// The address of a TCErrorMessageCallback, as a number. Register it at start-up: the first one that is not
// null stays for good. 1 when `callback` is the one in place afterwards, else 0.
TC_API int TCError_SetErrorMessageCallback(long callback);

// A balloon tip that points at the middle of a child control of `parent` (null: the main window), or of the
// window itself when it has no such control. Nothing happens without a main window.
TC_API void TCShowBalloon(CWnd* parent, int controlId, const char* caption, const char* text);

// Reports a verification that failed, to the module messages and the debugger output. Answers 1.
TC_API int TCVerifyReleaseFailedLine(const char* file, int line, const char* expression);

namespace tc {
inline bool Verified(bool holds, const char* file, int line, const char* expression) {
    if (!holds) TCVerifyReleaseFailedLine(file, line, expression);
    return holds;
}
}  // namespace tc

// Checks what must hold, in every build: a failure is reported and the program goes on. The value is whether
// it holds.
#define TCVERIFY(expression) ::tc::Verified(static_cast<bool>(expression), __FILE__, __LINE__, #expression)

// Deliberately no more than a test for null, for callers that pass any length and size.
TC_API int TCIsValidString(const char* text, int length);
TC_API int TCIsValidString(const char16_t* text, int length);
TC_API int TCIsValidAddress(const void* address, unsigned size, int writable);
