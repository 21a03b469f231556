#include "host/RunResults.h"

#include "host/Guard.h"
#include "host/LiveChanges.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

namespace host {

using tc::Bilingual;

void RunResults::ListAll() {
    for (const RunLine& line : graph.lines) {
        const int port = line.gatePort >= 0 ? line.gatePort : line.input;
        report.lines.push_back({graph.PortText(line.from, OUTPUT, line.output),
                                graph.Name(line.to) + "." + Text(graph.Receiver(line).GetInputName(port))});
    }
    for (const RunModule& entry : graph.modules)
        report.modules.push_back({entry.instance, Text(entry.module->GetModuleId()), 0, 0, {}});
}

void RunResults::AddSignal(const RunOutcome& outcome) {
    report.signalSeconds = outcome.first->SignalSeconds();
    report.changes = outcome.first->Changes();
    if (options.changes == nullptr) return;
    for (const LiveChange& change : options.changes->TakeRest())
        if (options.onWarning)
            options.onWarning(Bilingual("%1.%2=%3 had no effect: the run ended before its block",
                                        "%1.%2=%3 blieb ohne Wirkung: der Lauf endete vor seinem Block")
                                  .With({change.instance, change.parameter, change.value}));
}

void RunResults::AddCounts(const RunOutcome& outcome) {
    for (std::size_t place = 0; place < graph.order.size(); ++place) {
        const Scheduler::Node* const node = outcome.nodes[place];
        if (node == nullptr) continue;
        ModuleReport& module = report.modules[static_cast<std::size_t>(graph.order[place])];
        module.blocksIn = node->taken;
        module.blocksOut = node->made;
        if (node->pace != nullptr) AddPace(*node->pace, module);
    }
    for (std::size_t index = 0; index < graph.lines.size(); ++index) {
        report.lines[index].blocks = outcome.lines[index].blocks;
        report.lines[index].deepestQueue = outcome.lines[index].deepest;
    }
}

void RunResults::AddPace(const SourcePace& pace, ModuleReport& module) const {
    if (pace.SignalMade() == 0.0 && module.blocksOut > 0 && options.onWarning)
        options.onWarning(Bilingual("%1: its blocks have no sample rate, so it was not paced",
                                    "%1: die Blöcke haben keine Abtastrate, daher lief die Quelle ungebremst")
                              .With({module.instance}));
    const Intervals& intervals = pace.GetIntervals();
    constexpr const char* SIGNAL = "real time";
    module.results.push_back({SIGNAL, "intervals", static_cast<double>(intervals.Count()), ""});
    module.results.push_back({SIGNAL, "interval average", intervals.Average(), "ms"});
    module.results.push_back({SIGNAL, "interval maximum", intervals.Maximum(), "ms"});
    module.results.push_back({SIGNAL, "interval deviation", intervals.StandardDeviation(), "ms"});
}

void RunResults::AddResults(const RunDivision& division) {
    for (int index = 0; index < graph.modulesOfGraph; ++index) {
        const auto* extended = dynamic_cast<const TCBaseModuleEx*>(&graph.Module(index));
        if (extended == nullptr || !division.IsHere(index)) continue;
        ModuleReport& module = report.modules[static_cast<std::size_t>(index)];
        module.gaps = extended->GetGaps();
        for (const TCModuleResult& result : extended->GetResults())
            module.results.push_back({std::string(result.signal), std::string(result.quantity), result.value,
                                      std::string(result.unit)});
    }
}

void RunResults::AddDriven() {
    for (const auto& gate : graph.gates)
        for (ModuleReport& module : report.modules)
            for (const TCExtPar& driven : gate->Parameters())
                if (module.instance == gate->GetInstanceName()) {
                    module.results.push_back(
                        {driven.GetName(), "driving values", static_cast<double>(driven.GetTaken()), ""});
                    module.results.push_back(
                        {driven.GetName(), "refused values", static_cast<double>(driven.GetRefused()), ""});
                }
}

void RunResults::RemoveGates() {
    report.modules.resize(static_cast<std::size_t>(graph.modulesOfGraph));
    report.lines.resize(static_cast<std::size_t>(graph.linesOfGraph));
}

}  // namespace host
