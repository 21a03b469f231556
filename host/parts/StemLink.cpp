#include "host/parts/StemLink.h"

#include <utility>

namespace host {

bool StemLink::SendHeld() {
    const bool taken = !std::exchange(isHolding, false) || next.Send(held);
    held.Clear();
    return taken;
}

// What has no blocks (any more) only has a place.
bool StemLink::Send(PartDelivery& delivery) {
    smallest = std::min(smallest, delivery.place);
    const bool isBlocks = delivery.kind == PartDelivery::Kind::Blocks;
    if (isBlocks && delivery.PieceCount() == 0) return true;
    if (!SendHeld()) return false;
    delivery.place = std::exchange(smallest, INT_MAX);
    if (!isBlocks) return next.Send(delivery);
    std::swap(held, delivery);
    isHolding = true;
    return true;
}

bool StemLink::EndTurn(const SourceTurn& turn) {
    if (!std::exchange(isHolding, true)) held.place = -1;
    held.turn = turn;
    smallest = INT_MAX;
    return SendHeld();
}

}  // namespace host
