#pragma once

#include <memory>
#include <vector>

#include "sigweave/signal/TCIOStream.h"

namespace host {

// One output of a module of which lines lead to other parts. Its blocks are packed where they were made, once
// for all of those lines, and unpacked in each part that they lead to. What comes out is equal to what went
// in to the last bit, but for addresses, which cannot be packed.
struct CutOutput {
    // Where the blocks come out, in one part: as the line's writer, which owns them there.
    struct Feed {
        TCIOStream writer;
        TCIOStream relay;  // each block lies here for a moment
        std::vector<TCIOStream*> receivers;
        std::vector<int> lines;  // of the graph, one for each receiver

        Feed();
        // False when there is no memory, or the frame is none.
        bool Give(const std::vector<char>& frame) {
            return Give(frame.data(), static_cast<int>(frame.size()));
        }
        bool Give(const char* frame, int size);
        // All blocks that wait at the source, as they are: on one thread.
        bool Share(const TCIOStream& source);
    };

    int module = 0;  // of the run
    int output = 0;
    int part = 0;  // where it is
    int lastPart = 0;
    TCIOStream sink;                           // a receiver of the output
    std::vector<std::unique_ptr<Feed>> feeds;  // by part; null: no line leads there

    CutOutput();
    // Packs the next block that waits, in storage that is used again. False when it cannot be packed.
    bool Take(std::vector<char>& frame);
};

}  // namespace host
