#pragma once

#include <functional>
#include <utility>

#include "sigweave/platform/Window.h"

// A context of a given resolution. Its mapping mode 1 is pixels; in every other mode a logical unit is
// `scale` pixels and the y axis points upwards.
class FakeDC : public CDC {
 public:
    explicit FakeDC(int pixelsPerInch = 96, double unitScale = 1)
        : resolution(pixelsPerInch), scale(unitScale) {}
    int GetPixelsPerInchX() const override { return resolution; }
    int GetPixelsPerInchY() const override { return resolution; }
    int SetMapMode(int newMode) override { return std::exchange(mode, newMode); }
    void LPtoDP(CPoint& point) const override {
        if (mode == 1) return;
        point = {static_cast<int>(point.x * scale), static_cast<int>(-point.y * scale)};
    }

    int mode = 1;

 private:
    int resolution;
    double scale;
};

// A window that hands each command to `onCommand`. It has one child control, number 7.
class FakeWindow : public CWnd {
 public:
    long SendMessageA(unsigned message, unsigned long command, void* record) override {
        if (message == 40009 && onCommand) onCommand(command, record);
        return 1;
    }
    CDC* GetDC() override { return &context; }
    CRect GetClientRect() const override { return {0, 0, 641, 480}; }
    bool GetControlRect(int controlId, CRect& rect) const override {
        if (controlId == 7) rect = {-10, 20, 5, 41};
        return controlId == 7;
    }

    FakeDC context;
    std::function<void(unsigned long command, void* record)> onCommand;
};

// The process's main window while it lives.
class FakeMainWindow : public FakeWindow {
 public:
    FakeMainWindow() { TCSetMainWindow(this); }
    ~FakeMainWindow() override { TCSetMainWindow(nullptr); }
};
