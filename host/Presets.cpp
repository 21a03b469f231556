#include "host/Presets.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "sigweave/module/SettingsArchive.h"
#include "sigweave/persistence/ArchiveXml.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"
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

fs::path PathOf(const std::string& id, const std::string& name) {
    return PresetFolder() / id / (name + std::string(ENDING));
}

}  // namespace

bool HasPresetFolder() {
    return !PresetFolder().empty();
}

std::string WhyNoPresets(const std::string& name) {
    if (!HasPresetFolder())
        return Bilingual("there is no folder for presets; set HOME or XDG_DATA_HOME",
                         "es gibt keinen Ordner für Vorlagen; setzen Sie HOME oder XDG_DATA_HOME")
            .Text();
    if (IsName(name)) return {};
    return Bilingual(
               "'%1' is no name for a preset; expected up to 100 letters, digits, blanks, "
               "'-', '_' and '.', not beginning with a blank or '.'",
               "'%1' ist kein Name für eine Vorlage; erwartet werden bis zu 100 "
               "Buchstaben, Ziffern, Leerzeichen, '-', '_' und '.', nicht mit "
               "Leerzeichen oder '.' am Anfang")
        .With({name});
}

std::vector<PresetName> ListPresets(const std::string& wanted) {
    std::vector<PresetName> found;
    std::error_code failed;
    fs::recursive_directory_iterator entry(PresetFolder(), fs::directory_options::skip_permission_denied,
                                           failed);
    for (; entry != fs::end(entry) && !failed; entry.increment(failed)) {
        const std::string module = entry->path().parent_path().filename();
        if (entry->path().extension() == ENDING && (wanted.empty() || module == wanted))
            found.push_back({module, entry->path().stem().string()});
    }
    std::ranges::sort(found, {}, [](const PresetName& preset) { return preset.module + " " + preset.name; });
    return found;
}

bool StorePreset(TCBaseModuleEx& module, const std::string& id, const std::string& presetName,
                 std::string& error) {
    const fs::path path = PathOf(id, presetName);
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

bool LoadPreset(TCBaseModuleEx& module, const std::string& id, const std::string& presetName,
                std::string& error) {
    const fs::path path = PathOf(id, presetName);
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

SettingValues PresetValues(const TCBaseModuleEx& module, const InstanceEntry& target) {
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

}  // namespace host
