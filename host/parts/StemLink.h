#pragma once

#include <algorithm>
#include <climits>

#include "host/parts/PartLink.h"

namespace host {

// The end of a stem: tells with the blocks of a source's turn how it ended. So it holds the last delivery of
// a turn until the turn is over, which is before any source goes on.
class StemLink final : public PartLink {
 public:
    explicit StemLink(PartLink& link) : next(link) {}

    bool Send(PartDelivery& delivery) override;
    // After the last step of the turn. False when the receiver takes no more.
    bool EndTurn(const SourceTurn& turn);

 private:
    bool SendHeld();

    PartLink& next;
    PartDelivery held;
    bool isHolding = false;
    int smallest = INT_MAX;  // place since the delivery that is held
};

}  // namespace host
