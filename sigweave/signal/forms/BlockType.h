#pragma once

#include <string>

#include "sigweave/signal/TCIOStream.h"

namespace tc {

// The type string of a port, and its number of items.
struct BlockType {
    std::string text;
    int items = 0;
};

// The type of a port that the block may have come from: one that the block fits.
BlockType TypeOf(const TCIOStream::Block& block);

}  // namespace tc
