#pragma once

#include <functional>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "host/Scheduler.h"
#include "host/SteppedGraph.h"
#include "host/parts/Part.h"
#include "host/parts/RunDivision.h"

namespace host {

// The lines of a run as streams: joins them, and makes of modules and streams what schedulers step. One
// thread.
class RunStreams {
 public:
    // All must outlive it.
    RunStreams(const SteppedGraph& steppedGraph, const RunOptions& runOptions, const RunDivision& runDivision)
        : graph(steppedGraph), options(runOptions), division(runDivision) {}

    // Once. Hears of each module that has no stream for an input that it declares.
    void Join(const std::function<void(int module)>& onMissing);
    // Of one part, or with -1 of all.
    SchedulerParts MakeSchedulerParts(int part) const;

 private:
    void JoinLine(int index, TCIOStream* receiver);
    void JoinWatches();
    int FirstLineOf(int module, int output) const;
    std::set<std::pair<int, int>> WiredOutputs() const;
    Scheduler::Line MakeLine(int index) const;
    bool IsElsewhere(int module, int part) const;
    void AddNodes(int part, const std::set<std::pair<int, int>>& outputs, SchedulerParts& made,
                  std::vector<int>& positions) const;
    void AddNode(int module, SchedulerParts& made, std::vector<int>& positions) const;
    void FindFeeds(int part, SchedulerParts& made, const std::vector<int>& positions) const;
    void AddLine(int index, int part, const std::vector<int>& positions,
                 std::set<std::pair<int, int>>& outputs, SchedulerParts& made) const;
    void AddWatches(std::vector<Scheduler::Node>& nodes) const;

    const SteppedGraph& graph;
    const RunOptions& options;
    const RunDivision& division;
    std::vector<TCIOStream*> receivers;                     // of each line; null: it does not end here
    std::vector<std::unique_ptr<TCIOStream>> watchStreams;  // of each watch; null: it looks at a line
};

}  // namespace host
