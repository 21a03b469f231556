#include "host/Places.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string_view>

#include "host/FileDigest.h"
#include "host/GraphBuilder.h"
#include "host/OpenGraph.h"
#include "host/Topology.h"
#include "host/engine/EngineAddress.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr std::size_t LONGEST_NAME = 32;
constexpr std::string_view LETTERS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";

bool IsName(std::string_view text) {
    return !text.empty() && text.size() <= LONGEST_NAME &&
           text.find_first_not_of(LETTERS) == std::string_view::npos;
}

struct Factor {
    std::string_view unit;
    double factor;
};

// A number with one of the units, or none; nothing when it is no such number.
template <std::size_t COUNT>
std::optional<double> ReadAmount(std::string_view text, const Factor (&factors)[COUNT]) {
    double number = 0.0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || !std::isfinite(number) || number <= 0.0) return std::nullopt;
    const std::string_view unit = TrimBlanks(text.substr(static_cast<std::size_t>(read.ptr - text.data())));
    const auto found = std::ranges::find(factors, unit, &Factor::unit);
    return found != std::end(factors) ? std::optional(number * found->factor) : std::nullopt;
}

// Each answers what is wrong with the value; nothing when it was taken.
std::string TakeUrl(EngineSection& section, const std::string& value) {
    section.url = value;
    return engine::WhyNoUrl(value);
}

std::string TakeName(EngineSection& section, const std::string& value) {
    section.name = value;
    if (IsName(value)) return "";
    return Bilingual(
               "'%1' is no name of a run; use at most 32 letters a-z, A-Z, digits and _",
               "'%1' ist kein Name eines Laufs; erlaubt sind höchstens 32 Buchstaben a-z, A-Z, Ziffern und _")
        .With({value});
}

std::string TakeKeep(EngineSection& section, const std::string& value) {
    constexpr double SMALLEST = 1 << 20, LARGEST = 1e15;
    constexpr Factor SIZES[] = {{"", 1.0},         {"B", 1.0},           {"KB", 1024.0},
                                {"MB", 1048576.0}, {"GB", 1073741824.0}, {"TB", 1099511627776.0}};
    const std::optional<double> bytes = ReadAmount(value, SIZES);
    if (bytes && *bytes >= SMALLEST && *bytes <= LARGEST) {
        section.keep = static_cast<std::int64_t>(*bytes);
        return "";
    }
    return Bilingual(
               "'%1' is no size for a run; write at least 1 MB, for example keep=10 GB",
               "'%1' ist keine Größe für einen Lauf; schreiben Sie mindestens 1 MB, zum Beispiel keep=10 GB")
        .With({value});
}

std::string TakePatience(EngineSection& section, const std::string& value) {
    constexpr double LONGEST = 86400.0, MILLISECONDS = 1000.0;
    constexpr Factor TIMES[] = {{"", 1.0}, {"s", 1.0}, {"ms", 0.001}, {"min", 60.0}};
    const std::optional<double> seconds = ReadAmount(value, TIMES);
    if (seconds && *seconds >= 0.1 && *seconds <= LONGEST) {
        section.patience = std::chrono::milliseconds(std::llround(*seconds * MILLISECONDS));
        return "";
    }
    return Bilingual("'%1' is no patience; write 0.1 s to 86400 s, for example patience=10 s",
                     "'%1' ist keine Geduld; schreiben Sie 0.1 s bis 86400 s, zum Beispiel patience=10 s")
        .With({value});
}

struct Item {
    const char* name;
    std::string (*take)(EngineSection&, const std::string&);
};
constexpr Item ITEMS[] = {
    {"url", TakeUrl}, {"name", TakeName}, {"keep", TakeKeep}, {"patience", TakePatience}};

void Take(EngineSection& section, const Setting& setting, Mistakes& mistakes) {
    const auto found =
        std::ranges::find(ITEMS, setting.name, [](const Item& item) { return std::string_view(item.name); });
    std::string reason;
    if (found != std::end(ITEMS)) {
        reason = found->take(section, setting.value);
    } else {
        CStringArray names;
        for (const Item& item : ITEMS) names.emplace_back(item.name);
        reason =
            Bilingual("there is no such setting, unless a module= makes engine an instance; %1",
                      "diese Einstellung gibt es nicht, es sei denn, module= macht engine zur Instanz; %1")
                .With({tc::SuggestNames(setting.name, names)});
    }
    if (!reason.empty())
        mistakes.Add(setting.place, std::string(ENGINE_SECTION) + "." + setting.name + ": " + reason);
}

std::string NameOf(const std::string& path) {
    std::string name = std::filesystem::path(path).stem().string().substr(0, LONGEST_NAME);
    for (char& letter : name)
        if (LETTERS.find(letter) == std::string_view::npos) letter = '_';
    return name.empty() ? "run" : name;
}

}  // namespace

EngineSection ReadEngineSection(const GraphFile& graph, Mistakes& mistakes) {
    EngineSection section;
    section.name = NameOf(graph.GetPath());
    if (graph.GetEngine())
        for (const Setting& setting : graph.GetEngine()->settings) Take(section, setting, mistakes);
    for (const InstanceEntry& instance : graph.GetInstances())
        if (const Setting* const place = FindPlace(instance); place != nullptr && !IsName(place->value))
            mistakes.Add(place->place,
                         Bilingual("%1.place: '%2' is no name of a place; use at most 32 letters a-z, A-Z, "
                                   "digits and _",
                                   "%1.place: '%2' ist kein Name eines Ortes; erlaubt sind höchstens 32 "
                                   "Buchstaben a-z, A-Z, Ziffern und _")
                             .With({instance.name, place->value}));
    return section;
}

const Setting* FindPlace(const InstanceEntry& instance) {
    const auto found = std::ranges::find(instance.settings, PLACE_SETTING, &Setting::name);
    return found != instance.settings.end() ? &*found : nullptr;
}

namespace {

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
