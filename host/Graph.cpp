#include "host/Graph.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "host/Console.h"
#include "host/GraphText.h"
#include "host/Guard.h"
#include "host/RunLog.h"
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
    if (entry.module.empty() && TellMisnamedModule(entry)) return;
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

// Where a setting seems to mean it. False when there is none.
bool Graph::TellMisnamedModule(const InstanceEntry& entry) {
    const auto found = std::ranges::find_if(entry.settings, [](const Setting& setting) {
        const TCString name(setting.name.c_str());
        return name.CompareNoCase("module") == 0 || name.CompareNoCase("modul") == 0;
    });
    if (found == entry.settings.end()) return false;
    mistakes.Add(found->place,
                 Bilingual("the instance '%1' does not say which module it is; write 'module' in "
                           "place of '%2'",
                           "die Instanz '%1' sagt nicht, welches Modul sie ist; schreiben Sie "
                           "'module' statt '%2'")
                     .With({entry.name, found->name}));
    return true;
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
