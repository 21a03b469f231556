#pragma once

#include <cstdint>

#include "sigweave/platform/Export.h"
#include "sigweave/platform/LogFont.h"
#include "sigweave/platform/Window.h"

// A font by its height in points, on a screen of a certain resolution, and one further value that belongs to
// the user of the font. A plain value.
class TC_API TCLogFont : public LOGFONT {
 public:
    // Tahoma, regular, 10 points on the screen.
    TCLogFont();

    // In points, by the screen's resolution; see TCGetScreenDC.
    void SetFontHeight(int points);

    // Points to the (negative) height of a font description and back, by the vertical resolution of the
    // context (null: the screen), to the nearest. A context without resolution gives 0 and -1, a result
    // beyond int 1 and -1.
    static int PixelHeightToDeviceUnits(int points, HDC context);
    static int DeviceUnitsToPixelHeight(int height, HDC context);

    // Carried and compared, not interpreted.
    std::int32_t value = 0;
};
static_assert(sizeof(TCLogFont) == 64);

// Every field, the face name and the further value.
TC_API bool IsEqual(const TCLogFont& a, const TCLogFont& b);
