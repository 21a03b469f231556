#include "host/EngineSection.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string_view>

#include "host/GraphBuilder.h"
#include "host/Places.h"
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

std::string TakeReplicas(EngineSection& section, const std::string& value) {
    if (value != "1" && value != "3" && value != "5")
        return Bilingual("'%1' is no number of copies; write 1, or 3 or 5 in a cluster of so many servers",
                         "'%1' ist keine Zahl von Kopien; schreiben Sie 1, oder in einem Verbund von so "
                         "vielen Servern 3 oder 5")
            .With({value});
    section.replicas = value.front() - '0';
    return "";
}

std::string TakeAcknowledge(EngineSection& section, const std::string& value) {
    section.acknowledgesRecorded = value == "recorded";
    if (section.acknowledgesRecorded || value == "taken") return "";
    return Bilingual("'%1' does not say when frames are acknowledged; write taken or recorded",
                     "'%1' sagt nicht, wann Frames bestätigt werden; schreiben Sie taken oder recorded")
        .With({value});
}

struct Item {
    const char* name;
    std::string (*take)(EngineSection&, const std::string&);
};
constexpr Item ITEMS[] = {{"url", TakeUrl},           {"name", TakeName},
                          {"keep", TakeKeep},         {"patience", TakePatience},
                          {"replicas", TakeReplicas}, {"acknowledge", TakeAcknowledge}};

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

}  // namespace host
