#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "host/parts/PlaceRun.h"

namespace host {

// What comes to the place where the signals of sources meet, as it is asked for: the turns of each source in
// their order. A place with several sources sends their turns as it took them itself, so what comes of the
// others before the one that is asked for is kept here.
//
// How much is kept: at a place of its own a source is never held up by a full line, so the one that is least
// far goes, and no two of it are more than a block apart, or 10 s and 16 blocks where one has nothing now. So
// what is kept of a source is that, and as much as the order of the whole run has them apart (see
// docs/architecture.md). More than MOST_KEPT is an error: a source that the run has let wait for good.
class Stems {
 public:
    static constexpr std::size_t MOST_KEPT = std::size_t{1} << 30;  // bytes of frames

    // The place must outlive it.
    explicit Stems(PlaceRun& placeRun);

    // The next delivery of a turn of that source, by its place in the order of the steps. When its place is
    // over the delivery says so. False when there is none: `GetError` has the reason, or the place.
    bool Next(int source, PartDelivery& delivery);
    // All that came before is dealt with.
    void TellDone();
    // When no source goes on: waits for the ends of the places of which all sources are over, unless that
    // fails, when `isOver` becomes false. Answers the place that failed, -1 when none did.
    int Finish(bool& isOver);
    const std::string& GetError() const { return error; }

 private:
    struct Source {
        int place;
        std::size_t way;
        bool isOver = false;
        std::deque<PartDelivery> kept = {};
    };
    struct Way {
        int from;
        bool hasEnded = false;
        int failedPart = -1;
        int endPlace = -1;
        int sources = 0;
        std::vector<PartDelivery> open = {};  // of a turn that has not ended
    };

    Source& At(int source);
    bool Read(Way& way);
    void Keep(Way& way, int source);
    bool AreOver(std::size_t way) const;

    PlaceRun& place;
    std::vector<Way> ways;
    std::vector<Source> sources;
    std::vector<PartDelivery> spare;
    std::size_t bytes = 0;
    std::string error;
};

}  // namespace host
