#include "sigweave/signal/SegmentIndex.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace tc {
namespace {

// The port index in front of a bus name, -1 when it does not begin with a digit or has too many.
int LeadingIndex(const char* name) {
    constexpr int MOST_DIGITS = 9;
    int index = *name >= '0' && *name <= '9' ? 0 : -1;
    for (int i = 0; i < MOST_DIGITS && *name >= '0' && *name <= '9'; ++i)
        index = index * 10 + (*name++ - '0');
    return *name >= '0' && *name <= '9' ? -1 : index;
}

// The same for names that count as the same.
std::size_t HashOf(const char* name) {
    const std::hash<std::string_view> hash;
    TCBusSerializeHelper::Parts parts;
    if (!TCBusSerializeHelper::SplitSegmentName(name, parts)) return hash(name);
    return hash(parts.segmentName) + static_cast<std::size_t>(parts.portIdx);
}

}  // namespace

WantedName::WantedName(const char* wanted)
    : name(wanted), isBus(std::strchr(wanted, '\r') != nullptr), index(LeadingIndex(wanted)) {}

bool WantedName::IsSame(const char* other) const {
    if (SameText(other, name)) return true;
    const int otherIndex = isBus ? LeadingIndex(other) : -1;
    if (!isBus || (index >= 0 && otherIndex >= 0 && index != otherIndex)) return false;
    return TCBusSerializeHelper::CompareSegmentNames(other, name) == 0;
}

int SegmentIndex::Find(const Segments& segments, const char* name) {
    LearnNames(segments);
    const WantedName same(name);
    const auto [first, last] = names.equal_range(HashOf(name));
    for (auto place = first; place != last; ++place)
        if (same.IsSame(segments[place->second]->name)) return place->second;
    return -1;
}

int SegmentIndex::FindChannel(const Segments& segments, const char* signal, int port) {
    LearnChannels(segments);
    const auto firstWritten = [&segments](const auto& found, const auto& none) {
        if (found == none) return -1;
        for (const int place : found->second)
            if (segments[place]->written) return place;
        return -1;
    };
    return signal != nullptr ? firstWritten(signals.find(signal), signals.end())
                             : firstWritten(ports.find(port), ports.end());
}

int SegmentIndex::PlaceOf(const Segments& segments, int number, int writtenCount) {
    LearnWritten(segments, writtenCount);
    return written[static_cast<std::size_t>(number)];
}

int SegmentIndex::NumberOf(const Segments& segments, int place, int writtenCount) {
    LearnWritten(segments, writtenCount);
    return static_cast<int>(std::ranges::lower_bound(written, place) - written.begin());
}

void SegmentIndex::LearnNames(const Segments& segments) {
    for (; namesKnown < segments.GetSize(); ++namesKnown)
        names.emplace(HashOf(segments[namesKnown]->name), namesKnown);
}

void SegmentIndex::LearnChannels(const Segments& segments) {
    TCBusSerializeHelper::Parts parts;
    for (; channelsKnown < segments.GetSize(); ++channelsKnown) {
        if (!TCBusSerializeHelper::SplitSegmentName(segments[channelsKnown]->name, parts)) continue;
        signals[parts.segmentName].push_back(channelsKnown);
        ports[parts.portIdx].push_back(channelsKnown);
    }
}

void SegmentIndex::LearnWritten(const Segments& segments, int writtenCount) {
    if (written.size() == static_cast<std::size_t>(writtenCount)) return;
    written.clear();
    written.reserve(static_cast<std::size_t>(writtenCount));
    for (int place = 0; place < segments.GetSize(); ++place)
        if (segments[place]->written) written.push_back(place);
}

}  // namespace tc
