#include "host/PresetCommand.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "host/Commands.h"
#include "host/Console.h"
#include "host/GraphText.h"
#include "host/SetCommand.h"
#include "sigweave/module/SettingsArchive.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/persistence/ArchiveXml.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"
#include "sigweave/services/NearNames.h"
#include "sigweave/services/PathTokens.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using tc::Bilingual;

// Stored: never change.
constexpr int MODULE_ITEM = 1;
constexpr int SETTINGS_ITEM = 2;

constexpr std::string_view ENDING = ".xml";
constexpr std::size_t LONGEST_NAME = 100;

constexpr Bilingual NO_PRESETS(
    "there are no presets yet; 'sigweave preset save MODULE NAME PARAMETER=VALUE' keeps one",
    "es gibt noch keine Vorlagen; 'sigweave preset save MODUL NAME PARAMETER=WERT' legt eine an");
constexpr Bilingual NO_PRESETS_OF(
    "there are no presets of the module '%1' yet; 'sigweave preset save %1 NAME PARAMETER=VALUE' keeps one",
    "es gibt noch keine Vorlagen des Moduls '%1'; 'sigweave preset save %1 NAME PARAMETER=WERT' legt eine "
    "an");

// A name becomes that of a file.
bool IsName(const std::string& name) {
    constexpr std::string_view OTHERS = "-_. ";
    return !name.empty() && name.size() <= LONGEST_NAME && name.front() != '.' && name.front() != ' ' &&
           std::ranges::all_of(name, [&](char c) {
               const bool isPlain =
                   (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
               return isPlain || static_cast<unsigned char>(c) >= 0x80 || OTHERS.find(c) != OTHERS.npos;
           });
}

// Empty when the user has no data folder.
fs::path PresetFolder() {
    std::string folder = "%CSIDL_LOCAL_APPDATA%";
    tc::ResolvePathTokens(folder, {.create = false});
    return folder.empty() ? fs::path() : fs::path(folder) / "sigweave" / "presets";
}

bool Store(TCBaseModuleEx& module, const std::string& id, const fs::path& path, std::string& error) {
    std::error_code failed;
    fs::create_directories(path.parent_path(), failed);
    if (failed) {
        error = tc::WhyNotWritten(path.string(), failed.message());
        return false;
    }
    tc::ArchiveTree archive;
    TCString name(id.c_str());
    TCString why;
    TCXML document;
    const bool stored = archive.String(MODULE_ITEM, "module", name) &&
                        archive.BeginSubsection(SETTINGS_ITEM, "settings") &&
                        tc::SerializeSettings(archive, module, why);
    if (stored && tc::WriteXmlArchive(archive, document) && document.Save(path.c_str())) return true;
    error = tc::WhyNotWritten(path.string(), std::string(stored ? document.GetError() : why));
    return false;
}

bool LoadInto(TCBaseModuleEx& module, const std::string& id, const fs::path& path, std::string& error) {
    TCXML document;
    tc::ArchiveTree archive;
    TCString name;
    TCString why;
    const bool isRead = document.Load(path.c_str()) && tc::ReadXmlArchive(document, archive);
    if (!isRead) why = document.GetError();
    const bool fits = isRead && archive.String(MODULE_ITEM, "module", name) && name == id.c_str() &&
                      archive.BeginSubsection(SETTINGS_ITEM, "settings");
    if (isRead && !fits)
        why = Bilingual("it is no preset of the module '%1'", "es ist keine Vorlage des Moduls '%1'")
                  .With({id})
                  .c_str();
    if (fits && tc::SerializeSettings(archive, module, why)) return true;
    error = path.string() + ": " + std::string(why);
    return false;
}

// MODULE NAME, in order, of one module or, for an empty one, of all.
std::vector<std::pair<std::string, std::string>> FindPresets(const fs::path& folder,
                                                             const std::string& wanted) {
    std::vector<std::pair<std::string, std::string>> found;
    std::error_code failed;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, failed);
    for (; entry != fs::end(entry) && !failed; entry.increment(failed)) {
        const std::string module = entry->path().parent_path().filename();
        if (entry->path().extension() == ENDING && (wanted.empty() || module == wanted))
            found.emplace_back(module, entry->path().stem().string());
    }
    std::ranges::sort(found);
    return found;
}

// Empty when there is one of that name.
std::string WhyNoPreset(const fs::path& folder, const std::string& module, const std::string& name) {
    const auto all = FindPresets(folder, module);
    if (all.empty()) return NO_PRESETS_OF.With({module});
    CStringArray names;
    for (const auto& [of, known] : all) names.push_back(known);
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

// All that the preset says: what is as by default gets a line only where the graph has another value.
SettingValues ValuesFor(const TCBaseModuleEx& module, const InstanceEntry& target) {
    SettingValues values;
    for (const TCModuleParameter& parameter : module.GetParameters()) {
        const std::string value(module.GetParameter(parameter.name));
        const auto old = std::ranges::find(target.settings, std::string(parameter.name), &Setting::name);
        const bool isUsual =
            parameter.defaultValue != nullptr ? value == parameter.defaultValue : value.empty();
        const bool isNeeded = old != target.settings.end() ? old->value != value : !isUsual;
        const bool isGiven = parameter.defaultValue != nullptr || !value.empty();
        if (isNeeded && isGiven && !parameter.secret) values.emplace_back(parameter.name, value);
    }
    return values;
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
    } else if (WriteSettings(options.graph, target->name, ValuesFor(module, *target), catalogue, mistakes)) {
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

int ListPresets(const fs::path& folder, const std::string& wanted) {
    std::string text;
    for (const auto& [module, name] : FindPresets(folder, wanted)) text += module + " " + name + "\n";
    if (text.empty()) {
        console::Say(wanted.empty() ? NO_PRESETS.Text() : NO_PRESETS_OF.With({wanted}));
        return EXIT_COMPLETE;
    }
    return console::Print(text) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace

int RunPresetCommand(const ModuleCatalogue& catalogue, const PresetOptions& options) {
    using Action = PresetOptions::Action;
    const fs::path folder = PresetFolder();
    if (folder.empty())
        return Refuse(Bilingual("there is no folder for presets; set HOME or XDG_DATA_HOME",
                                "es gibt keinen Ordner für Vorlagen; setzen Sie HOME oder XDG_DATA_HOME")
                          .Text(),
                      EXIT_INCOMPLETE);
    if (options.action == Action::List) return ListPresets(folder, options.module);
    for (const std::string& name : {options.module, options.name})
        if (!IsName(name))
            return Refuse(
                Bilingual("'%1' is no name for a preset; expected up to 100 letters, digits, blanks, "
                          "'-', '_' and '.', not beginning with a blank or '.'",
                          "'%1' ist kein Name für eine Vorlage; erwartet werden bis zu 100 "
                          "Buchstaben, Ziffern, Leerzeichen, '-', '_' und '.', nicht mit "
                          "Leerzeichen oder '.' am Anfang")
                    .With({name}));
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
    if (options.action == Action::Load) error = WhyNoPreset(folder, options.module, options.name);
    if (!error.empty()) return Refuse(error);
    const fs::path path = folder / options.module / (options.name + std::string(ENDING));
    if (options.action == Action::Save && !SetAll(*module, options.settings)) return EXIT_WRONG_INPUT;
    const bool done = options.action == Action::Save ? Store(*module, entry->id, path, error)
                                                     : LoadInto(*module, entry->id, path, error);
    if (!done) return Refuse(error, EXIT_INCOMPLETE);
    if (options.action == Action::Save) return EXIT_COMPLETE;
    return options.graph.empty() ? PrintSettings(*module) : WriteInto(*module, entry->id, options, catalogue);
}

}  // namespace host
