#include "host/Places.h"

#include <algorithm>
#include <cstddef>
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
        if (!open.mistakes.IsEmpty() || !CheckOwn(own)) return std::nullopt;
        if (plan.places.empty()) return plan;
        if (!FindPlan()) return std::nullopt;
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

    // The places with sources, in the order of the file.
    std::vector<std::string> FindSourcePlaces() const {
        std::vector<std::string> found;
        const std::vector<RunModule> modules = open.graph.Modules();
        for (int module = 0; module < static_cast<int>(modules.size()); ++module)
            if (modules[static_cast<std::size_t>(module)].module->GetTypeOfModule() == 1 &&
                std::ranges::find(found, PlaceAt(module)) == found.end())
                found.push_back(PlaceAt(module));
        return found;
    }

    // The sources' place is the first one. With several, where signals of several sources come together is to
    // be found: the plan with the fewest mistakes counts, of these the one with the fewest lines that pass
    // that place, of these the first in the order of the file.
    bool FindPlan() {
        const std::vector<std::string> inFile = plan.places;
        const std::vector<std::string> withSources = FindSourcePlaces();
        const Runner runner(open.graph.Modules(), open.graph.Lines());
        std::vector<std::string> candidates = inFile;
        if (withSources.size() < 2)
            candidates.assign(1, (withSources.empty() ? inFile : withSources).front());
        std::optional<PlacePlan> best;
        std::pair<std::size_t, std::ptrdiff_t> least;
        for (const std::string& joining : candidates) {
            plan.places = inFile;
            if (!SortPlaces(joining, withSources)) continue;
            std::vector<MisplacedPart> found = runner.FindMisplaced(plan);
            const std::pair cost(found.size(), CountPassing());
            if (best.has_value() && cost >= least) continue;
            least = cost;
            best = plan;
            misplaced = std::move(found);
        }
        if (!best.has_value()) TellCycle(candidates.front());
        if (best.has_value()) plan = *best;
        return best.has_value();
    }

    // The other places with sources, the joining one, and the others as lines lead, else as in the file.
    // False when they feed each other.
    bool SortPlaces(const std::string& joining, const std::vector<std::string>& withSources) {
        std::ranges::stable_sort(plan.places, {}, [&](const std::string& place) {
            return place == joining ? 1 : std::ranges::find(withSources, place) != withSources.end() ? 0 : 2;
        });
        plan.joining = IndexOf(joining);
        std::vector<std::pair<int, int>> edges;
        for (int place = 1; place < static_cast<int>(plan.places.size()); ++place)
            edges.emplace_back(std::min(place - 1, plan.joining), place);
        for (const RunLine& line : open.graph.Lines()) {
            const int from = IndexOf(PlaceAt(line.from));
            const int to = IndexOf(PlaceAt(line.to));
            const bool decides = plan.joining == 0 || std::min(from, to) > plan.joining;
            if (from != to && decides) edges.emplace_back(from, to);
        }
        const auto sorted = SortTopologically(static_cast<int>(plan.places.size()), edges);
        if (!sorted.cycles.empty()) return false;
        std::vector<std::string> names;
        for (const int place : sorted.order) names.push_back(plan.places[static_cast<std::size_t>(place)]);
        plan.places = std::move(names);
        plan.partOf.clear();
        for (const std::string& name : placeOf) plan.partOf.push_back(IndexOf(name));
        return true;
    }

    std::ptrdiff_t CountPassing() const {
        const auto part = [this](int module) { return plan.partOf[static_cast<std::size_t>(module)]; };
        return std::ranges::count_if(open.graph.Lines(), [&](const RunLine& line) {
            return part(line.from) < plan.joining && part(line.to) > plan.joining;
        });
    }

    void TellCycle(const std::string& first) {
        open.mistakes.Add(
            {open.file.GetPath()},
            Bilingual(
                "the places feed each other, so that no one could begin; lines must lead from place to "
                "place in one direction, and away from the one with the sources (%1)",
                "die Orte speisen einander, so dass keiner beginnen könnte; Verbindungen müssen in einer "
                "Richtung von Ort zu Ort führen, fort von dem mit den Quellen (%1)")
                .With({first}));
    }

    void TellMisplaced() {
        static constexpr Bilingual WITH_SOURCES("%1 must be at the place of the sources, %2: %3",
                                                "%1 muss am Ort der Quellen sein, %2: %3");
        static constexpr Bilingual WHERE_JOINED(
            "%1 must be at %2, where signals of sources at several places come together: %3",
            "%1 muss an dem Ort sein, an dem Signale von Quellen mehrerer Orte zusammenkommen, %2: %3");
        const std::string& joining = plan.places[static_cast<std::size_t>(plan.joining)];
        for (const MisplacedPart& each : misplaced) {
            if (each.module >= 0) {
                const InstanceEntry& instance =
                    open.file.GetInstances()[static_cast<std::size_t>(each.module)];
                open.mistakes.Add(FindPlace(instance)->place,
                                  (plan.joining == 0 ? WITH_SOURCES : WHERE_JOINED)
                                      .With({instance.name, joining, each.reason}));
            } else {
                open.mistakes.Add(
                    open.graph.PlaceOfLine(each.line),
                    Bilingual(
                        "this line cannot lead to another place: %1; put both ends at one",
                        "diese Verbindung kann zu keinem anderen Ort führen: %1; setzen Sie beide Enden an "
                        "einen")
                        .With({each.reason}));
            }
        }
    }

    OpenGraph& open;
    std::vector<std::string> placeOf;  // by instance
    PlacePlan plan;
    std::vector<MisplacedPart> misplaced;
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
