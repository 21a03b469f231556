#include "sigweave/foundation/TCLogFont.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <tuple>

namespace {

constexpr int POINTS_PER_INCH = 72;
constexpr int DEFAULT_POINTS = 10;
constexpr int REGULAR_WEIGHT = 400;

int PixelsPerInch(HDC context) {
    return (context != nullptr ? context : TCGetScreenDC())->GetPixelsPerInchY();
}

// number * numerator / denominator, to the nearest; -1 for a denominator of 0 and a result beyond int.
int MultiplyDivide(double number, int numerator, int denominator) {
    const double result = std::round(number * numerator / denominator);
    return std::abs(result) <= std::numeric_limits<int>::max() ? static_cast<int>(result) : -1;
}

auto Numbers(const TCLogFont& font) {
    return std::tie(font.lfHeight, font.lfWidth, font.lfEscapement, font.lfOrientation, font.lfWeight,
                    font.lfItalic, font.lfUnderline, font.lfStrikeOut, font.lfCharSet, font.lfOutPrecision,
                    font.lfClipPrecision, font.lfQuality, font.lfPitchAndFamily, font.value);
}

}  // namespace

TCLogFont::TCLogFont() {
    SetFontHeight(DEFAULT_POINTS);
    lfWeight = REGULAR_WEIGHT;
    std::strcpy(lfFaceName, "Tahoma");
}

void TCLogFont::SetFontHeight(int points) {
    lfHeight = PixelHeightToDeviceUnits(points, nullptr);
}

int TCLogFont::PixelHeightToDeviceUnits(int points, HDC context) {
    return -MultiplyDivide(points, PixelsPerInch(context), POINTS_PER_INCH);
}

int TCLogFont::DeviceUnitsToPixelHeight(int height, HDC context) {
    return MultiplyDivide(-static_cast<double>(height), POINTS_PER_INCH, PixelsPerInch(context));
}

bool IsEqual(const TCLogFont& a, const TCLogFont& b) {
    return Numbers(a) == Numbers(b) && std::strncmp(a.lfFaceName, b.lfFaceName, sizeof a.lfFaceName) == 0;
}
