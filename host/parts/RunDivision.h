#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Scheduler.h"
#include "host/SteppedGraph.h"
#include "host/parts/PartPlan.h"
#include "host/parts/PartedRun.h"

namespace host {

struct PlacePlan;

// How the graph of a run is cut: into parts on several threads, into places of which one runs here, or not at
// all. One thread.
class RunDivision {
 public:
    // Both must outlive it.
    RunDivision(const SteppedGraph& steppedGraph, const RunOptions& runOptions)
        : graph(steppedGraph), options(runOptions) {}

    // Once, before anything is joined: cut lines are joined otherwise.
    void Divide();
    // Null: all on one thread.
    PartedRun* Parted() const { return parted.get(); }
    // Whether the module is called in this process.
    bool IsHere(int module) const;
    // -1 is the part that has everything.
    bool IsIn(int module, int part) const { return part < 0 || parted->PartOf(module) == part; }
    // What cannot run where the plan has it, so that the run would be another one. Modules and lines are
    // those of the graph.
    std::vector<MisplacedPart> FindMisplaced(const PlacePlan& plan) const;

 private:
    std::vector<int> PartsOf(const PlacePlan& plan) const;
    std::vector<PlannedModule> PlanModules() const;
    std::vector<PlannedLine> PlanLines() const;
    bool IsDriven(int module) const;
    std::string WhyPinned(int module) const;
    void TellUncut(const PartPlan& plan) const;
    void TellThreads(const PartPlan& plan) const;

    const SteppedGraph& graph;
    const RunOptions& options;
    std::unique_ptr<PartedRun> parted;
};

}  // namespace host
