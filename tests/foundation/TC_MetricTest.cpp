#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "sigweave/foundation/TCLogFont.h"
#include "sigweave/foundation/TC_Metric.h"
#include "tests/support/FakeWindow.h"

namespace {

TEST(TC_Metric, TakesFactorsFromTheModeAndItsSign) {
    FakeDC context(96, 0.3);
    const struct {
        int mode;
        double x, y;
    } rows[] = {{10, 3, 3},
                {-10, 3, -3},
                {11, 0.1, 0.1},
                {-11, 0.1, -0.1},
                {1, 1, 1},
                {0, 10 / 3.0, -10 / 3.0},
                {2, 10 / 3.0, -10 / 3.0},
                {-2, 10 / 3.0, 10 / 3.0}};
    for (const auto& row : rows) {
        TC_Metric metric(row.mode);
        metric.CalcMetric(row.mode, &context);
        EXPECT_DOUBLE_EQ(metric.GetXFactor(), row.x) << row.mode;
        EXPECT_DOUBLE_EQ(metric.GetYFactor(), row.y) << row.mode;
    }
    EXPECT_EQ(context.mode, 1);
    TC_Metric fixed(1);
    fixed.CalcMetric(-11, static_cast<CDC*>(nullptr));
    EXPECT_EQ(fixed.GetYFactor(), -0.1) << "needs no context";
}

TEST(TC_Metric, MeasuresTheScreenInItsUnits) {
    // 96 pixels are 254 tenths of a millimetre.
    TC_Metric metric(2);
    metric.CalcMetric(2, TCGetScreenDC());
    EXPECT_NEAR(metric.GetXFactor(), 254.0 / 96, 1e-3);
    EXPECT_NEAR(metric.GetYFactor(), -254.0 / 96, 1e-3);
}

TEST(TC_Metric, ComputesAFactorOfZeroWhenThereIsAWindow) {
    TC_Metric metric(-10);
    metric.CalcMetric(11, static_cast<CWnd*>(nullptr));
    EXPECT_EQ(metric.GetXFactor(), 0);
    const FakeMainWindow window;
    EXPECT_EQ(metric.GetXFactor(), 3);
    EXPECT_EQ(metric.GetYFactor(), -3);
    metric.SetFactor(2, 0);
    EXPECT_EQ(metric.GetXFactor(), 2);
    EXPECT_EQ(metric.GetYFactor(), -3);
    EXPECT_EQ(metric.GetXFactor(), 3);
    EXPECT_EQ(TC_Metric(11).GetXFactor(), 0.1);
}

TEST(TC_Metric, ConvertsAndRoundsHalfAwayFromZero) {
    TC_Metric metric(1);
    metric.SetFactor(0.5, -2);
    CPoint points[] = {{3, 1}, {-3, -1}};
    metric.DPtoLP(points, 2);
    EXPECT_EQ(points[0].x, 2);
    EXPECT_EQ(points[1].x, -2);
    EXPECT_EQ(points[0].y, -2);
    metric.LPtoDP(points, 1);
    EXPECT_EQ(points[0].x, 4);
    EXPECT_EQ(points[0].y, 1);
    CRect rect{1, 2, 3, 4};
    metric.DPtoLP(&rect);
    EXPECT_EQ((std::vector{rect.left, rect.top, rect.right, rect.bottom}), (std::vector{1, -4, 2, -8}));
    CSize size{5, 5};
    metric.LPtoDP(&size);
    EXPECT_EQ(size.cx, 10);
    EXPECT_EQ(size.cy, -3);
}

TEST(TCLogFont, CountsInPointsOfTheScreen) {
    TCLogFont font;
    EXPECT_EQ(font.lfHeight, -13);
    EXPECT_EQ(font.lfWeight, 400);
    EXPECT_STREQ(font.lfFaceName, "Tahoma");
    FakeDC printer(600);
    EXPECT_EQ(TCLogFont::PixelHeightToDeviceUnits(12, &printer), -100);
    EXPECT_EQ(TCLogFont::DeviceUnitsToPixelHeight(-100, &printer), 12);
    EXPECT_EQ(TCLogFont::DeviceUnitsToPixelHeight(-13, nullptr), 10);
    EXPECT_EQ(TCLogFont::PixelHeightToDeviceUnits(1 << 30, &printer), 1) << "beyond int";
    FakeDC points(72);
    EXPECT_EQ(TCLogFont::PixelHeightToDeviceUnits(INT_MAX, &points), -INT_MAX);
    font.SetFontHeight(12);
    EXPECT_EQ(font.lfHeight, -16);
}

TEST(TCLogFont, ComparesEveryField) {
    const TCLogFont font;
    TCLogFont other;
    std::strcpy(other.lfFaceName + 10, "behind");
    EXPECT_TRUE(IsEqual(font, other));
    other.value = 1;
    EXPECT_FALSE(IsEqual(font, other));
    other = font;
    other.lfFaceName[0] = 't';
    EXPECT_FALSE(IsEqual(font, other));
}

}  // namespace
