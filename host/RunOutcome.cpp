#include "host/RunOutcome.h"

#include "host/parts/Part.h"

namespace host {

void RunOutcome::Collect(const Scheduler& scheduler) {
    for (const Scheduler::Node& node : scheduler.Nodes())
        if (node.module != nullptr) nodes[static_cast<std::size_t>(node.place)] = &node;
    for (int index = 0; index < static_cast<int>(scheduler.Lines().size()); ++index) {
        const Scheduler::Line& line = scheduler.Lines()[static_cast<std::size_t>(index)];
        if (line.lineOfRun < 0) continue;
        lines[static_cast<std::size_t>(line.lineOfRun)] = line;
        depths[static_cast<std::size_t>(line.lineOfRun)] = scheduler.DepthOf(index);
    }
}

void RunOutcome::SetFailed(const Scheduler& scheduler) {
    end = Scheduler::End::Failed;
    failed = scheduler.LastStepped();
    code = scheduler.FailedCode();
    thrown = scheduler.Thrown();
}

void RunOutcome::SetFailed(const Part& part) {
    SetFailed(part.GetScheduler());
    if (!part.OwnFailure().empty()) thrown = part.OwnFailure();
}

}  // namespace host
