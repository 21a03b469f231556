#include <gtest/gtest.h>

#include "sigweave/ui/TCResizeable.h"

namespace {

void ExpectRect(const CRect& rect, int left, int top, int right, int bottom) {
    EXPECT_EQ(rect.left, left);
    EXPECT_EQ(rect.top, top);
    EXPECT_EQ(rect.right, right);
    EXPECT_EQ(rect.bottom, bottom);
}

TEST(Resizeable, GivesAddedRoomByShares) {
    TCResizeable layout({300, 200});
    layout.Add(1, {10, 10, 290, 160}, {.growX = 100, .growY = 100});
    layout.Add(2, {210, 170, 290, 190}, {.moveX = 100, .moveY = 100});
    layout.Add(3, {10, 170, 100, 190}, {.moveY = 100, .growX = 50});
    ExpectRect(layout.Get(1, {400, 250}), 10, 10, 390, 210);
    ExpectRect(layout.Get(2, {400, 250}), 310, 220, 390, 240);
    ExpectRect(layout.Get(3, {400, 250}), 10, 220, 150, 240);
    ExpectRect(layout.Get(3, {100, 100}), 10, 170, 100, 190);
    ExpectRect(layout.Get(4, {400, 250}), 0, 0, 0, 0);
    layout.Add(5, {100, 10, 200, 20}, {.moveX = -50});
    const std::pair<int, int> lefts[] = {{301, 100}, {302, 99}, {303, 99}, {304, 98}, {305, 98}};
    for (const auto& [width, left] : lefts) EXPECT_EQ(layout.Get(5, {width, 200}).left, left) << "halves up";
}

// Three columns that meet share one pixel after the other, and go on meeting.
TEST(Resizeable, KeepsEdgesTogether) {
    TCResizeable layout({90, 10});
    layout.Add(0, {0, 0, 30, 10}, {.growX = 33});
    layout.Add(1, {30, 0, 60, 10}, {.moveX = 33, .growX = 34});
    layout.Add(2, {60, 0, 90, 10}, {.moveX = 67, .growX = 33});
    for (int width = 90; width < 200; ++width) {
        EXPECT_EQ(layout.Get(0, {width, 10}).right, layout.Get(1, {width, 10}).left);
        EXPECT_EQ(layout.Get(1, {width, 10}).right, layout.Get(2, {width, 10}).left);
        EXPECT_EQ(layout.Get(2, {width, 10}).right, width);
    }
}

}  // namespace
