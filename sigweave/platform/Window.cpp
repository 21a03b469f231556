#include "sigweave/platform/Window.h"

#include <array>
#include <cmath>
#include <cstddef>

namespace {

CWnd* mainWindow = nullptr;

// Logical units per inch of the metric and typographic mapping modes, by number; 0: the units are pixels. In
// all but those the logical y axis points upwards.
constexpr std::array<double, 7> UNITS_PER_INCH = {0, 0, 254, 2540, 100, 1000, 1440};

class StandInScreen final : public CDC {
 public:
    int GetPixelsPerInchX() const override { return PIXELS_PER_INCH; }
    int GetPixelsPerInchY() const override { return PIXELS_PER_INCH; }

    int SetMapMode(int newMode) override {
        const int before = mode;
        mode = newMode;
        return before;
    }

    void LPtoDP(CPoint& point) const override {
        const bool known = mode >= 0 && static_cast<std::size_t>(mode) < UNITS_PER_INCH.size();
        const double units = known ? UNITS_PER_INCH[static_cast<std::size_t>(mode)] : 0;
        if (units == 0) return;
        point.x = static_cast<int>(std::lround(point.x * PIXELS_PER_INCH / units));
        point.y = static_cast<int>(std::lround(-point.y * PIXELS_PER_INCH / units));
    }

 private:
    static constexpr int PIXELS_PER_INCH = 96;
    int mode = 1;
};

StandInScreen standInScreen;

}  // namespace

void TCSetMainWindow(CWnd* window) {
    mainWindow = window;
}

CWnd* TCGetMainWindow() {
    return mainWindow;
}

CDC* TCGetScreenDC() {
    return mainWindow != nullptr ? mainWindow->GetDC() : &standInScreen;
}
