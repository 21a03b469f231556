#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/ParameterGate.h"
#include "host/RunReport.h"
#include "host/Scheduler.h"
#include "host/parts/PartedRun.h"
#include "sigweave/services/Bilingual.h"

namespace host {

struct PlacePlan;

struct RunModule {
    std::string instance;
    TCBaseModule* module;           // not owned; its settings are made and its ports declared
    ParameterGate* gate = nullptr;  // of the run's own; see InsertGates
};

struct RunLine {
    int from;  // indexes of modules
    int output;
    int to;
    int input;
    int parameter = -1;  // that the line drives, by its index; -1: it leads to the input
    int gatePort = -1;   // of the run's own; see InsertGates
};

// Carries a graph through one run: joins the streams, calls Init, lets the scheduler step the modules, calls
// Done, reads the results and takes the streams apart. Where the modules come from does not matter to it, nor
// who hears what it says. Before a module of which signals drive parameters there is a gate (ParameterGate).
// One thread.
class Runner {
 public:
    // Every input has at most one line and there is no cycle.
    Runner(std::vector<RunModule> runModules, std::vector<RunLine> runLines, RunOptions runOptions = {});

    // Once.
    RunReport Run();
    // The instance whose module is being called, for texts that come without a name; empty: none.
    std::string Speaker() const;
    // What cannot run where the plan has it, so that the run would be another one. Modules and lines are
    // those of the graph.
    std::vector<MisplacedPart> FindMisplaced(const PlacePlan& plan) const;

 private:
    // What the schedulers of a run know in the end.
    struct Outcome {
        Scheduler::End end = Scheduler::End::NothingToDo;
        int failed = -1;  // place of the module
        int code = 0;
        std::string thrown;
        const Scheduler* first = nullptr;           // with the sources
        std::vector<const Scheduler::Node*> nodes;  // by place
        std::vector<Scheduler::Line> lines;         // of the run
        std::vector<int> depths;
    };

    void Divide();
    void DivideIntoPlaces();
    std::vector<int> PartsOf(const PlacePlan& plan) const;
    bool IsHere(int module) const;
    std::vector<PlannedModule> PlanModules() const;
    std::string WhyPinned(int index) const;
    std::vector<PlannedLine> PlanLines() const;
    void TellDivision(const PartPlan& plan);
    void Join();
    void Join(std::size_t index, TCIOStream* receiver);
    bool Begin();
    void OfferFacts(int index);
    void Step();
    void Finish();
    bool WasInterrupted() const;
    void Calls(int module);
    SchedulerParts MakeSchedulerParts(int part) const;
    void AddNode(int index, SchedulerParts& made, std::vector<int>& positions) const;
    void AddLine(std::size_t index, int part, const std::vector<int>& positions,
                 std::set<std::pair<int, int>>& outputs, SchedulerParts& made) const;
    bool IsIn(int module, int part) const { return part < 0 || parted->PartOf(module) == part; }
    void StepParts();
    void StepPlace();
    void JudgePlace(const Outcome& outcome, const Part& part);
    static void Collect(const Scheduler& scheduler, Outcome& outcome);
    void Judge(const Outcome& outcome);
    Outcome NewOutcome() const;
    Scheduler::Line MakeLine(std::size_t index) const;
    void AddWatches(std::vector<Scheduler::Node>& nodes) const;
    int FirstLineOf(int module, int output) const;
    std::set<std::pair<int, int>> WiredOutputs() const;
    void TellState(const std::string& instance, const tc::Bilingual& state) const;
    void Fail(int module, int code, const std::string& thrown, const tc::Bilingual& failure);
    std::string FailedPort(int module) const;
    void JudgeStall(const Outcome& outcome);
    std::string DescribeLeftovers(const Outcome& outcome, std::size_t position) const;
    void ReportCounts(const Outcome& outcome);
    void ReportPace(const SourcePace& pace, ModuleReport& module) const;
    void ReportResults();
    void JudgeGaps();
    void ReportDriven();
    void ReportRestOfChanges();
    TCBaseModule& Receiver(const RunLine& line) const;
    std::string PortText(int module, int kind, int port) const;
    TCBaseModule& Module(int index) const { return *modules[static_cast<std::size_t>(index)].module; }
    const std::string& Name(int index) const { return modules[static_cast<std::size_t>(index)].instance; }

    std::vector<RunModule> modules;  // in the order of the graph; behind them the gates
    std::vector<RunLine> lines;
    std::size_t modulesOfGraph;
    std::size_t linesOfGraph;
    std::vector<std::unique_ptr<ParameterGate>> gates;
    std::vector<TCIOStream*> streams;                       // the receiving stream of each line
    std::vector<std::unique_ptr<TCIOStream>> watchStreams;  // of each watch; null: it looks at a line
    RunOptions options;
    std::unique_ptr<PartedRun> parted;  // null: all on one thread
    std::vector<int> order;             // of the steps; entries are indexes of modules
    int initialised = 0;                // the first of `order`, this many
    int called = -1;                    // module, outside of the step loop
    RunReport report;
};

}  // namespace host
