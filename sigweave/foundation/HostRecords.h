#pragma once

#include <cstddef>
#include <cstdint>

#include "sigweave/platform/Window.h"

// The records that travel with a HostCommand to the main window. They live on the sender's stack and are
// valid during the call only. Fields keep their order for good; pointers have their natural width.

// HostCommand::ShowError.
struct TCErrorRecord {
    const char* module;  // the caption
    const char* text;
    std::int32_t kind;  // 101 or 102
    std::int32_t one;   // always 1
    CWnd* parent;       // may be null
};

// HostCommand::ShowBalloon. What is not set is zero.
struct TCBalloonRecord {
    std::int32_t one;  // always 1
    CWnd* window;      // the window that the balloon belongs to
    std::int32_t x;    // the anchor, in client coordinates of that window
    std::int32_t y;
    std::int32_t kind;  // 0 free; 6 or 7: a dialog found two input or output ports of one name
    std::int32_t reserved5;
    const char* caption;
    std::int32_t reserved7;
    HICON icon;
    const char* text;
    std::int32_t reserved10;
    std::int32_t reserved11;
    const char* portText;  // belongs to kinds 6 and 7
    std::int32_t reserved13;
};

static_assert(sizeof(TCErrorRecord) == 32 && offsetof(TCErrorRecord, parent) == 24);
static_assert(sizeof(TCBalloonRecord) == 88 && offsetof(TCBalloonRecord, caption) == 32 &&
              offsetof(TCBalloonRecord, portText) == 72);
