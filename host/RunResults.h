#pragma once

#include "host/RunOutcome.h"
#include "host/RunReport.h"
#include "host/Scheduler.h"
#include "host/SteppedGraph.h"
#include "host/parts/RunDivision.h"

namespace host {

// Puts the figures of a run into its report: what was counted, what modules measured, which live changes
// held. One thread.
class RunResults {
 public:
    // All must outlive it.
    RunResults(const SteppedGraph& steppedGraph, const RunOptions& runOptions, RunReport& runReport)
        : graph(steppedGraph), options(runOptions), report(runReport) {}

    // An entry for each module and line, those of gates too, before the steps.
    void ListAll();
    // The signal of the sources, and the changes of parameters. A change that came too late is warned of.
    void AddSignal(const RunOutcome& outcome);
    // Blocks, and the intervals of sources in real time.
    void AddCounts(const RunOutcome& outcome);
    // What modules measured, after they are done.
    void AddResults(const RunDivision& division);
    // Values that signals set, after AddResults.
    void AddDriven();
    // Last: leaves only what is of the graph.
    void RemoveGates();

 private:
    void AddPace(const SourcePace& pace, ModuleReport& module) const;

    const SteppedGraph& graph;
    const RunOptions& options;
    RunReport& report;
};

}  // namespace host
