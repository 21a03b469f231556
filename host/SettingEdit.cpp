#include "host/SettingEdit.h"

#include <algorithm>
#include <set>

#include "host/GraphText.h"
#include "host/TextLines.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr Bilingual NO_INSTANCE("the graph has no instance '%1'; %2", "der Graph hat keine Instanz '%1'; %2");
constexpr Bilingual NO_MODULE("the module of an instance can only be chosen in the graph file",
                              "das Modul einer Instanz legt nur die Graphdatei fest");
constexpr Bilingual TWICE("%1: is given twice; remove one of the two",
                          "%1: ist zweimal angegeben; entfernen Sie eins von beiden");
constexpr Bilingual NO_TEXT(
    "is an XML document, whose settings cannot be changed line by line; write it as parameter text with "
    "'sigweave convert'",
    "ist ein XML-Dokument, dessen Einstellungen sich nicht zeilenweise ändern lassen; schreiben Sie es mit "
    "'sigweave convert' als Parametertext");
// The value may be secret.
constexpr Bilingual NOT_EXPRESSIBLE("%1: cannot be written in a graph file with this value",
                                    "%1: lässt sich in einer Graphdatei mit diesem Wert nicht schreiben");

// What is left of the value, and the blanks around it, stay.
void ReplaceValue(std::string& line, const std::string& written) {
    const std::string_view value = SplitTextSetting(line)->value;
    const std::size_t begin =
        value.empty() ? line.size() : static_cast<std::size_t>(value.data() - line.data());
    line.replace(begin, value.size(), written);
}

std::string WhyNotEditable(const GraphFile& file, const InstanceEntry* entry, const std::string& instance,
                           const SettingValues& settings) {
    CStringArray names;
    for (const InstanceEntry& other : file.GetInstances()) names.push_back(other.name);
    if (entry == nullptr) return NO_INSTANCE.With({instance, tc::SuggestNames(instance, names)});
    if (file.GetForm() != GraphForm::Text) return NO_TEXT.Text();
    std::set<std::string> seen;
    for (const auto& [name, value] : settings) {
        if (name == "module") return NO_MODULE.Text();
        if (!seen.insert(name).second) return TWICE.With({name});
    }
    return "";
}

const Setting* FindSetting(const InstanceEntry& entry, const std::string& name) {
    const auto found = std::ranges::find(entry.settings, name, &Setting::name);
    return found != entry.settings.end() ? &*found : nullptr;
}

// About the first setting that would not read back as it is wanted; empty when all do.
std::string WhyNotExpressible(const std::string& text, const std::string& instance, std::size_t settingCount,
                              const SettingValues& settings) {
    Mistakes ignored;
    const GraphFile written = GraphFile::Parse("", text, ignored);
    const InstanceEntry* const entry = FindInstance(written, instance);
    for (const auto& [name, value] : settings) {
        const Setting* const setting = entry != nullptr ? FindSetting(*entry, name) : nullptr;
        const bool isRight = setting != nullptr && setting->value == value;
        if (!isRight || entry->settings.size() != settingCount) return NOT_EXPRESSIBLE.With({name});
    }
    return "";
}

}  // namespace

const InstanceEntry* FindInstance(const GraphFile& file, const std::string& name) {
    const auto found = std::ranges::find(file.GetInstances(), name, &InstanceEntry::name);
    return found != file.GetInstances().end() ? &*found : nullptr;
}

bool EditSettings(const GraphFile& file, const std::string& instance, const SettingValues& settings,
                  std::string& text, std::string& error) {
    const InstanceEntry* const entry = FindInstance(file, instance);
    error = WhyNotEditable(file, entry, instance, settings);
    if (!error.empty()) return false;
    std::vector<EditedLine> lines = SplitLines(text);
    int last = std::max(entry->place.line, entry->modulePlace.line);
    for (const Setting& setting : entry->settings) last = std::max(last, setting.place.line);
    std::size_t added = 0;
    const auto lineAt = [&](int line) -> EditedLine& { return lines[static_cast<std::size_t>(line - 1)]; };
    for (const auto& [name, value] : settings) {
        const std::string written = WriteTextSetting(name, value);
        const Setting* const old = FindSetting(*entry, name);
        if (old == nullptr) {
            EditedLine& before = lineAt(last + static_cast<int>(added));
            const std::string end = before.end;
            if (end.empty()) before.end = lines.front().end.empty() ? "\n" : lines.front().end;
            lines.insert(lines.begin() + last + static_cast<std::ptrdiff_t>(added++), {written, end});
        } else if (old->value != value) {
            ReplaceValue(lineAt(old->place.line).text, written.substr(name.size() + 1));
        }
    }
    std::string edited = JoinLines(lines);
    error = WhyNotExpressible(edited, instance, entry->settings.size() + added, settings);
    if (!error.empty()) return false;
    text = std::move(edited);
    return true;
}

}  // namespace host
