#include "sigweave/ui/TCResizeable.h"

#include <algorithm>
#include <cstdint>

namespace {

// Halves up, so that edges of the same share stay together.
int Part(std::int64_t added, std::int64_t percent) {
    const std::int64_t hundredfold = added * percent + 50;
    return static_cast<int>(hundredfold >= 0 ? hundredfold / 100 : -((99 - hundredfold) / 100));
}

}  // namespace

void TCResizeable::Add(int item, const CRect& place, const Shares& shares) {
    items[item] = {place, shares};
}

CRect TCResizeable::Get(int item, CSize window) const {
    const auto found = items.find(item);
    if (found == items.end()) return {};
    const auto& [place, shares] = found->second;
    const std::int64_t x = std::max<std::int64_t>(0, std::int64_t{window.cx} - size.cx);
    const std::int64_t y = std::max<std::int64_t>(0, std::int64_t{window.cy} - size.cy);
    return {place.left + Part(x, shares.moveX), place.top + Part(y, shares.moveY),
            place.right + Part(x, shares.moveX + shares.growX),
            place.bottom + Part(y, shares.moveY + shares.growY)};
}
