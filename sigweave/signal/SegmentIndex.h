#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sigweave/signal/TCIOStream.h"

namespace tc {

// Compares many names with one. Most other channels are distinguished by their index alone.
class WantedName {
 public:
    explicit WantedName(const char* wanted);
    bool IsSame(const char* other) const;

 private:
    const char* name;
    bool isBus;
    int index;
};

// Finds one of many segments of a block, with the same answers as a look at every one of them. Segments are
// never removed and keep their names, so what was learned of them stays true. All operations throw
// std::bad_alloc, and answer -1 where there is none.
class SegmentIndex {
 public:
    using Segments = TCArray<TCIOStream::DataSegment*>;

    int Find(const Segments& segments, const char* name);
    // The first written bus segment of that signal, or with a null signal of that port.
    int FindChannel(const Segments& segments, const char* signal, int port);

    // Written segments have numbers, in their order: the place of a number, and the other way round.
    int PlaceOf(const Segments& segments, int number, int writtenCount);
    int NumberOf(const Segments& segments, int place, int writtenCount);
    // To be called when the block is used anew.
    void ForgetWritten() { written.clear(); }

    // Of no index: for those who end a signal within a block that has been handed over. Keeps the first
    // elements of a segment of one dimension; one that has no more stays as it is.
    static void Shorten(TCIOStream::DataSegment& segment, int count) {
        if (segment.dimensionCount != 1 || count < 0 || count >= segment.elementCount) return;
        segment.dimensions[0] = segment.elementCount = count;
    }

 private:
    using Places = std::vector<int>;

    void LearnNames(const Segments& segments);
    void LearnChannels(const Segments& segments);
    void LearnWritten(const Segments& segments, int writtenCount);

    std::unordered_multimap<std::size_t, int> names;
    int namesKnown = 0;
    std::unordered_map<std::string_view, Places> signals;  // the texts are those of the segments
    std::unordered_map<int, Places> ports;
    int channelsKnown = 0;
    Places written;  // in one use of a block segments are only added
};

}  // namespace tc
