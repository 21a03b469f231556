#pragma once

#include <string>
#include <vector>

#include "host/Scheduler.h"

namespace host {

class Part;

// What the schedulers of a run know when it is over. They must outlive it.
struct RunOutcome {
    Scheduler::End end = Scheduler::End::NothingToDo;
    int failed = -1;  // place of the module
    int code = 0;
    std::string thrown;
    const Scheduler* first = nullptr;           // with the sources
    std::vector<const Scheduler::Node*> nodes;  // by place; null: it did not run here
    std::vector<Scheduler::Line> lines;         // of the run
    std::vector<int> depths;                    // of each: blocks that wait

    RunOutcome(std::size_t modules, std::size_t linesOfRun)
        : nodes(modules), lines(linesOfRun), depths(linesOfRun) {}

    // What one of them counted.
    void Collect(const Scheduler& scheduler);
    // The run ended because a module of that scheduler failed.
    void SetFailed(const Scheduler& scheduler);
    // The same, of a part, which may have failed by itself.
    void SetFailed(const Part& part);
};

}  // namespace host
