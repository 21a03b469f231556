#pragma once

#include <deque>
#include <string>
#include <vector>

#include "sigweave/signal/TCIOStream.h"

// A writer and the inputs that it feeds.
struct StreamLines {
    explicit StreamLines(int receivers = 1) : inputs(static_cast<std::size_t>(receivers)) {
        for (TCIOStream& input : inputs) writer.AddOutputStream(input.SetInputStream(3));
    }
    TCIOStream& Input() { return inputs.front(); }

    TCIOStream writer;
    std::deque<TCIOStream> inputs;
};

inline TCTypeInfo State(TCBLOCKSTATUS state, const char* name = "") {
    TCTypeInfo ti;
    ti.SetState(state);
    ti.SetSignalname(name);
    return ti;
}

inline int WriteInts(TCIOStream& writer, const std::vector<int>& values) {
    return writer.WriteIntVec(values.data(), static_cast<int>(values.size()));
}

inline std::vector<int> ReadInts(TCIOStream& input, int capacity = 100) {
    std::vector<int> values(static_cast<std::size_t>(capacity));
    input.ReadIntVec(values.data(), &capacity);
    values.resize(static_cast<std::size_t>(capacity));
    return values;
}

// The packed frame of the next waiting block, which is taken.
inline std::string TakeFrame(TCIOStream& input) {
    std::string frame(static_cast<std::size_t>(input.SerializeBlock(nullptr)), '\xAA');
    input.SerializeBlock(frame.data());
    return frame;
}

inline int Unpack(TCIOStream& writer, const std::string& frame) {
    return writer.DeSerializeBlock(frame.data(), static_cast<int>(frame.size()));
}

// Reads a block of the older text form; `position` is where the text goes on.
inline int ReadOldForm(TCIOStream& writer, const std::string& text, std::size_t& position) {
    const char* at = text.data();
    const int result = writer.DeSerializeForOldStream(at, at + text.size());
    position = static_cast<std::size_t>(at - text.data());
    return result;
}
