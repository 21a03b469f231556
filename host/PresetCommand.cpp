#include "host/PresetCommand.h"

#include <algorithm>
#include <sstream>

#include "host/Commands.h"
#include "host/Console.h"
#include "host/GraphText.h"
#include "host/Guard.h"
#include "host/Presets.h"
#include "host/SetCommand.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr Bilingual NO_PRESETS(
    "there are no presets yet; 'sigweave preset save MODULE NAME PARAMETER=VALUE' keeps one",
    "es gibt noch keine Vorlagen; 'sigweave preset save MODUL NAME PARAMETER=WERT' legt eine an");
constexpr Bilingual NO_PRESETS_OF(
    "there are no presets of the module '%1' yet; 'sigweave preset save %1 NAME PARAMETER=VALUE' keeps one",
    "es gibt noch keine Vorlagen des Moduls '%1'; 'sigweave preset save %1 NAME PARAMETER=WERT' legt eine "
    "an");

// Empty when there is one of that name.
std::string WhyNoPreset(const std::string& module, const std::string& name) {
    CStringArray names;
    for (const PresetName& known : ListPresets(module)) names.push_back(known.name);
    if (names.empty()) return NO_PRESETS_OF.With({module});
    if (std::ranges::count(names, name) > 0) return "";
    return Bilingual("there is no preset '%1' of the module '%2'; %3",
                     "es gibt keine Vorlage '%1' des Moduls '%2'; %3")
        .With({name, module, tc::SuggestNames(name, names)});
}

int PrintSettings(const TCBaseModuleEx& module) {
    std::string lines;
    for (const TCModuleParameter& parameter : module.GetParameters()) {
        const std::string value(module.GetParameter(parameter.name));
        const bool isUsual =
            parameter.defaultValue != nullptr ? value == parameter.defaultValue : value.empty();
        if (!isUsual && !parameter.secret) lines += WriteTextSetting(parameter.name, value) + "\n";
    }
    return console::Print(lines) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

// The instance, or where none is named the only one of the module; null, with the reason.
const InstanceEntry* FindTarget(const GraphFile& file, const std::string& id, const std::string& instance,
                                std::string& error) {
    const InstanceEntry* found = nullptr;
    int count = 0;
    for (const InstanceEntry& entry : file.GetInstances()) {
        const bool isMeant = instance.empty() ? entry.module == id : entry.name == instance;
        if (isMeant) found = &entry;
        count += isMeant ? 1 : 0;
    }
    if (count == 1 && found->module == id) return found;
    if (count == 1)
        error = Bilingual("'%1' is of the module '%2', not '%3'", "'%1' ist vom Modul '%2', nicht '%3'")
                    .With({found->name, found->module, id});
    else if (instance.empty())
        error = Bilingual("the graph has %1 instances of '%2'; name one with --instance",
                          "der Graph hat %1 Instanzen von '%2'; nennen Sie eine mit --instance")
                    .With({std::to_string(count), id});
    else
        error =
            Bilingual("the graph has no instance '%1'", "der Graph hat keine Instanz '%1'").With({instance});
    return nullptr;
}

int WriteInto(const TCBaseModuleEx& module, const std::string& id, const PresetOptions& options,
              const ModuleCatalogue& catalogue) {
    Mistakes mistakes;
    Mistakes ofFile;
    const GraphFile file = GraphFile::Read(options.graph, ofFile);
    std::string error;
    const InstanceEntry* const target = FindTarget(file, id, options.instance, error);
    if (target == nullptr) {
        for (const Mistake& mistake : ofFile.InOrder()) mistakes.Add(mistake.place, mistake.text);
        mistakes.Add({options.graph}, error);
    } else if (WriteSettings(options.graph, target->name, PresetValues(module, *target), catalogue,
                             mistakes)) {
        return EXIT_COMPLETE;
    }
    for (const Mistake& mistake : mistakes.InOrder())
        console::Error(ToText(mistake.place) + ": " + mistake.text);
    console::Say(NOT_CHANGED.With({options.graph}));
    return EXIT_WRONG_INPUT;
}

int Refuse(const std::string& text, int code = EXIT_WRONG_INPUT) {
    console::Error(text);
    return code;
}

bool SetAll(TCBaseModuleEx& module, const std::vector<std::string>& settings) {
    bool right = true;
    for (const std::string& setting : settings) {
        const std::size_t equals = setting.find('=');
        TCString error;
        const bool taken =
            equals != setting.npos &&
            module.SetParameter(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), error);
        if (taken) continue;
        right = false;
        console::Error(equals != setting.npos
                           ? std::string(error)
                           : Bilingual("'%1' is no setting; write PARAMETER=VALUE",
                                       "'%1' ist keine Einstellung; schreiben Sie PARAMETER=WERT")
                                 .With({setting}));
    }
    return right;
}

// Whether that is what a line about a value that was given says. Others may come with the graph; so may
// files, which start at its folder.
bool IsAboutGiven(const TCBaseModuleEx& module, const std::vector<std::string>& settings,
                  const std::string& reason) {
    const std::string subject = reason.substr(0, reason.find(':'));
    const TCModuleParameter* const parameter = module.FindParameter(subject.c_str());
    if (parameter != nullptr &&
        (parameter->kind == TCModuleParameter::FILE || parameter->kind == TCModuleParameter::OUTPUT_FILE))
        return false;
    return std::ranges::any_of(
        settings, [&](const std::string& setting) { return setting.starts_with(subject + "="); });
}

// Whether the module takes the values, as far as they are given.
bool DoValuesFit(TCBaseModuleEx& module, const std::vector<std::string>& settings) {
    bool done = false;
    TCString error;
    const std::string thrown = WhatItThrows([&] { done = module.OnSettingsChanged(error); });
    if (!thrown.empty()) console::Error(thrown);
    bool fit = thrown.empty();
    std::istringstream reasons(done ? std::string() : std::string(error));
    for (std::string reason; std::getline(reasons, reason);) {
        if (!IsAboutGiven(module, settings, reason)) continue;
        console::Error(reason);
        fit = false;
    }
    return fit;
}

int ListAll(const std::string& wanted) {
    const std::vector<PresetName> rows = ListPresets(wanted);
    if (rows.empty()) {
        console::Say(wanted.empty() ? NO_PRESETS.Text() : NO_PRESETS_OF.With({wanted}));
        return EXIT_COMPLETE;
    }
    std::string text;
    for (const PresetName& row : rows) text += row.module + " " + row.name + "\n";
    return console::Print(text) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace

int RunPresetCommand(const ModuleCatalogue& catalogue, const PresetOptions& options) {
    using Action = PresetOptions::Action;
    if (!HasPresetFolder()) return Refuse(WhyNoPresets({}), EXIT_INCOMPLETE);
    if (options.action == Action::List) return ListAll(options.module);
    for (const std::string& name : {options.module, options.name})
        if (const std::string why = WhyNoPresets(name); !why.empty()) return Refuse(why);
    const CatalogueEntry* const entry = catalogue.Find(options.module);
    if (entry == nullptr) return Refuse(catalogue.WhyUnusable(options.module));
    std::string error;
    const ModulePointer created = catalogue.Create(*entry, 0, error);
    auto* const module = dynamic_cast<TCBaseModuleEx*>(created.get());
    if (module == nullptr)
        return Refuse(created == nullptr ? entry->id + ": " + error
                                         : Bilingual("the module '%1' takes no settings",
                                                     "das Modul '%1' nimmt keine Einstellungen an")
                                               .With({entry->id}));
    if (options.action == Action::Load) error = WhyNoPreset(options.module, options.name);
    if (!error.empty()) return Refuse(error);
    if (options.action == Action::Save &&
        (!SetAll(*module, options.settings) || !DoValuesFit(*module, options.settings)))
        return EXIT_WRONG_INPUT;
    const bool done = options.action == Action::Save ? StorePreset(*module, entry->id, options.name, error)
                                                     : LoadPreset(*module, entry->id, options.name, error);
    if (!done) return Refuse(error, EXIT_INCOMPLETE);
    if (options.action == Action::Save) return EXIT_COMPLETE;
    return options.graph.empty() ? PrintSettings(*module) : WriteInto(*module, entry->id, options, catalogue);
}

}  // namespace host
