#include "host/LiveChanges.h"

#include <algorithm>
#include <charconv>
#include <sstream>

#include "host/GraphBuilder.h"
#include "host/GraphFile.h"
#include "host/GraphText.h"
#include "host/SteppedGraph.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/persistence/TCProcessParameters.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace host {
namespace {

using tc::Bilingual;

// A value in quotation marks has escapes, as in a graph file.
bool Unquote(std::string& value) {
    if (!value.starts_with('"') && !value.starts_with('\'')) return true;
    TCProcessParameters syntax(true, false, nullptr, "\r\n", "=", "#;");
    if (syntax.ParseParamString(("value=" + value + "\n").c_str()) != 1) return false;
    value = TCString::TCString2BinCString(syntax.GetParamValStr(0));
    return true;
}

bool ParseLine(std::string_view line, LiveChange& change) {
    const char* const end = line.data() + line.size();
    const auto [stop, failure] = std::from_chars(line.data(), end, change.block);
    if (failure != std::errc() || change.block < 1 || stop == end || (*stop != ' ' && *stop != '\t'))
        return false;
    const std::string_view rest = TrimBlanks(std::string_view(stop, static_cast<std::size_t>(end - stop)));
    const std::size_t point = rest.find('.');
    const std::size_t equals = rest.find('=');
    if (equals == rest.npos || point == rest.npos || point > equals) return false;
    change.instance = TrimBlanks(rest.substr(0, point));
    change.parameter = TrimBlanks(rest.substr(point + 1, equals - point - 1));
    change.value = TrimBlanks(rest.substr(equals + 1));
    return !change.instance.empty() && !change.parameter.empty() && Unquote(change.value);
}

// Why a module would not take it; empty when nothing is known against it.
std::string WhyRefused(const LiveChange& change, const std::vector<RunModule>& modules,
                       const std::vector<RunLine>& lines) {
    const auto found = std::ranges::find(modules, change.instance, &RunModule::instance);
    if (found == modules.end()) {
        CStringArray names;
        for (const RunModule& module : modules) names.push_back(module.instance);
        return Bilingual("there is no instance '%1'; %2", "es gibt keine Instanz '%1'; %2")
            .With({change.instance, tc::SuggestNames(change.instance, names)});
    }
    const auto* const module = dynamic_cast<const TCBaseModuleEx*>(found->module);
    TCString reason;
    if (module == nullptr)
        return Bilingual("the module of '%1' has no parameters", "das Modul von '%1' hat keine Parameter")
            .With({change.instance});
    if (!module->IsLiveValue(change.parameter.c_str(), change.value.c_str(), reason))
        return change.instance + "." + std::string(reason);
    const bool isDriven = std::ranges::any_of(lines, [&](const RunLine& line) {
        return line.parameter >= 0 && line.to == found - modules.begin() &&
               module->GetInfo(line.parameter).name == change.parameter;
    });
    if (!isDriven) return "";
    return Bilingual("%1.%2: a line drives it; remove that line to set it",
                     "%1.%2: wird von einer Verbindung gesteuert; entfernen Sie sie, um es zu setzen")
        .With({change.instance, change.parameter});
}

}  // namespace

void LiveChanges::Add(LiveChange change) {
    const std::lock_guard lock(mutex);
    std::deque<LiveChange>& list = changes[change.instance];
    const auto place = std::ranges::upper_bound(list, change.block, {}, &LiveChange::block);
    list.insert(place, std::move(change));
    waiting.fetch_add(1, std::memory_order_relaxed);
}

bool LiveChanges::Concern(const std::string& instance) {
    const std::lock_guard lock(mutex);
    return changes.contains(instance);
}

std::vector<ChangeOutcome> LiveChanges::TakeOutcomes() {
    const std::lock_guard lock(mutex);
    return std::exchange(outcomes, {});
}

bool LiveChanges::TakeNext(const std::string& instance, std::int64_t block, LiveChange& change) {
    const std::lock_guard lock(mutex);
    const auto found = changes.find(instance);
    if (found == changes.end() || found->second.front().block > block) return false;
    change = std::move(found->second.front());
    found->second.pop_front();
    if (found->second.empty()) changes.erase(found);
    waiting.fetch_sub(1, std::memory_order_relaxed);
    return true;
}

void LiveChanges::Make(const std::string& instance, std::int64_t block,
                       const std::function<std::string(const LiveChange&)>& change,
                       const std::function<void(const ChangeOutcome&)>& outcome) {
    ChangeOutcome made;
    while (TakeNext(instance, block, made.change)) {
        made.refusal = change(made.change);
        made.change.block = block;
        outcome(made);
        const std::lock_guard lock(mutex);
        outcomes.push_back(made);
    }
}

std::vector<LiveChange> LiveChanges::TakeRest() {
    const std::lock_guard lock(mutex);
    std::vector<LiveChange> rest;
    for (auto& [instance, list] : changes) rest.insert(rest.end(), list.begin(), list.end());
    changes.clear();
    waiting.store(0, std::memory_order_relaxed);
    return rest;
}

std::vector<LiveChange> ReadChanges(const std::string& path, Mistakes& mistakes) {
    return ParseChanges(path, GraphFile::ReadText(path, mistakes), mistakes);
}

std::vector<LiveChange> ParseChanges(const std::string& path, const std::string& text, Mistakes& mistakes) {
    std::vector<LiveChange> changes;
    std::istringstream lines(text);
    Place place{path, 0};
    for (std::string line; std::getline(lines, line);) {
        ++place.line;
        if (line.ends_with('\r')) line.pop_back();
        const std::string_view content = TrimBlanks(line);
        if (content.empty() || content.starts_with('#')) continue;
        LiveChange change;
        change.place = place;
        if (ParseLine(content, change))
            changes.push_back(std::move(change));
        else
            mistakes.Add(place,
                         Bilingual("'%1' is no change; write BLOCK INSTANCE.PARAMETER=VALUE, as '17 "
                                   "low.corner=2 kHz', with blocks counted from 1",
                                   "'%1' ist keine Änderung; schreiben Sie BLOCK INSTANZ.PARAMETER=WERT, wie "
                                   "'17 low.corner=2 kHz', mit Blöcken ab 1")
                             .With({std::string(content)}));
    }
    return changes;
}

std::string WriteChanges(const std::vector<LiveChange>& changes) {
    std::string text = "# BLOCK INSTANCE.PARAMETER=VALUE\n";
    for (const LiveChange& change : changes)
        text += std::to_string(change.block) + " " +
                WriteTextSetting(change.instance + "." + change.parameter, change.value) + "\n";
    return text;
}

void CheckChanges(const std::vector<LiveChange>& changes, const std::vector<RunModule>& modules,
                  const std::vector<RunLine>& lines, Mistakes& mistakes) {
    for (const LiveChange& change : changes)
        if (const std::string reason = WhyRefused(change, modules, lines); !reason.empty())
            mistakes.Add(change.place, reason);
}

}  // namespace host
