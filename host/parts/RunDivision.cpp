#include "host/parts/RunDivision.h"

#include <algorithm>
#include <cstring>
#include <thread>

#include "host/FileWait.h"
#include "host/Guard.h"
#include "host/LiveChanges.h"
#include "host/parts/PlaceRun.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

namespace host {

using tc::Bilingual;

void RunDivision::Divide() {
    if (options.place != nullptr) {
        const PlacePlan& plan = options.place->Plan();
        parted =
            std::make_unique<PartedRun>(static_cast<int>(plan.places.size()), PartsOf(plan), graph.lines);
        return;
    }
    const int most =
        options.threads > 0 ? options.threads : static_cast<int>(std::thread::hardware_concurrency());
    if (most <= 1) return;
    const PartPlan plan = MakePartPlan(PlanModules(), PlanLines(), most);
    if (options.onNote) {
        TellUncut(plan);
        TellThreads(plan);
    }
    if (plan.count == 1) return;
    std::vector<int> parts(graph.modules.size());
    for (std::size_t place = 0; place < graph.order.size(); ++place)
        parts[static_cast<std::size_t>(graph.order[place])] = plan.PartOf(static_cast<int>(place));
    parted = std::make_unique<PartedRun>(plan.count, std::move(parts), graph.lines);
}

bool RunDivision::IsHere(int module) const {
    return options.place == nullptr || parted->PartOf(module) == options.place->Plan().own;
}

std::vector<MisplacedPart> RunDivision::FindMisplaced(const PlacePlan& plan) const {
    const std::vector<int> parts = PartsOf(plan);
    std::vector<int> byPlace;
    for (const int module : graph.order) byPlace.push_back(parts[static_cast<std::size_t>(module)]);
    std::vector<MisplacedPart> found = host::FindMisplaced(PlanModules(), PlanLines(), byPlace, plan.joining);
    for (MisplacedPart& misplaced : found)
        if (misplaced.module >= 0) misplaced.module = graph.order[static_cast<std::size_t>(misplaced.module)];
    std::erase_if(found, [&](const MisplacedPart& misplaced) {
        return !graph.IsOfGraph(misplaced.module) || misplaced.line >= graph.linesOfGraph;
    });
    return found;
}

// By module of the run: gates are where the modules are.
std::vector<int> RunDivision::PartsOf(const PlacePlan& plan) const {
    std::vector<int> parts = plan.partOf;
    for (std::size_t index = parts.size(); index < graph.modules.size(); ++index) {
        const auto found =
            std::ranges::find(graph.modules, graph.modules[index].instance, &RunModule::instance);
        parts.push_back(plan.partOf[static_cast<std::size_t>(found - graph.modules.begin())]);
    }
    return parts;
}

std::vector<PlannedModule> RunDivision::PlanModules() const {
    std::vector<PlannedModule> planned;
    for (const int index : graph.order) {
        const auto* const extended = dynamic_cast<const TCBaseModuleEx*>(&graph.Module(index));
        PlannedModule& module = planned.emplace_back();
        module.name = graph.Name(index);
        module.isSource = graph.Module(index).GetTypeOfModule() == 1;
        if (extended != nullptr) module.placement = extended->GetPlacement();
        module.isDriven = IsDriven(index);
        module.pinned = WhyPinned(index);
    }
    return planned;
}

std::vector<PlannedLine> RunDivision::PlanLines() const {
    std::vector<int> places(graph.modules.size());
    for (std::size_t place = 0; place < graph.order.size(); ++place)
        places[static_cast<std::size_t>(graph.order[place])] = static_cast<int>(place);
    std::vector<PlannedLine> planned;
    for (const RunLine& line : graph.lines) {
        const char* const type = graph.TypeOf(line);
        planned.push_back({places[static_cast<std::size_t>(line.from)],
                           places[static_cast<std::size_t>(line.to)],
                           type != nullptr && std::strstr(type, "POINTER") != nullptr});
    }
    return planned;
}

bool RunDivision::IsDriven(int module) const {
    return std::ranges::any_of(
        graph.gates, [&](const auto& gate) { return graph.Name(module) == gate->GetInstanceName(); });
}

// Why the module must be where the sources are, besides what it declares; empty: nothing.
std::string RunDivision::WhyPinned(int module) const {
    const std::string& name = graph.Name(module);
    if (IsDriven(module))
        return Bilingual("signals drive its parameters", "Signale steuern seine Parameter").Text();
    if (!options.watches.empty())
        return Bilingual("outputs are watched", "Ausgänge werden beobachtet").Text();
    if (options.changes != nullptr && options.changes->Concern(name))
        return Bilingual("its parameters are changed in the run", "seine Parameter werden im Lauf geändert")
            .Text();
    if (!FirstThatMayWait(FilesOf(graph.Module(module))).empty())
        return Bilingual("it may wait for a file that is a pipe or a device",
                         "es wartet womöglich auf eine Datei, die eine Pipe oder ein Gerät ist")
            .Text();
    return "";
}

void RunDivision::TellUncut(const PartPlan& plan) const {
    for (const UncutLine& uncut : plan.uncut) {
        if (uncut.line >= graph.linesOfGraph) continue;
        const RunLine& line = graph.Line(uncut.line);
        const std::string to =
            line.gatePort >= 0 ? graph.Name(line.to) : graph.PortText(line.to, INPUT, line.input);
        options.onNote(Bilingual("%1=%2 stays on one thread: %3", "%1=%2 bleibt auf einem Thread: %3")
                           .With({graph.PortText(line.from, OUTPUT, line.output), to, uncut.reason}));
    }
}

void RunDivision::TellThreads(const PartPlan& plan) const {
    std::vector<std::string> names(static_cast<std::size_t>(plan.count));
    for (std::size_t place = 0; place < graph.order.size(); ++place) {
        if (!graph.IsOfGraph(graph.order[place])) continue;
        std::string& list = names[static_cast<std::size_t>(plan.partOf[place])];
        list += (list.empty() ? "" : ", ") + graph.Name(graph.order[place]);
    }
    std::string text;
    for (std::size_t part = 0; part < names.size(); ++part)
        text += (part > 0 ? "; " : "") + std::to_string(part + 1) + ": " + names[part];
    options.onNote(Bilingual("threads: %1", "Threads: %1").With({text}));
}

}  // namespace host
