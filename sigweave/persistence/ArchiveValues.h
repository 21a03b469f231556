#pragma once

#include <cstdint>

#include "sigweave/foundation/TCLogFont.h"
#include "sigweave/persistence/ArchiveParser.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Window.h"

// Windows, fonts and colours in archives. Each is one item and answers like the items of ArchiveParser; of a
// subsection whose fields are partly missing the others are loaded.
namespace tc {

// Where a window was when it was closed, in pixels of the screen.
struct WindowPlacement {
    enum State : std::int32_t {
        NORMAL = 0,
        MINIMISED = 1,
        MAXIMISED = 2
    };  // stored: never change, only append

    CRect normal;  // when it is neither minimised nor maximised
    State state = NORMAL;
};

// A colour of a screen. Stored as the number 0xRRGGBB.
struct Colour {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;

    bool operator==(const Colour&) const = default;
};

TC_API bool Serialize(ArchiveParser& archive, int number, const char* label, WindowPlacement& placement);
TC_API bool Serialize(ArchiveParser& archive, int number, const char* label, TCLogFont& font);
TC_API bool Serialize(ArchiveParser& archive, int number, const char* label, Colour& colour);

}  // namespace tc
