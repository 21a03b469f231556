#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "host/parts/PartLink.h"

namespace host {

// How a graph is cut into the places that it names, one part for each. The sources are at the joining place,
// or at those before it, of which each sends to the joining one (see Stems.h). The parts after it follow one
// another as the lines between them do.
struct PlacePlan {
    std::vector<std::string> places;
    std::vector<int> partOf;  // by module of the graph
    int own = 0;              // the place that runs here
    int joining = 0;
};

// The seam of a run that makes the steps of one place only: how it gets what other places made, and hands on
// its own. One thread, that of the run.
class PlaceRun {
 public:
    enum class Got { Delivery, Interrupted, Failed };
    static constexpr std::uint64_t EVERYTHING = std::numeric_limits<std::uint64_t>::max();

    struct Source {
        int place = 0;  // in the order of the steps
        int part = 0;
    };

    explicit PlaceRun(PlacePlan placePlan) : plan(std::move(placePlan)) {}

    const PlacePlan& Plan() const { return plan; }
    // The number of cuts, once they are made: no delivery has others.
    void SetCutCount(int count) { cuts = count; }
    int CutCount() const { return cuts; }
    // At the joining place the sources elsewhere: no turn has others.
    void SetSources(std::vector<Source> elsewhere) { sources = std::move(elsewhere); }
    const std::vector<Source>& Sources() const { return sources; }
    // Waits for the next delivery of a place that sends to this one: of each before the joining one, and else
    // of the one before. Gives the delivery its `before`.
    virtual Got Receive(int from, PartDelivery& delivery) = 0;
    // At the joining place: nothing is left to do for deliveries up to one with that `before`, which is left;
    // or EVERYTHING that came.
    virtual void SetDone(int from, std::uint64_t before) = 0;
    // To the next place; null for the last one.
    virtual PartLink* Next() = 0;
    // This place is over before it has ended what it sends.
    virtual void GiveUp() = 0;
    // Why `Receive` or the link failed; empty: they did not.
    virtual const std::string& GetError() const = 0;
    // Whether the run was interrupted at a place before this one, or while this one waited.
    virtual bool WasInterrupted() const = 0;

 protected:
    ~PlaceRun() = default;

 private:
    const PlacePlan plan;
    int cuts = 0;
    std::vector<Source> sources;
};

}  // namespace host
