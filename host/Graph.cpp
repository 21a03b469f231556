#include "host/Graph.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "host/Console.h"
#include "host/GraphText.h"
#include "host/Guard.h"
#include "host/PortPattern.h"
#include "host/RunLog.h"
#include "host/Topology.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/module/TCExtPar.h"
#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/module/TCValidateActualPortType.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"
#include "sigweave/services/PathTokens.h"
#include "sigweave/services/StringResources.h"
#include "sigweave/signal/UnitText.h"

namespace host {
namespace {

using tc::Bilingual;

enum MessageNumber : unsigned { MESSAGE_SINK = 27, MESSAGE_LANGUAGE = 41 };

constexpr std::size_t MOST_EXPANDED = 100000;

constexpr const char* ONLY_PORT = "Signal";
constexpr const char* FIRST_PORT = "Signal 1";

struct MessageKind {
    TCModuleMessage::Types type;
    const Bilingual* word;  // null: for the log alone
    TCLogFile::LOG_LEVEL level;
};

constexpr MessageKind MESSAGE_KINDS[] = {
    {TCModuleMessage::Types::Emergency, &console::ERROR_WORD, TCLogFile::EMERGENCY},
    {TCModuleMessage::Types::Alert, &console::ERROR_WORD, TCLogFile::CRITICAL},
    {TCModuleMessage::Types::Critical, &console::ERROR_WORD, TCLogFile::CRITICAL},
    {TCModuleMessage::Types::Warning, &console::WARNING_WORD, TCLogFile::WARNING},
    {TCModuleMessage::Types::Notice, &console::NOTE_WORD, TCLogFile::NOTICE},
    {TCModuleMessage::Types::Info, &console::NOTE_WORD, TCLogFile::TRACE},
    {TCModuleMessage::Types::Debug, nullptr, TCLogFile::DATA},
    {TCModuleMessage::Types::Detail, nullptr, TCLogFile::ERROR},
};

void Sink(const char* module, TCModuleMessage::Types type, const char* text) {
    const auto kind = std::ranges::find(MESSAGE_KINDS, type, &MessageKind::type);
    if (kind == std::end(MESSAGE_KINDS))
        return console::FromModule(&console::NOTE_WORD, TCLogFile::NOTICE, module, text);
    console::FromModule(kind->word, kind->level, module, text);
}

bool IsFile(const TCModuleParameter& parameter) {
    return parameter.kind == TCModuleParameter::FILE || parameter.kind == TCModuleParameter::OUTPUT_FILE;
}

constexpr Bilingual NO_INPUT("'%1' has no input '%2'; %3", "'%1' hat keinen Eingang '%2'; %3");
constexpr Bilingual NO_OUTPUT("'%1' has no output '%2'; %3", "'%1' hat keinen Ausgang '%2'; %3");

bool IsStandardOutput(const std::string& path) {
    constexpr const char* NAMES[] = {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"};
    const std::string plain = std::filesystem::path(path).lexically_normal().string();
    return std::ranges::find(NAMES, plain) != std::end(NAMES);
}

std::string LineText(const LineEntry& entry) {
    return PortText(entry.from) + "=" + PortText(entry.to);
}

}  // namespace

Graph::Graph(const GraphFile& graphFile, const ModuleCatalogue& moduleCatalogue, HostWindow& hostWindow,
             Mistakes& allMistakes, const std::vector<FileUse>& filesOfHost)
    : file(graphFile), catalogue(moduleCatalogue), window(hostWindow), mistakes(allMistakes) {
    window.AcceptDifferences(file.AcceptsDifferences(), file.GetWording().acceptDifferences.Text());
    CreateModules();
    for (Instance& instance : instances)
        if (instance.module != nullptr) ApplySettings(instance);
    PrepareDynamicPorts();
    CheckFiles(filesOfHost);
    ResolveLines();
    const std::vector<int> order = Sort();
    ValidateTypes(order);
    CheckInputs();
    CheckStarts(order);
    WarnOfIdleSources();
    WarnOfComments();
    std::ranges::stable_sort(warnings, {}, [](const Message& warning) { return warning.place.line; });
}

std::vector<RunModule> Graph::Modules() const {
    std::vector<RunModule> modules;
    for (const Instance& instance : instances)
        modules.push_back({instance.entry->name, instance.module.get()});
    return modules;
}

// --- Modules and settings

void Graph::CreateModules() {
    std::map<std::string, int> used;
    for (const InstanceEntry& entry : file.GetInstances()) ++used[entry.module];
    for (auto& [module, count] : used) count = count > 1 ? 1 : 0;  // now the number of the next instance
    for (const InstanceEntry& entry : file.GetInstances()) {
        indexes.emplace(entry.name, static_cast<int>(instances.size()));
        instances.emplace_back().entry = &entry;
        Create(instances.back(), used);
    }
}

void Graph::Create(Instance& instance, std::map<std::string, int>& used) {
    const InstanceEntry& entry = *instance.entry;
    if (entry.module.empty())
        return mistakes.Add(entry.place, Bilingual("the instance '%1' does not say which module it is; %2, "
                                                   "where 'sigweave modules' lists the ids",
                                                   "die Instanz '%1' sagt nicht, welches Modul sie ist; %2, "
                                                   "die Kennungen nennt 'sigweave modules'")
                                             .With({entry.name, file.GetWording().addModuleId.Text()}));
    const CatalogueEntry* found = catalogue.Find(entry.module);
    if (found == nullptr)
        return mistakes.Add(entry.modulePlace, catalogue.WhyUnusable(entry.module) + HintFor(entry.module));
    std::string error;
    int& number = used[entry.module];
    instance.module = catalogue.Create(*found, number, error);
    if (number > 0) ++number;
    if (instance.module == nullptr)
        return mistakes.Add(entry.modulePlace, Bilingual("the module '%1' cannot be used: %2",
                                                         "das Modul '%1' ist nicht verwendbar: %2")
                                                   .With({entry.module, error}));
    Greet(instance, *found);
}

void Graph::Greet(Instance& instance, const CatalogueEntry& entry) {
    TCBaseModule& module = *instance.module;
    console::NameInstance(module.GetModuleName(), instance.entry->name);
    console::SetSpeaker([name = instance.entry->name] { return name; });
    module.GetMessageA(MESSAGE_SINK, reinterpret_cast<long>(&Sink));
    module.GetMessageA(MESSAGE_LANGUAGE, TCGetResourceLanguage());
    module.GetMessageA(TCPortHelper::MESSAGE_INSTANCE_HANDLE,
                       reinterpret_cast<long>(ModuleCatalogue::HandleOf(entry)));
    instance.extended = dynamic_cast<TCBaseModuleEx*>(&module);
}

// A module that takes as many inputs as are wired has its ports by their number alone; those of others may
// depend on the settings.
void Graph::ApplySettings(Instance& instance) {
    instance.settings = std::make_unique<ModuleSettings>(file, *instance.entry, instance.extended, mistakes);
    instance.settled =
        instance.settings->Apply() || instance.module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, 1) >= 0;
}

// Where a parameter was set; the instance's place when it was not.
const Place& Graph::PlaceOf(const InstanceEntry& entry, const std::string& parameter) {
    for (const Setting& setting : entry.settings)
        if (setting.name == parameter) return setting.place;
    return entry.place;
}

void Graph::MakeFolders() const {
    for (const Instance& instance : instances) {
        if (instance.extended == nullptr) continue;
        for (const Setting& setting : instance.entry->settings) {
            const TCModuleParameter* parameter = instance.extended->FindParameter(setting.name.c_str());
            std::string path = setting.value;
            if (parameter != nullptr && IsFile(*parameter)) tc::ResolvePathTokens(path, {});
        }
    }
}

// What a module writes must not be what another one, or the host, reads or writes: one of them would be lost.
void Graph::CheckFiles(const std::vector<FileUse>& ofHost) {
    FileClashes clashes(mistakes);
    clashes.Add({Bilingual("the host", "das Programm").Text(),
                 file.GetPath(),
                 TCModuleFile::READS,
                 {file.GetPath()}});
    for (const Instance& instance : instances) {
        if (instance.extended == nullptr) continue;
        TCArray<TCModuleFile> files;
        WhatItThrows([&] { instance.extended->GetFiles(files); });
        for (const TCModuleFile& each : files)
            clashes.Add({instance.entry->name, std::string(each.path), each.use,
                         PlaceOf(*instance.entry, std::string(each.parameter))});
    }
    for (const FileUse& use : ofHost) clashes.Add(use);
}

// --- Ports and lines

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
    if (file.GetLines().empty() && !file.GetInstances().empty())
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

// --- Types

// From the sources on, so that a type which a module adopts at its input is known at its output.
void Graph::ValidateTypes(const std::vector<int>& order) {
    std::vector<std::vector<std::size_t>> linesFrom(instances.size());
    for (std::size_t line = 0; line < lines.size(); ++line)
        linesFrom[static_cast<std::size_t>(lines[line].from)].push_back(line);
    for (const int instance : order)
        for (const std::size_t line : linesFrom[static_cast<std::size_t>(instance)]) ValidateType(line);
}

void Graph::ValidateType(std::size_t index) {
    const RunLine& line = lines[index];
    if (!At(line.from).settled || !At(line.to).settled) return;
    const LineEntry& entry = *lineEntries[index];
    TCBaseModule& from = ModuleAt(line.from);
    TCBaseModule& to = ModuleAt(line.to);
    from.AddLine(OUTPUT, line.output);
    const char* type = nullptr;
    int count = 0;
    from.GetPortType(OUTPUT, line.output, type, count);
    if (line.parameter >= 0) return ValidateDriver(entry, type, count);
    const char* expected = nullptr;
    int expectedCount = 0;
    to.GetPortType(INPUT, line.input, expected, expectedCount);
    window.BeginLine(LineText(entry), Text(type), Text(expected));
    const bool fits = to.ValidatePortType(INPUT, line.input, type, count) != 0;
    to.AddLine(INPUT, line.input);
    std::vector<std::string> refusals = window.TakeRefusals();
    if (fits) return;
    if (refusals.empty() && type == nullptr && hasCycles) return;  // adopted types get lost in a cycle
    if (refusals.empty())
        refusals.push_back(
            type == nullptr
                ? Bilingual(
                      "the output has no data type yet; wire the inputs of '%1' first",
                      "der Ausgang hat noch keinen Datentyp; verbinden Sie zuerst die Eingänge von '%1'")
                      .With({entry.from.instance})
                : Bilingual("the input does not take the output's type %1",
                            "der Eingang nimmt den Typ des Ausgangs, %1, nicht an")
                      .With({type}));
    for (const std::string& refusal : refusals) mistakes.Add(entry.place, LineText(entry) + ": " + refusal);
}

// A parameter takes numbers with a time.
void Graph::ValidateDriver(const LineEntry& entry, const char* type, int count) {
    constexpr const char* TOKENS[] = {"DOUBLE[]", "DOUBLE[1]", "DOUBLE", "SWORD[]", "SWORD[1]", "SWORD"};
    TCValidateActualPortType items;
    TCString first, token, declarator, meaning;
    if (type != nullptr) items.FillValidation(count, type);
    const bool isNumber = type != nullptr && count == 2 && items.GetInternalToken(0, first, declarator) &&
                          items.GetInternalToken(1, token, meaning) && first == "TYPEINFO" &&
                          std::ranges::find(TOKENS, std::string(token)) != std::end(TOKENS);
    if (isNumber && meaning != "FREQ_DOMAIN") return;
    mistakes.Add(entry.place,
                 LineText(entry) + ": " +
                     Bilingual("the output's type %1 drives no parameter; wire one that brings numbers over "
                               "time, as TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}",
                               "der Typ %1 des Ausgangs steuert keinen Parameter; verbinden Sie einen, der "
                               "Zahlen über der Zeit bringt, wie TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}")
                         .With({type != nullptr ? type : "?"}));
}

// What is known of the signal that drives a parameter.
void Graph::CheckDriver(std::size_t index, const TCForetoldSignal& signal) {
    const RunLine& line = lines[index];
    TCExtPar driven(*At(line.to).extended, line.parameter, "");
    if (!signal.unit || driven.Fits(*signal.unit)) return;
    const LineEntry& entry = *lineEntries[index];
    mistakes.Add(entry.place, LineText(entry) + ": " +
                                  Bilingual("the signal's unit %1 does not fit; expected %2",
                                            "die Einheit %1 des Signals passt nicht; erwartet wird %2")
                                      .With({tc::DisplayUnit(*signal.unit),
                                             *At(line.to).extended->GetInfo(line.parameter).unit != '\0'
                                                 ? At(line.to).extended->GetInfo(line.parameter).unit
                                                 : Bilingual("none", "keine").Text()}));
}

// An input that a faulty line was meant for counts as wired: the mistake is reported at that line.
void Graph::CheckInputs() {
    std::set<std::pair<int, int>> wired;
    std::set<int> reached;
    for (const LineEntry& entry : entries) {
        const auto found = indexes.find(entry.to.instance);
        if (found == indexes.end() || LeadsToParameter(At(found->second), entry.to.port)) continue;
        const Ports& inputs = At(found->second).inputs;
        const int input = FindPort(inputs, entry.to.port);
        const CStringArray near =
            input < 0 ? tc::NearestNames(entry.to.port, inputs.names) : CStringArray{entry.to.port};
        if (!near.empty()) wired.emplace(found->second, FindPort(inputs, near.front()));
        reached.insert(found->second);
    }
    for (int index = 0; index < static_cast<int>(instances.size()); ++index)
        if (At(index).module != nullptr && !meant.contains(At(index).entry->name))
            CheckInputs(index, wired, reached.contains(index));
}

void Graph::CheckInputs(int at, const std::set<std::pair<int, int>>& wired, bool anyWired) {
    const Instance& instance = At(at);
    const std::string& name = instance.entry->name;
    const CStringArray& inputs = instance.inputs.names;
    const TCPortHelper* helper = instance.module->GetPortHelper();
    bool missing = false;
    for (unsigned index = 0; index < inputs.size() && helper != nullptr && instance.settled; ++index) {
        const bool isWired = wired.contains({at, static_cast<int>(index)});
        if (isWired || !helper->IsObligatoryInput(index)) continue;
        const std::string port = name + "." + inputs[index];
        mistakes.Add(instance.entry->place,
                     Bilingual("the input '%1' must be wired; %2", "der Eingang '%1' muss verbunden sein; %2")
                         .With({port, file.GetWording().addLineTo.With({port})}));
        missing = true;
    }
    if (missing || anyWired || inputs.empty() || instance.module->GetTypeOfModule() == 1 ||
        file.GetLines().empty())
        return;
    mistakes.Add(
        instance.entry->place,
        Bilingual("nothing is wired to '%1', so it would never have work; %2, or remove it",
                  "mit '%1' ist nichts verbunden, es hätte nie etwas zu tun; %2, oder entfernen Sie es")
            .With({name, file.GetWording().addLineTo.With({name + "." + inputs.front()})}));
}

// --- The start

// From the sources on, so that what is known of their signals is known of those that follow from them.
void Graph::CheckStarts(const std::vector<int>& order) {
    std::vector<std::vector<TCForetoldSignal>> inputs(instances.size());
    std::vector<std::map<std::string, Place>> places(instances.size());
    std::vector<std::vector<std::size_t>> linesFrom(instances.size());
    for (std::size_t index = 0; index < instances.size(); ++index)
        inputs[index].resize(instances[index].inputs.names.size());
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const RunLine& line = lines[index];
        linesFrom[static_cast<std::size_t>(line.from)].push_back(index);
        if (line.parameter >= 0) continue;
        places[static_cast<std::size_t>(line.to)].emplace(
            At(line.to).inputs.names[static_cast<std::size_t>(line.input)], lineEntries[index]->place);
    }
    for (const int index : order) {
        Instance& instance = At(index);
        const auto at = static_cast<std::size_t>(index);
        if (instance.extended == nullptr || !instance.settled) continue;
        CheckStart(instance, inputs[at], places[at]);
        const std::vector<TCForetoldSignal> outputs = Foretell(instance, inputs[at]);
        for (const std::size_t line : linesFrom[at]) {
            const TCForetoldSignal& made = outputs[static_cast<std::size_t>(lines[line].output)];
            if (lines[line].parameter >= 0)
                CheckDriver(line, made);
            else
                inputs[static_cast<std::size_t>(lines[line].to)]
                      [static_cast<std::size_t>(lines[line].input)] = made;
        }
    }
}

void Graph::CheckStart(Instance& instance, const std::vector<TCForetoldSignal>& known,
                       const std::map<std::string, Place>& places) {
    TCStartCheck check;
    check.inputs = known;
    const std::string thrown = WhatItThrows([&] { instance.extended->CheckStart(check); });
    if (!thrown.empty()) check.Refuse(thrown);
    for (const Mistake& mistake : instance.settings->Locate(std::string(check.mistakes), places))
        mistakes.Add(mistake.place, mistake.text);
    for (const Mistake& warning : instance.settings->Locate(std::string(check.warnings), places))
        Warn(instance.entry->name, warning.place, warning.text);
}

// Of each output.
std::vector<TCForetoldSignal> Graph::Foretell(Instance& instance,
                                              const std::vector<TCForetoldSignal>& known) {
    std::vector<TCForetoldSignal> outputs(instance.outputs.names.size());
    for (std::size_t output = 0; output < outputs.size() && instance.settings->AreRight(); ++output) {
        TCForetoldSignal signal;
        const std::string thrown = WhatItThrows(
            [&] { signal = instance.extended->ForetellOutput(static_cast<int>(output), known); });
        if (thrown.empty()) outputs[output] = signal;
    }
    return outputs;
}

void Graph::WarnOfIdleSources() {
    std::set<std::string> wired;
    for (const LineEntry& entry : file.GetLines()) wired.insert(entry.from.instance);
    for (const Instance& instance : instances) {
        const std::string& name = instance.entry->name;
        if (instance.module == nullptr || instance.module->GetTypeOfModule() != 1 || wired.contains(name))
            continue;
        Warn(name, instance.entry->place,
             Bilingual(
                 "the source '%1' is wired to nothing, so its signals go nowhere; draw a line from it, or "
                 "remove it",
                 "die Quelle '%1' ist mit nichts verbunden, ihre Signale gehen ins Leere; ergänzen Sie eine "
                 "Verbindung, oder entfernen Sie sie")
                 .With({name}));
    }
}

// Where the value is a text that may mean it so.
void Graph::WarnOfComments() {
    for (const InstanceEntry& entry : file.GetInstances())
        for (const Setting& setting : entry.settings) {
            const bool written =
                file.GetForm() == GraphForm::Text && !setting.onCommandLine && !setting.quoted;
            const std::size_t comment = written ? FindComment(setting.value) : std::string::npos;
            if (comment == std::string::npos || setting.value.substr(comment + 1, 1) != " ") continue;
            Warn(entry.name, setting.place,
                 Bilingual(
                     "%1.%2: '%3' is a part of the value; a comment has a line of its own, and a value in "
                     "quotation marks is meant so",
                     "%1.%2: '%3' ist ein Teil des Werts; ein Kommentar hat eine eigene Zeile, und ein Wert "
                     "in Anführungszeichen ist so gemeint")
                     .With({entry.name, setting.name, setting.value.substr(comment)}));
        }
}

void Graph::Warn(const std::string& instance, const Place& place, const std::string& text) {
    warnings.push_back({Severity::Warning, instance, text, place});
}

std::string Graph::HintFor(const std::string& written) const {
    return file.GetForm() == GraphForm::Text ? CommentHint(written) : "";
}

// --- Standard output

template <class Use>
void Graph::ForEachStandardOutput(Use use) const {
    for (const Instance& instance : instances) {
        if (instance.extended == nullptr) continue;
        for (const TCModuleParameter& parameter : instance.extended->GetParameters())
            if (parameter.kind == TCModuleParameter::OUTPUT_FILE &&
                IsStandardOutput(std::string(instance.extended->GetParameter(parameter.name))))
                use(*instance.entry, parameter.name);
    }
}

void Graph::RefuseStandardOutput() {
    ForEachStandardOutput([this](const InstanceEntry& entry, const char* parameter) {
        mistakes.Add(
            PlaceOf(entry, parameter),
            Bilingual("%1.%2: standard output belongs to the report; name another file, or write the report "
                      "to one with --report-file",
                      "%1.%2: die Standardausgabe gehört dem Bericht; nennen Sie eine andere Datei, oder "
                      "schreiben Sie den Bericht mit --report-file in eine")
                .With({entry.name, parameter}));
    });
}

bool Graph::WritesToStandardOutput() const {
    bool found = false;
    ForEachStandardOutput([&found](const InstanceEntry&, const char*) { found = true; });
    return found;
}

}  // namespace host
