#include "host/SetCommand.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <set>

#include "host/Console.h"
#include "host/Graph.h"
#include "host/TerminalCommand.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

using tc::Bilingual;

Mistakes CheckText(const std::string& path, const std::string& text, const ModuleCatalogue& catalogue) {
    Mistakes mistakes;
    const GraphFile file = GraphFile::Parse(path, text, mistakes);
    HostWindow window;
    const Graph graph(file, catalogue, window, mistakes);
    return mistakes;
}

// Those that the graph has with its new text alone, and those about the new settings.
void AddNewMistakes(const std::string& instance, const SettingValues& settings, const Mistakes& before,
                    const Mistakes& after, Mistakes& mistakes) {
    std::multiset<std::string> known;
    for (const Mistake& mistake : before.InOrder()) known.insert(mistake.text);
    for (const Mistake& mistake : after.InOrder()) {
        const auto old = known.find(mistake.text);
        const bool isAboutNew = std::ranges::any_of(settings, [&](const auto& setting) {
            return mistake.text.starts_with(instance + "." + setting.first + ":");
        });
        if (old == known.end() || isAboutNew) mistakes.Add(mistake.place, mistake.text);
        if (old != known.end()) known.erase(old);
    }
}

bool WriteFile(const std::string& path, const std::string& text, Mistakes& mistakes) {
    errno = 0;
    const auto file = tc::ReplacedFile::Open(path);
    if (file != nullptr && std::fwrite(text.data(), 1, text.size(), file->Get()) == text.size() &&
        file->Commit())
        return true;
    mistakes.Add({path}, tc::WhyNotWritten(path, errno));
    return false;
}

bool ReadSettings(const std::vector<std::string>& arguments, SettingValues& settings, Mistakes& mistakes) {
    for (const std::string& argument : arguments) {
        const std::size_t split = argument.find('=');
        if (split == std::string::npos || split == 0)
            mistakes.Add({argument}, Bilingual("must be NAME=VALUE, for example block=512",
                                               "muss NAME=WERT lauten, zum Beispiel block=512")
                                         .Text());
        else
            settings.emplace_back(argument.substr(0, split), argument.substr(split + 1));
    }
    return mistakes.IsEmpty();
}

}  // namespace

bool WriteSettings(const std::string& graph, const std::string& instance, const SettingValues& settings,
                   const ModuleCatalogue& catalogue, Mistakes& mistakes) {
    const std::string before = GraphFile::ReadText(graph, mistakes);
    if (!mistakes.IsEmpty()) return false;
    Mistakes ofFile;
    const GraphFile file = GraphFile::Parse(graph, before, ofFile);
    std::string after = before;
    std::string error;
    if (!EditSettings(file, instance, settings, after, error)) {
        for (const Mistake& mistake : ofFile.InOrder()) mistakes.Add(mistake.place, mistake.text);
        mistakes.Add({graph}, error);
        return false;
    }
    const Mistakes found = CheckText(graph, after, catalogue);
    if (!found.IsEmpty())
        AddNewMistakes(instance, settings, CheckText(graph, before, catalogue), found, mistakes);
    if (!mistakes.IsEmpty()) return false;
    return after == before || WriteFile(graph, after, mistakes);
}

int SetInGraph(const SetOptions& set, const CommandOptions& options) {
    if (set.settings.empty()) return ShowTerminalForm(set, options);
    Mistakes mistakes;
    SettingValues settings;
    if (ReadSettings(set.settings, settings, mistakes)) {
        const ModuleCatalogue catalogue = OpenCatalogue(options);
        if (WriteSettings(set.graph, set.instance, settings, catalogue, mistakes)) return EXIT_COMPLETE;
    }
    for (const Mistake& mistake : mistakes.InOrder())
        console::Error(ToText(mistake.place) + ": " + mistake.text);
    console::Say(NOT_CHANGED.With({set.graph}));
    return EXIT_WRONG_INPUT;
}

}  // namespace host
