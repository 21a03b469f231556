#include "sigweave/persistence/ArchiveValues.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace tc {
namespace {

// An integer of its type's range; a value beyond it is as good as none.
template <class Field>
bool SerializeField(ArchiveParser& archive, int number, const char* label, Field& field) {
    std::int64_t value = field;
    if (!archive.Integer(number, label, value)) return false;
    if (value < std::numeric_limits<Field>::min() || value > std::numeric_limits<Field>::max()) return false;
    field = static_cast<Field>(value);
    return true;
}

}  // namespace

bool Serialize(ArchiveParser& archive, int number, const char* label, WindowPlacement& placement) {
    if (!archive.BeginSubsection(number, label)) return false;
    SerializeField(archive, 1, "left", placement.normal.left);
    SerializeField(archive, 2, "top", placement.normal.top);
    SerializeField(archive, 3, "right", placement.normal.right);
    SerializeField(archive, 4, "bottom", placement.normal.bottom);
    std::int64_t state = placement.state;
    if (archive.Integer(5, "state", state) && state >= WindowPlacement::NORMAL &&
        state <= WindowPlacement::MAXIMISED)
        placement.state = static_cast<WindowPlacement::State>(state);
    archive.EndSubsection();
    return true;
}

bool Serialize(ArchiveParser& archive, int number, const char* label, TCLogFont& font) {
    if (!archive.BeginSubsection(number, label)) return false;
    SerializeField(archive, 1, "height", font.lfHeight);
    SerializeField(archive, 2, "width", font.lfWidth);
    SerializeField(archive, 3, "escapement", font.lfEscapement);
    SerializeField(archive, 4, "orientation", font.lfOrientation);
    SerializeField(archive, 5, "weight", font.lfWeight);
    SerializeField(archive, 6, "italic", font.lfItalic);
    SerializeField(archive, 7, "underline", font.lfUnderline);
    SerializeField(archive, 8, "strike out", font.lfStrikeOut);
    SerializeField(archive, 9, "character set", font.lfCharSet);
    SerializeField(archive, 10, "output precision", font.lfOutPrecision);
    SerializeField(archive, 11, "clip precision", font.lfClipPrecision);
    SerializeField(archive, 12, "quality", font.lfQuality);
    SerializeField(archive, 13, "pitch and family", font.lfPitchAndFamily);
    TCString face(font.lfFaceName, static_cast<int>(strnlen(font.lfFaceName, sizeof font.lfFaceName)));
    if (archive.String(14, "face", face)) {
        const std::size_t length =
            std::min(static_cast<std::size_t>(face.GetLength()), sizeof font.lfFaceName - 1);
        std::memset(font.lfFaceName, 0, sizeof font.lfFaceName);
        std::memcpy(font.lfFaceName, static_cast<const char*>(face), length);
    }
    SerializeField(archive, 15, "value", font.value);
    archive.EndSubsection();
    return true;
}

bool Serialize(ArchiveParser& archive, int number, const char* label, Colour& colour) {
    std::int64_t value = colour.red << 16 | colour.green << 8 | colour.blue;
    if (!archive.Integer(number, label, value) || value < 0 || value > 0xFFFFFF) return false;
    colour = {static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 8 & 0xFF),
              static_cast<std::uint8_t>(value & 0xFF)};
    return true;
}

}  // namespace tc
