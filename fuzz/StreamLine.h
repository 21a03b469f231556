#pragma once

#include <string>

#include "fuzz/Fuzz.h"
#include "sigweave/signal/TCIOStream.h"

namespace fuzz {

// A writer and the input that it feeds.
struct Line {
    Line() { writer.AddOutputStream(input.SetInputStream(6)); }
    TCIOStream writer;
    TCIOStream input;
};

// The packed frame of the first block that waits; it is taken.
inline std::string TakeFrame(TCIOStream& input) {
    const int size = input.SerializeBlock(nullptr);
    Require(size > 0, "a block that was read can be packed");
    std::string frame(static_cast<std::size_t>(size), '\0');
    Require(input.SerializeBlock(frame.data()) == size, "a frame has the size that was foretold");
    return frame;
}

// Every segment of the first block that waits, in words.
inline void Show(TCIOStream& input) {
    for (int segment = 0; input.GetBlockLen(0, segment) > 0; ++segment)
        input.ConvertToString(0, segment, false, static_cast<StringFormat>(0), -1);
}

}  // namespace fuzz
