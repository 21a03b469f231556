#pragma once

#include <string>
#include <vector>

#include "host/RunReport.h"
#include "host/Scheduler.h"
#include "sigweave/services/Bilingual.h"

namespace host {

struct RunModule {
    std::string instance;
    TCBaseModule* module;  // not owned; its settings are made and its ports declared
};

struct RunLine {
    int from;  // indexes of modules
    int output;
    int to;
    int input;
};

// Carries a graph through one run: joins the streams, calls Init, lets the scheduler step the modules, calls
// Done, reads the results and takes the streams apart. Where the modules come from does not matter to it.
class Runner {
 public:
    // Every input has at most one line and there is no cycle.
    Runner(std::vector<RunModule> runModules, std::vector<RunLine> runLines, RunOptions runOptions = {});

    // Once.
    RunReport Run();

 private:
    void Join();
    bool Begin();
    void Step();
    void Finish();
    Scheduler MakeScheduler() const;
    void Fail(int module, int code, const std::string& thrown, const tc::Bilingual& failure);
    void JudgeStall(const Scheduler& scheduler);
    std::string DescribeLeftovers(const Scheduler& scheduler, int position) const;
    void ReportCounts(const Scheduler& scheduler);
    static void ReportPace(const SourcePace& pace, ModuleReport& module);
    void ReportResults();
    std::string PortText(int module, int kind, int port) const;
    TCBaseModule& Module(int index) const { return *modules[static_cast<std::size_t>(index)].module; }
    const std::string& Name(int index) const { return modules[static_cast<std::size_t>(index)].instance; }

    std::vector<RunModule> modules;  // in the order of the graph
    std::vector<RunLine> lines;
    std::vector<TCIOStream*> streams;  // the receiving stream of each line
    RunOptions options;
    std::vector<int> order;  // of the steps; entries are indexes of modules
    int initialised = 0;     // so many of `order`
    RunReport report;
};

}  // namespace host
