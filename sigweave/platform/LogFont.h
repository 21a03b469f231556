#pragma once

#include <cstdint>

// The description of a font as windows and settings carry it. The order of the fields is part of stored
// settings: never change it.
struct LOGFONT {
    std::int32_t lfHeight = 0;  // in pixels; negative: of the characters without the space above them
    std::int32_t lfWidth = 0;
    std::int32_t lfEscapement = 0;  // in tenths of a degree, as is lfOrientation
    std::int32_t lfOrientation = 0;
    std::int32_t lfWeight = 0;  // 400 regular, 700 bold
    std::uint8_t lfItalic = 0;
    std::uint8_t lfUnderline = 0;
    std::uint8_t lfStrikeOut = 0;
    std::uint8_t lfCharSet = 0;
    std::uint8_t lfOutPrecision = 0;
    std::uint8_t lfClipPrecision = 0;
    std::uint8_t lfQuality = 0;
    std::uint8_t lfPitchAndFamily = 0;
    char lfFaceName[32] = {};
};
static_assert(sizeof(LOGFONT) == 60);
