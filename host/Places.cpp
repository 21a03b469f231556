#include "host/Places.h"

#include <algorithm>
#include <string_view>

#include "host/FileDigest.h"
#include "host/GraphBuilder.h"
#include "host/OpenGraph.h"
#include "host/Topology.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace host {

const Setting* FindPlace(const InstanceEntry& instance) {
    const auto found = std::ranges::find(instance.settings, PLACE_SETTING, &Setting::name);
    return found != instance.settings.end() ? &*found : nullptr;
}

namespace {

using tc::Bilingual;

// Finds the places of the instances, and their order.
class PlacePlanner {
 public:
    PlacePlanner(OpenGraph& openGraph) : open(openGraph) {}

    std::optional<PlacePlan> Plan(const std::string& own) {
        ReadPlaces();
        if (!open.mistakes.IsEmpty() || !CheckOwn(own) || !SortPlaces()) return std::nullopt;
        for (const std::string& name : placeOf) plan.partOf.push_back(IndexOf(name));
        plan.own = own.empty() ? 0 : IndexOf(own);
        TellMisplaced();
        return open.mistakes.IsEmpty() ? std::optional(plan) : std::nullopt;
    }

 private:
    void ReadPlaces() {
        for (const InstanceEntry& instance : open.file.GetInstances()) {
            const Setting* const place = FindPlace(instance);
            placeOf.push_back(place != nullptr ? place->value : "");
            if (place == nullptr)
                open.mistakes.Add(
                    instance.place,
                    Bilingual("the instance '%1' does not say where it runs; %2",
                              "die Instanz '%1' sagt nicht, wo sie läuft; %2")
                        .With({instance.name, open.file.GetWording().addSetting.With({PLACE_SETTING})}));
            else if (std::ranges::find(plan.places, place->value) == plan.places.end())
                plan.places.push_back(place->value);
        }
    }

    bool CheckOwn(const std::string& own) {
        if (own.empty() || std::ranges::find(plan.places, own) != plan.places.end()) return true;
        const CStringArray names(plan.places.begin(), plan.places.end());
        open.mistakes.Add(
            {"--place " + own},
            Bilingual("no instance of %1 runs at '%2'; %3", "keine Instanz von %1 läuft am Ort '%2'; %3")
                .With({open.file.GetPath(), own, tc::SuggestNames(own, names)}));
        return false;
    }

    int IndexOf(const std::string& name) const {
        return static_cast<int>(std::ranges::find(plan.places, name) - plan.places.begin());
    }

    const std::string& PlaceAt(int module) const { return placeOf[static_cast<std::size_t>(module)]; }

    // As lines lead; else as in the file, but with a source first.
    bool SortPlaces() {
        const std::vector<RunModule> modules = open.graph.Modules();
        const auto source = std::ranges::find_if(
            modules, [](const RunModule& module) { return module.module->GetTypeOfModule() == 1; });
        if (source != modules.end()) {
            const auto first =
                std::ranges::find(plan.places, PlaceAt(static_cast<int>(source - modules.begin())));
            std::rotate(plan.places.begin(), first, first + 1);
        }
        std::vector<std::pair<int, int>> edges;
        for (const RunLine& line : open.graph.Lines())
            if (PlaceAt(line.from) != PlaceAt(line.to))
                edges.emplace_back(IndexOf(PlaceAt(line.from)), IndexOf(PlaceAt(line.to)));
        for (int place = 1; place < static_cast<int>(plan.places.size()); ++place)
            edges.emplace_back(0, place);
        const auto sorted = SortTopologically(static_cast<int>(plan.places.size()), edges);
        if (!sorted.cycles.empty()) {
            TellCycle();
            return false;
        }
        std::vector<std::string> names;
        for (const int place : sorted.order) names.push_back(plan.places[static_cast<std::size_t>(place)]);
        plan.places = std::move(names);
        return true;
    }

    void TellCycle() {
        open.mistakes.Add(
            {open.file.GetPath()},
            Bilingual(
                "the places feed each other, so that no one could begin; lines must lead from place to "
                "place in one direction, and away from the one with the sources (%1)",
                "die Orte speisen einander, so dass keiner beginnen könnte; Verbindungen müssen in einer "
                "Richtung von Ort zu Ort führen, fort von dem mit den Quellen (%1)")
                .With({plan.places.front()}));
    }

    void TellMisplaced() {
        const Runner runner(open.graph.Modules(), open.graph.Lines());
        for (const MisplacedPart& misplaced : runner.FindMisplaced(plan)) {
            if (misplaced.module >= 0) {
                const InstanceEntry& instance =
                    open.file.GetInstances()[static_cast<std::size_t>(misplaced.module)];
                open.mistakes.Add(FindPlace(instance)->place,
                                  Bilingual("%1 must be at the place of the sources, %2: %3",
                                            "%1 muss am Ort der Quellen sein, %2: %3")
                                      .With({instance.name, plan.places.front(), misplaced.reason}));
            } else {
                open.mistakes.Add(
                    open.graph.PlaceOfLine(misplaced.line),
                    Bilingual(
                        "this line cannot lead to another place: %1; put both ends at one",
                        "diese Verbindung kann zu keinem anderen Ort führen: %1; setzen Sie beide Enden an "
                        "einen")
                        .With({misplaced.reason}));
            }
        }
    }

    OpenGraph& open;
    std::vector<std::string> placeOf;  // by instance
    PlacePlan plan;
};

void Append(std::string& text, const std::string& item) {
    text += std::to_string(item.size()) + ":" + item;
}

}  // namespace

std::optional<PlacePlan> PlanPlaces(OpenGraph& open, const std::string& place) {
    return PlacePlanner(open).Plan(place);
}

std::string DigestRun(const GraphFile& graph, const std::string& name) {
    std::string text;
    Append(text, name);
    Append(text, SIGWEAVE_VERSION);
    Append(text, graph.AcceptsDifferences() ? "accept" : "");
    for (const InstanceEntry& instance : graph.GetInstances()) {
        text += "\n[";
        Append(text, instance.name);
        Append(text, instance.module);
        std::vector<std::pair<std::string, std::string>> settings;
        for (const Setting& setting : instance.settings) settings.emplace_back(setting.name, setting.value);
        std::ranges::sort(settings);
        for (const auto& [setting, value] : settings) Append(text, setting), Append(text, value);
    }
    for (const LineEntry& line : graph.GetLines()) {
        text += "\n=";
        for (const std::string* part :
             {&line.from.instance, &line.from.port, &line.to.instance, &line.to.port})
            Append(text, *part);
    }
    return ComputeDigest(text);
}

}  // namespace host
