#pragma once

#include <map>

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Window.h"

// Which part of the room that a window gains goes to which of its items: plain geometry, in pixels.
//
//     TCResizeable layout({300, 200});
//     layout.Add(LIST, {10, 10, 290, 160}, {.growX = 100, .growY = 100});
//     layout.Add(OK, {210, 170, 290, 190}, {.moveX = 100, .moveY = 100});
//     layout.Get(OK, {400, 300});  // 310, 270, 390, 290
//
// Places are always computed from the first ones, so nothing drifts; edges that met go on meeting when their
// shares do.
class TC_API TCResizeable {
 public:
    // In percent of the added width and height.
    struct Shares {
        int moveX = 0;
        int moveY = 0;
        int growX = 0;
        int growY = 0;
    };

    // The size for which the items are laid out, which is the smallest one as well.
    explicit TCResizeable(CSize designed) : size(designed) {}

    // Adds an item, or replaces the one of that number.
    void Add(int item, const CRect& place, const Shares& shares);
    // In a window of that size; a smaller one counts as the smallest. An unknown item is empty.
    CRect Get(int item, CSize window) const;
    CSize GetSmallest() const { return size; }

 private:
    struct Item {
        CRect place;
        Shares shares;
    };
    CSize size;
    std::map<int, Item> items;
};
