#include "host/ModuleSettings.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "host/FileWait.h"
#include "host/GraphBuilder.h"
#include "host/GraphText.h"
#include "host/Guard.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/platform/PathText.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/PathTokens.h"

namespace host {
namespace {

using tc::Bilingual;

// To look for names that are near takes time, and nobody reads that many.
constexpr int MOST_EXPLAINED = 1000;

bool IsFile(const TCModuleParameter* parameter) {
    return parameter != nullptr &&
           (parameter->kind == TCModuleParameter::FILE || parameter->kind == TCModuleParameter::OUTPUT_FILE);
}

// Of each line, with what it is about: the part before its first colon.
template <class Use>
void ForEachReason(const std::string& reasons, Use use) {
    std::istringstream lines(reasons);
    for (std::string reason; std::getline(lines, reason);) use(reason, reason.substr(0, reason.find(':')));
}

}  // namespace

ModuleSettings::ModuleSettings(const GraphFile& graph, const InstanceEntry& instance,
                               TCBaseModuleEx* settable, Mistakes& allMistakes)
    : file(graph), entry(instance), module(settable), mistakes(allMistakes) {}

bool ModuleSettings::Apply() {
    for (const Setting& setting : entry.settings)
        if (!IsOfHost(setting)) Apply(setting);
    if (module == nullptr) return true;
    const bool given = FindMissing();
    return MakeEffective() && given;
}

bool ModuleSettings::IsOfHost(const Setting& setting) const {
    return setting.name == PLACE_SETTING &&
           (module == nullptr || module->FindParameter(PLACE_SETTING) == nullptr);
}

void ModuleSettings::Apply(const Setting& setting) {
    if (module == nullptr)
        return Tell(setting, Bilingual("%1: the module '%2' takes no settings; remove this one",
                                       "%1: das Modul '%2' nimmt keine Einstellungen an; entfernen Sie diese")
                                 .With({setting.name, entry.module}));
    if (setting.value.find('\0') != std::string::npos)
        return Tell(setting, Bilingual("%1: a value cannot hold a zero byte; remove it",
                                       "%1: ein Wert kann kein Nullbyte enthalten; entfernen Sie es")
                                 .With({setting.name}));
    const bool isUnknown = module->FindParameter(setting.name.c_str()) == nullptr;
    if (isUnknown && ++unknown > MOST_EXPLAINED)
        return mistakes.Add(PlaceOf(setting), Bilingual("%1.%2: there is no such parameter",
                                                        "%1.%2: diesen Parameter gibt es nicht")
                                                  .With({entry.name, setting.name}));
    std::string value = setting.value;
    if (IsFile(module->FindParameter(setting.name.c_str())) && !ResolvePath(setting, value)) return;
    TCString error;
    if (module->SetParameter(setting.name.c_str(), value.c_str(), error)) return;
    Tell(setting, std::string(error) + HintFor(&setting));
}

// Begins with the parameter's name.
void ModuleSettings::Tell(const Setting& setting, const std::string& text) {
    mistakes.Add(PlaceOf(setting), entry.name + "." + text);
    wrong.insert(setting.name);
}

// Into one that starts at the graph file's folder, or at the current directory when it is an argument.
bool ModuleSettings::ResolvePath(const Setting& setting, std::string& path) {
    if (path == "-") return true;  // standard input, for modules that read it
    CStringArray notFound;
    tc::ResolvePathTokens(path, {.create = false}, &notFound);
    for (const std::string& name : notFound)
        Tell(setting, Bilingual("%1: '%%2%' is no folder and no environment variable; set the variable, or "
                                "rename a file that has two percent signs in its name",
                                "%1: '%%2%' ist kein Ordner und keine Umgebungsvariable; setzen Sie die "
                                "Variable, oder benennen Sie eine Datei mit zwei Prozentzeichen im Namen um")
                          .With({setting.name, name}));
    if (path.starts_with("~/") && !std::filesystem::exists("~")) {
        Tell(setting, Bilingual("%1: '~' is replaced by shells only; write %HOME%%2",
                                "%1: '~' ersetzt nur die Shell; schreiben Sie %HOME%%2")
                          .With({setting.name, path.substr(1)}));
        return false;
    }
    path = tc::NativePath(path.c_str());
    if (!setting.onCommandLine && !path.empty())
        path = (std::filesystem::path(file.GetPath()).parent_path() / path).lexically_normal().string();
    return notFound.empty();
}

// False when a parameter that must be given has no value, also one that was refused.
bool ModuleSettings::FindMissing() {
    bool complete = true;
    for (const TCModuleParameter& parameter : module->GetParameters()) {
        if (parameter.defaultValue != nullptr) continue;
        const bool isSet = Find(parameter.name) != nullptr;
        complete = complete && isSet && !wrong.contains(parameter.name);
        if (isSet) continue;
        wrong.insert(parameter.name);
        mistakes.Add(entry.place,
                     Bilingual("%1.%2: must be given; expected %3; %4",
                               "%1.%2: muss angegeben werden; erwartet wird %3; %4")
                         .With({entry.name, parameter.name, std::string(parameter.DescribeAllowed()),
                                file.GetWording().addSetting.With({parameter.name})}));
    }
    return complete;
}

// Also when a parameter is missing: the module may say what else is wrong.
bool ModuleSettings::MakeEffective() {
    bool done = false;
    TCString error;
    const FileWait wait(entry.name, FilesOf(*module));
    const std::string thrown = WhatItThrows([&] { done = module->OnSettingsChanged(error); });
    if (done) return true;
    effective = false;
    const std::string reasons = thrown.empty() ? std::string(error) : thrown;
    for (const Mistake& mistake : Locate(reasons, {})) mistakes.Add(mistake.place, mistake.text);
    ForEachReason(reasons, [this](const std::string&, const std::string& subject) { wrong.insert(subject); });
    return false;
}

std::vector<Mistake> ModuleSettings::Locate(const std::string& reasons,
                                            const std::map<std::string, Place>& inputs) const {
    std::vector<Mistake> located;
    ForEachReason(reasons, [&](const std::string& reason, const std::string& subject) {
        const auto input = inputs.find(subject);
        const bool isParameter = module->FindParameter(subject.c_str()) != nullptr;
        if (wrong.contains(subject)) return;
        if (isParameter) {
            const Setting* const setting = Find(subject);
            located.push_back({setting != nullptr ? PlaceOf(*setting) : entry.place,
                               entry.name + "." + reason + HintFor(setting)});
        } else if (input != inputs.end()) {
            located.push_back({input->second, entry.name + "." + reason});
        } else {
            located.push_back({entry.place, entry.name + ": " + reason});
        }
    });
    return located;
}

const Setting* ModuleSettings::Find(const std::string& parameter) const {
    const auto found = std::ranges::find(entry.settings, parameter, &Setting::name);
    return found != entry.settings.end() ? &*found : nullptr;
}

bool ModuleSettings::IsSecret(const Setting& setting) const {
    const TCModuleParameter* const parameter =
        module != nullptr ? module->FindParameter(setting.name.c_str()) : nullptr;
    return parameter != nullptr && parameter->secret;
}

// An argument is its own place, and quotes the value.
Place ModuleSettings::PlaceOf(const Setting& setting) const {
    const bool hides = setting.onCommandLine && IsSecret(setting);
    return hides ? Place{"--set " + entry.name + "." + setting.name + "=...", 0} : setting.place;
}

std::string ModuleSettings::HintFor(const Setting* setting) const {
    const bool written =
        setting != nullptr && !setting->onCommandLine && !setting->quoted && !IsSecret(*setting);
    return written && file.GetForm() == GraphForm::Text ? CommentHint(setting->value) : "";
}

}  // namespace host
