#include <algorithm>
#include <set>

#include "host/Graph.h"
#include "host/Guard.h"
#include "host/PortPattern.h"
#include "host/Topology.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

// The ports and lines of a graph.

namespace host {
namespace {

using tc::Bilingual;

constexpr std::size_t MOST_EXPANDED = 100000;

constexpr const char* ONLY_PORT = "Signal";
constexpr const char* FIRST_PORT = "Signal 1";

constexpr Bilingual NO_INPUT("'%1' has no input '%2'; %3", "'%1' hat keinen Eingang '%2'; %3");
constexpr Bilingual NO_OUTPUT("'%1' has no output '%2'; %3", "'%1' hat keinen Ausgang '%2'; %3");

}  // namespace

// From the sources on, for the outputs that a wildcard finds decide how many inputs the next instance has.
void Graph::PrepareDynamicPorts() {
    const std::vector<LineEntry>& written = file.GetLines();
    std::vector<std::pair<int, int>> edges;
    std::vector<std::vector<std::size_t>> linesFrom(instances.size()), linesTo(instances.size());
    expanded.resize(written.size());
    for (std::size_t line = 0; line < written.size(); ++line) {
        const int from = IndexOf(written[line].from.instance), to = IndexOf(written[line].to.instance);
        const bool waits = from >= 0 && to >= 0 && HasWildcard(written[line].from.port);
        if (!waits) expanded[line] = {written[line]};
        if (to >= 0) linesTo[static_cast<std::size_t>(to)].push_back(line);
        if (waits) linesFrom[static_cast<std::size_t>(from)].push_back(line);
        if (from >= 0 && to >= 0 && from != to) edges.emplace_back(from, to);
    }
    for (const int index : SortTopologically(static_cast<int>(instances.size()), edges).order) {
        PreparePorts(index, linesTo[static_cast<std::size_t>(index)]);
        for (const std::size_t line : linesFrom[static_cast<std::size_t>(index)]) ExpandLine(line);
    }
    for (int index = 0; index < static_cast<int>(instances.size()); ++index)
        AssignInputs(index, linesTo[static_cast<std::size_t>(index)]);  // of lines within a cycle
    for (const std::vector<LineEntry>& each : expanded)
        entries.insert(entries.end(), each.begin(), each.end());
}

int Graph::IndexOf(const std::string& instance) const {
    const auto found = indexes.find(instance);
    return found != indexes.end() ? found->second : -1;
}

void Graph::PreparePorts(int index, const std::vector<std::size_t>& linesTo) {
    Instance& instance = At(index);
    if (instance.module == nullptr) return;
    int wired = 0;
    for (const std::size_t line : linesTo)
        for (const LineEntry& entry : expanded[line])
            if (entry.to.port.empty() || !LeadsToParameter(instance, entry.to.port)) ++wired;
    instance.module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, std::max(wired, 1));
    instance.inputs = ReadPorts(*instance.module, INPUT);
    instance.outputs = ReadPorts(*instance.module, OUTPUT);
    AssignInputs(index, linesTo);
}

// Buses, which hold the signals of other outputs again, are meant only where a pattern is their very name.
std::vector<std::string> Graph::MatchingOutputs(Instance& instance, const std::string& pattern) {
    std::vector<std::string> found;
    for (std::size_t output = 0; output < instance.outputs.names.size(); ++output) {
        const std::string& name = instance.outputs.names[output];
        if (name == pattern) return {name};
        const char* type = nullptr;
        int count = 0;
        instance.module->GetPortType(OUTPUT, static_cast<int>(output), type, count);
        const bool isBus = type != nullptr && Text(type).find("STRUCT_BUS") != std::string::npos;
        if (!isBus && MatchesPattern(name, pattern)) found.push_back(name);
    }
    return found;
}

void Graph::ExpandLine(std::size_t line) {
    const LineEntry& written = file.GetLines()[line];
    Instance& from = At(IndexOf(written.from.instance));
    std::vector<std::string> names;
    if (from.module != nullptr) names = MatchingOutputs(from, written.from.port);
    if (allExpanded += names.size(); allExpanded > MOST_EXPANDED)
        return mistakes.Add(written.place,
                            Bilingual("the wildcards up to here stand for more than %1 lines; use fewer",
                                      "die Platzhalter bis hier stehen für mehr als %1 Verbindungen; "
                                      "verwenden Sie weniger")
                                .With({std::to_string(MOST_EXPANDED)}));
    const bool isCrowded = names.size() > 1 && !written.to.port.empty();
    if (names.empty() || isCrowded) meant.insert(written.to.instance);
    if (names.empty() && from.settled)
        mistakes.Add(written.place, Bilingual("no output of '%1' matches '%2'; %3",
                                              "zu '%2' passt kein Ausgang von '%1'; %3")
                                        .With({written.from.instance, written.from.port,
                                               tc::SuggestNames(written.from.port, from.outputs.names)}));
    if (isCrowded)
        return mistakes.Add(
            written.place,
            Bilingual(
                "'%1' matches %2 outputs, and an input takes one line; write %1=%3 to wire each to an input "
                "of its own",
                "zu '%1' passen %2 Ausgänge, und ein Eingang nimmt nur eine Verbindung an; schreiben Sie "
                "%1=%3, um jeden mit einem eigenen Eingang zu verbinden")
                .With({PortText(written.from), std::to_string(names.size()), written.to.instance}));
    for (const std::string& name : names)
        expanded[line].push_back({{written.from.instance, name}, written.to, written.place});
}

// Lines that name no input get the free ones in their order.
void Graph::AssignInputs(int index, const std::vector<std::size_t>& linesTo) {
    Instance& instance = At(index);
    const std::vector<std::string>& names = instance.inputs.names;
    std::set<int> taken;
    for (const std::size_t line : linesTo)
        for (const LineEntry& entry : expanded[line])
            if (!entry.to.port.empty()) taken.insert(FindPort(instance.inputs, entry.to.port));
    int next = 0;
    for (const std::size_t line : linesTo) {
        std::vector<LineEntry>& lineEntriesOf = expanded[line];
        const std::size_t count = lineEntriesOf.size();
        for (LineEntry& entry : lineEntriesOf) {
            if (!entry.to.port.empty()) continue;
            while (taken.contains(next)) ++next;
            if (next < static_cast<int>(names.size()))
                entry.to.port = names[static_cast<std::size_t>(next++)];
        }
        std::erase_if(lineEntriesOf, [](const LineEntry& entry) { return entry.to.port.empty(); });
        if (lineEntriesOf.size() == count) continue;
        meant.insert(instance.entry->name);
        if (instance.settled)
            mistakes.Add(
                file.GetLines()[line].place,
                Bilingual(
                    "'%1' matches %2 outputs, and '%3' has %4 free inputs for them; wire each by its name",
                    "zu '%1' passen %2 Ausgänge, und '%3' hat dafür %4 freie Eingänge; verbinden Sie "
                    "jeden mit seinem Namen")
                    .With({PortText(file.GetLines()[line].from), std::to_string(count), instance.entry->name,
                           std::to_string(lineEntriesOf.size())}));
    }
}

Graph::Ports Graph::ReadPorts(TCBaseModule& module, PORTTYPE kind) {
    Ports ports;
    const int count = kind == INPUT ? module.GetNoInput() : module.GetNoOutput();
    for (int index = 0; index < count; ++index) {
        ports.names.push_back(Text(kind == INPUT ? module.GetInputName(index) : module.GetOutputName(index)));
        ports.indexes.emplace(ports.names.back(), index);
    }
    return ports;
}

// A module with as many ports as are wired calls the only one "Signal" and the first of several "Signal 1":
// either name finds either.
int Graph::FindPort(const Ports& ports, const std::string& name) {
    auto found = ports.indexes.find(name);
    if (found == ports.indexes.end() && name == ONLY_PORT) found = ports.indexes.find(FIRST_PORT);
    if (found == ports.indexes.end() && name == FIRST_PORT) found = ports.indexes.find(ONLY_PORT);
    return found != ports.indexes.end() ? found->second : -1;
}

// An input of that name counts more.
bool Graph::LeadsToParameter(Instance& instance, const std::string& port) {
    return instance.extended != nullptr && instance.extended->FindParameter(port.c_str()) != nullptr &&
           FindPort(ReadPorts(*instance.module, INPUT), port) < 0;
}

// Of a line to a parameter.
bool Graph::ResolveDriver(const LineEntry& entry, RunLine& line) {
    TCBaseModuleEx& module = *At(line.to).extended;
    const std::string name = entry.to.instance + "." + entry.to.port;
    std::string drivable;
    line.input = -1;
    for (int i = 0; i < static_cast<int>(module.GetParameters().size()); ++i) {
        if (entry.to.port == module.GetInfo(i).name) line.parameter = i;
        if (module.GetInfoExtern(i).isDrivable)
            drivable += (drivable.empty() ? "" : ", ") + std::string(module.GetInfo(i).name);
    }
    if (module.GetInfoExtern(line.parameter).isDrivable) return CheckInputFree(line, entry);
    static constexpr Bilingual NONE("no signal can drive the parameter '%1', nor another one of the module",
                                    "den Parameter '%1' kann kein Signal steuern, auch keinen anderen des "
                                    "Moduls");
    static constexpr Bilingual OTHERS("no signal can drive the parameter '%1'; drivable are %2",
                                      "den Parameter '%1' kann kein Signal steuern; steuerbar sind %2");
    mistakes.Add(entry.place, (drivable.empty() ? NONE : OTHERS).With({name, drivable}));
    return false;
}

void Graph::ResolveLines() {
    if (instances.empty() && mistakes.IsEmpty())
        mistakes.Add({file.GetPath()}, Bilingual("names no modules; %1", "nennt keine Module; %1")
                                           .With({file.GetWording().addModules.Text()}));
    if (!file.HasLines() && !file.GetInstances().empty())
        mistakes.Add({file.GetPath()}, Bilingual("has no lines, so no data would flow; %1",
                                                 "hat keine Verbindungen, so flössen keine Daten; %1")
                                           .With({file.GetWording().addLines.Text()}));
    for (const LineEntry& entry : entries) {
        RunLine line{};
        if (!ResolveLine(entry, line)) continue;
        lines.push_back(line);
        lineEntries.push_back(&entry);
    }
}

bool Graph::IsReversed(const LineEntry& entry, const RunLine& line) {
    const Instance& from = At(line.from);
    const Instance& to = At(line.to);
    return FindPort(from.outputs, entry.from.port) < 0 && FindPort(from.inputs, entry.from.port) >= 0 &&
           FindPort(to.inputs, entry.to.port) < 0 && FindPort(to.outputs, entry.to.port) >= 0;
}

bool Graph::ResolveLine(const LineEntry& entry, RunLine& line) {
    line.from = FindInstance(entry.from, entry.place);
    line.to = FindInstance(entry.to, entry.place);
    if (line.from < 0 || line.to < 0) return false;
    if (line.from == line.to) {
        mistakes.Add(
            entry.place,
            Bilingual("the line leads from '%1' to itself; data only flows forward, to another instance",
                      "die Verbindung führt von '%1' zu sich selbst; Daten fließen nur vorwärts, zu einer "
                      "anderen Instanz")
                .With({entry.from.instance}));
        return false;
    }
    if (IsReversed(entry, line)) {
        meant.insert(entry.from.instance);
        mistakes.Add(entry.place,
                     Bilingual("the line leads from an input to an output; write %1=%2",
                               "die Verbindung führt von einem Eingang zu einem Ausgang; schreiben Sie %1=%2")
                         .With({PortText(entry.to), PortText(entry.from)}));
        return false;
    }
    line.output = FindPort(OUTPUT, entry.from, line.from, entry.place);
    if (At(line.to).module != nullptr && LeadsToParameter(At(line.to), entry.to.port))
        return ResolveDriver(entry, line) && line.output >= 0;
    line.input = FindPort(INPUT, entry.to, line.to, entry.place);
    return line.output >= 0 && line.input >= 0 && CheckInputFree(line, entry);
}

int Graph::FindInstance(const PortName& name, const Place& place) {
    const auto found = indexes.find(name.instance);
    if (found != indexes.end()) return found->second;
    CStringArray names;
    for (const Instance& instance : instances) names.push_back(instance.entry->name);
    mistakes.Add(place, Bilingual("there is no instance '%1'; %2", "es gibt keine Instanz '%1'; %2")
                            .With({name.instance, tc::SuggestNames(name.instance, names)}));
    return -1;
}

int Graph::FindPort(PORTTYPE kind, const PortName& name, int instance, const Place& place) {
    const Ports& ports = kind == INPUT ? At(instance).inputs : At(instance).outputs;
    const int index = FindPort(ports, name.port);
    if (index >= 0 || !At(instance).settled) return index;  // with other settings it may have the port
    mistakes.Add(place, (kind == INPUT ? NO_INPUT : NO_OUTPUT)
                                .With({name.instance, name.port, tc::SuggestNames(name.port, ports.names)}) +
                            HintFor(name.port));
    return index;
}

std::optional<OutputWatch> Graph::WatchOutput(const PortName& name, const Place& place) {
    const int instance = FindInstance(name, place);
    const int output = instance >= 0 ? FindPort(OUTPUT, name, instance, place) : -1;
    if (output < 0) return std::nullopt;
    return OutputWatch{instance, output, {}};
}

bool Graph::CheckInputFree(const RunLine& line, const LineEntry& entry) {
    const int place = line.parameter < 0 ? line.input : -1 - line.parameter;
    const auto [known, isNew] = lineOfInput.emplace(std::pair(line.to, place), entry.place.line);
    if (!isNew)
        mistakes.Add(entry.place,
                     Bilingual("the input '%1.%2' is wired already, in line %3; an input takes one line",
                               "der Eingang '%1.%2' ist schon verbunden, in Zeile %3; ein Eingang nimmt nur "
                               "eine Verbindung an")
                         .With({entry.to.instance, entry.to.port, std::to_string(known->second)}));
    return isNew;
}

std::vector<int> Graph::Sort() {
    std::vector<std::pair<int, int>> edges;
    for (const RunLine& line : lines) edges.emplace_back(line.from, line.to);
    Topology topology = SortTopologically(static_cast<int>(instances.size()), edges);
    for (const std::vector<int>& cycle : topology.cycles) {
        std::string path;
        for (const int index : cycle) path += At(index).entry->name + " -> ";
        path += At(cycle.front()).entry->name;
        const auto closes = [&](const RunLine& line) {
            return line.from == cycle.back() && line.to == cycle.front();
        };
        const auto line = std::find_if(lines.begin(), lines.end(), closes) - lines.begin();
        mistakes.Add(
            lineEntries[static_cast<std::size_t>(line)]->place,
            Bilingual("the lines form a cycle: %1; data must flow forward only, so remove one of them",
                      "die Verbindungen bilden einen Kreis: %1; Daten dürfen nur vorwärts fließen, entfernen "
                      "Sie eine davon")
                .With({path}));
    }
    hasCycles = !topology.cycles.empty();
    return std::move(topology.order);
}

}  // namespace host
