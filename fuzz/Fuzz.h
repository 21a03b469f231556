#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "sigweave/signal/TCIOStream.h"

// What a target calls: libFuzzer, or the replay of the corpus among the ordinary tests (replay.cpp).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// A promise of the library that must hold for every input.
inline void Require(bool holds, const char* promise) {
    if (holds) return;
    std::fprintf(stderr, "not kept: %s\n", promise);
    std::abort();
}

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

// Tells every segment of the first block that waits in words.
inline void Show(TCIOStream& input) {
    for (int segment = 0; input.GetBlockLen(0, segment) > 0; ++segment)
        input.ConvertToString(0, segment, false, static_cast<StringFormat>(0), -1);
}

}  // namespace fuzz
