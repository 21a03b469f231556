#pragma once

#include <string>
#include <vector>

#include "host/RunOutcome.h"
#include "host/RunReport.h"
#include "host/RunResults.h"
#include "host/RunStreams.h"
#include "host/RunVerdict.h"
#include "host/Scheduler.h"
#include "host/SteppedGraph.h"
#include "host/parts/RunDivision.h"
#include "sigweave/services/Bilingual.h"

namespace host {

struct PlacePlan;

// Carries a graph through one run: joins the streams, calls Init, lets schedulers step the modules, calls
// Done, has the report written and takes the streams apart. Where the modules come from does not matter to
// it, nor who hears what it says. Before a module of which signals drive parameters there is a gate
// (ParameterGate). One thread.
class Runner {
 public:
    // Every input has at most one line and there is no cycle.
    Runner(std::vector<RunModule> runModules, std::vector<RunLine> runLines, RunOptions runOptions = {});
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    // Once.
    RunReport Run();
    // The instance whose module is being called, for texts that come without a name; empty: none.
    std::string Speaker() const;
    // See RunDivision.
    std::vector<MisplacedPart> FindMisplaced(const PlacePlan& plan) const {
        return division.FindMisplaced(plan);
    }

 private:
    void Join();
    bool Begin();
    void OfferFacts(int module);
    void Step();
    void StepAll();
    void StepParts();
    void StepPlace();
    void Judge(const RunOutcome& outcome);
    void Finish();
    void DeleteStreams();
    RunOutcome NewOutcome() const { return {graph.modules.size(), graph.lines.size()}; }
    void PassOn();
    void Calls(int module);
    void TellState(const std::string& instance, const tc::Bilingual& state) const;

    const SteppedGraph graph;
    const RunOptions options;
    RunDivision division;
    RunStreams streams;
    RunReport report;
    RunVerdict verdict;
    RunResults results;
    int initialised = 0;  // the first of the order, this many
    int called = -1;      // module, outside of the step loop
};

}  // namespace host
