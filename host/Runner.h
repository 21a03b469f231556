#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/ParameterGate.h"
#include "host/RunReport.h"
#include "host/Scheduler.h"
#include "sigweave/services/Bilingual.h"

namespace host {

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

 private:
    void Join();
    bool Begin();
    void OfferFacts(int index);
    void Step();
    void Finish();
    bool WasInterrupted() const;
    void Calls(int module);
    Scheduler MakeScheduler() const;
    Scheduler::Line MakeLine(std::size_t index) const;
    void AddWatches(std::vector<Scheduler::Node>& nodes) const;
    int FirstLineOf(int module, int output) const;
    std::set<std::pair<int, int>> WiredOutputs() const;
    void TellState(const std::string& instance, const tc::Bilingual& state) const;
    void Fail(int module, int code, const std::string& thrown, const tc::Bilingual& failure);
    std::string FailedPort(int module) const;
    void JudgeStall(const Scheduler& scheduler);
    std::string DescribeLeftovers(const Scheduler& scheduler, int position) const;
    void ReportCounts(const Scheduler& scheduler);
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
    std::vector<int> order;  // of the steps; entries are indexes of modules
    int initialised = 0;     // the first of `order`, this many
    int called = -1;         // module, outside of the step loop
    const Scheduler* stepping = nullptr;
    RunReport report;
};

}  // namespace host
