#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/parts/PartLink.h"

namespace host {

// How a graph is cut into the places that it names, one part for each. The parts follow one another as the
// lines between them do; the sources are in the first one.
struct PlacePlan {
    std::vector<std::string> places;
    std::vector<int> partOf;  // by module of the graph
    int own = 0;              // the place that runs here
};

// The seam of a run that makes the steps of one place only: how it gets what the place before it made, and
// hands on its own. One thread, that of the run.
class PlaceRun {
 public:
    enum class Got { Delivery, Interrupted, Failed };

    explicit PlaceRun(PlacePlan placePlan) : plan(std::move(placePlan)) {}

    const PlacePlan& Plan() const { return plan; }
    // The number of cuts, once they are made: no delivery has others.
    void SetCutCount(int count) { cuts = count; }
    int CutCount() const { return cuts; }
    // Waits for the next delivery of the place before this one; not for the first place.
    virtual Got Receive(PartDelivery& delivery) = 0;
    // To the next place; null for the last one.
    virtual PartLink* Next() = 0;
    // This place is over before it has ended what it sends.
    virtual void GiveUp() = 0;
    // Why `Receive` or the link failed; empty: they did not.
    virtual const std::string& GetError() const = 0;
    // Whether the run was interrupted at the place before this one, or while this one waited.
    virtual bool WasInterrupted() const = 0;

 protected:
    ~PlaceRun() = default;

 private:
    const PlacePlan plan;
    int cuts = 0;
};

}  // namespace host
