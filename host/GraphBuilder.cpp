#include "host/GraphBuilder.h"

#include <algorithm>
#include <utility>

#include "host/PortPattern.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr const char* MODULE = "module";

bool SplitPort(std::string_view text, PortName& port) {
    const std::size_t point = text.find('.');
    if (point == std::string_view::npos) return false;
    port.instance = TrimBlanks(text.substr(0, point));
    port.port = TrimBlanks(text.substr(point + 1));
    return !port.instance.empty() && !port.port.empty();
}

}  // namespace

std::string_view TrimBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool GraphBuilder::BeginInstance(const std::string& name) {
    std::string mistake;
    if (name.find('.') != std::string::npos)
        mistake = Bilingual(
                      "the instance name '%1' holds a point, which separates instance and port; choose a "
                      "name without one",
                      "der Instanzname '%1' enthält einen Punkt, der Instanz und Anschluss trennt; wählen "
                      "Sie einen Namen ohne Punkt")
                      .With({name});
    else if (name == LINES_SECTION)
        mistake =
            Bilingual(
                "no instance can be called 'lines', the name of a section; choose another name",
                "keine Instanz kann 'lines' heißen, so heißt ein Abschnitt; wählen Sie einen anderen Namen")
                .Text();
    else if (const auto known = lineOfInstance.find(name); known != lineOfInstance.end())
        mistake =
            Bilingual("the instance '%1' is there already, in line %2; give this one another name",
                      "die Instanz '%1' gibt es schon, in Zeile %2; geben Sie dieser einen anderen Namen")
                .With({name, std::to_string(known->second)});
    if (!mistake.empty()) {
        Tell(std::move(mistake));
        return false;
    }
    lineOfInstance.emplace(name, place.line);
    lineOfSetting.clear();
    graph.instances.push_back({name, "", place, place, {}});
    return true;
}

bool GraphBuilder::IsNewSetting(const std::string& name) {
    const auto [known, isNew] = lineOfSetting.emplace(name, place.line);
    if (!isNew)
        Tell(Bilingual("'%1' of %2 is set already, in line %3; remove one of the two",
                       "'%1' von %2 ist schon gesetzt, in Zeile %3; entfernen Sie eins von beiden")
                 .With({name, graph.instances.back().name, std::to_string(known->second)}));
    return isNew;
}

void GraphBuilder::SetModule(const std::string& id) {
    if (!IsNewSetting(MODULE)) return;
    graph.instances.back().module = id;
    graph.instances.back().modulePlace = place;
}

void GraphBuilder::AddSetting(const std::string& name, const std::string& value, bool quoted) {
    if (name == MODULE) return SetModule(value);
    if (IsNewSetting(name)) graph.instances.back().settings.push_back({name, value, place, false, quoted});
}

bool GraphBuilder::AddLine(std::string_view from, std::string_view to) {
    LineEntry line{{}, {}, place};
    if (!SplitPort(from, line.from)) return false;
    const bool isWholeInstance = HasWildcard(line.from.port) && to.find('.') == std::string_view::npos;
    if (isWholeInstance) line.to.instance = TrimBlanks(to);
    if (isWholeInstance ? line.to.instance.empty() : !SplitPort(to, line.to)) return false;
    graph.lines.push_back(std::move(line));
    return true;
}

void GraphBuilder::SetAccept(const std::string& value) {
    if (value != "yes" && value != "no")
        return Tell(
            Bilingual("accept is '%1'; it must be yes or no", "accept ist '%1'; es muss yes oder no sein")
                .With({value}));
    graph.acceptsDifferences = value == "yes";
}

// Settings have no points in their names, lines have.
void GraphBuilder::FindMisnamedLines() {
    const auto isLine = [](const Setting& setting) { return setting.name.find('.') != std::string::npos; };
    const auto found = std::ranges::find_if(graph.instances, [&](const InstanceEntry& entry) {
        return entry.module.empty() && !entry.settings.empty() && std::ranges::all_of(entry.settings, isLine);
    });
    if (graph.form != GraphForm::Text || found == graph.instances.end()) return;
    mistakes.Add(found->place,
                 Bilingual("the section '%1' holds lines, and theirs is called [lines]; rename it",
                           "der Abschnitt '%1' enthält Verbindungen, und ihrer heißt [lines]; "
                           "benennen Sie ihn um")
                     .With({found->name}));
    CountLine();
    graph.instances.erase(found);
}

void GraphBuilder::Finish() {
    FindMisnamedLines();
    const auto found = std::ranges::find(graph.instances, ENGINE_SECTION, &InstanceEntry::name);
    if (found == graph.instances.end() || !found->module.empty()) return;
    graph.engine = std::move(*found);
    graph.instances.erase(found);
}

}  // namespace host
