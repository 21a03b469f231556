#pragma once

#include "sigweave/platform/Export.h"

// Points, sizes and rectangles are in pixels of the window or context that they belong to.
struct CPoint {
    int x = 0;
    int y = 0;
};

struct CSize {
    int cx = 0;
    int cy = 0;
};

struct CRect {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
};

// What the library asks of a drawing surface: its resolution and its mapping mode. Implemented by the host.
class TC_API CDC {
 public:
    virtual ~CDC() = default;
    virtual int GetPixelsPerInchX() const = 0;
    virtual int GetPixelsPerInchY() const = 0;
    // Answers the mode that was set before.
    virtual int SetMapMode(int mode) = 0;
    // Converts from logical to device units under the current mapping mode.
    virtual void LPtoDP(CPoint& point) const = 0;
    // In pixels, of the font that the context writes in.
    virtual int GetAverageCharWidth() const { return GetPixelsPerInchX() / 12; }
};

using HDC = CDC*;

// An icon that the host's window knows by its number.
using HICON = const struct TCIcon*;
inline const HICON IDI_INFORMATION = reinterpret_cast<HICON>(32516L);

// What the library asks of a window. A host implements it once, for its main window; modules pass windows of
// their dialogs. All calls come synchronously on the thread that calls the library.
class TC_API CWnd {
 public:
    virtual ~CWnd() = default;
    // Delivers one command with its record; the record lives on the caller's stack. See HostCommand.
    virtual long SendMessageA(unsigned message, unsigned long command, void* record) = 0;
    // Never null; owned by the window.
    virtual CDC* GetDC() = 0;
    virtual CRect GetClientRect() const = 0;
    // The normal position of a child control in client coordinates; false when there is no such control.
    virtual bool GetControlRect(int controlId, CRect& rect) const = 0;
};

using HWND = CWnd*;

// The number of the one window message that the library sends, and its command codes (never change, only
// append).
inline constexpr unsigned TC_HOST_MESSAGE = 40009;
enum class HostCommand : unsigned long {
    ValidatePortType = 2,
    LaunchHelp = 3,
    ShowBalloon = 8,
    ShowError = 11
};

// The host's main window; null (the default) means that no user interface is up. Not owned. Set once at
// start-up, before modules run; a test may set it back to null.
TC_API void TCSetMainWindow(CWnd* window);
TC_API CWnd* TCGetMainWindow();

// The context by which sizes on the screen are calculated: the main window's, or a stand-in of 96 pixels per
// inch while there is none. Never null. The stand-in keeps one mapping mode for the process.
TC_API CDC* TCGetScreenDC();
