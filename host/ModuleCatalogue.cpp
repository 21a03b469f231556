#include "host/ModuleCatalogue.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/Guard.h"
#include "host/ModuleLibrary.h"
#include "sigweave/platform/Process.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace host {
namespace {

using tc::Bilingual;

std::string defaultFolder;

std::string DefaultFolder() {
    if (!defaultFolder.empty()) return defaultFolder;
    return (std::filesystem::path(TCGetProgramFolder()) / "../lib/sigweave/modules")
        .lexically_normal()
        .string();
}

// A file in Python is run when it is opened, so one that says nothing of modules is left alone: it may be any
// script.
bool MayHaveModules(const std::filesystem::path& file) {
    if (file.extension() != ".py") return file.extension() == ".so";
    std::ifstream script(file);
    const std::string text{std::istreambuf_iterator<char>(script), {}};
    return text.find("sigweave") != std::string::npos && text.find("Module") != std::string::npos;
}

std::vector<std::string> LibraryFiles(const std::string& folder, std::error_code& failed) {
    std::vector<std::string> files;
    for (std::filesystem::directory_iterator entry(folder, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        std::error_code broken;
        if (entry->is_directory(broken) || !MayHaveModules(entry->path())) continue;
        const auto file = std::filesystem::canonical(entry->path(), broken);
        files.push_back((broken ? entry->path() : file).string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

std::vector<std::string> ModuleCatalogue::SplitPath(const std::string& path) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(':', begin), path.size());
        const std::string part = path.substr(begin, end - begin);
        parts.push_back(part.empty() ? DefaultFolder() : part);
        begin = end + 1;
    }
    return parts;
}

void ModuleCatalogue::SetDefaultFolder(const std::string& folder) {
    defaultFolder = folder;
}

std::vector<std::string> ModuleCatalogue::FoldersOf(const std::vector<std::string>& paths) {
    std::string path;
    for (const std::string& part : paths) path += (path.empty() ? "" : ":") + part;
    const char* environment = std::getenv("SIGWEAVE_MODULE_PATH");
    if (paths.empty() && environment != nullptr) path = environment;
    return SplitPath(path);
}

ModuleCatalogue::ModuleCatalogue(const std::vector<std::string>& searched) : folders(searched) {
    for (const std::string& folder : folders) Search(folder);
    for (const auto& [id, reason] : duplicates) problems.push_back(WhyUnusable(id));
}

ModuleCatalogue::~ModuleCatalogue() = default;

void ModuleCatalogue::Search(const std::string& folder) {
    std::error_code failed;
    const std::vector<std::string> files = LibraryFiles(folder, failed);
    if (failed)
        problems.push_back(Bilingual("%1: the module path names this folder, but it cannot be read (%2); "
                                     "correct --module-path or SIGWEAVE_MODULE_PATH",
                                     "%1: der Modulpfad nennt diesen Ordner, er ist aber nicht lesbar (%2); "
                                     "berichtigen Sie --module-path oder SIGWEAVE_MODULE_PATH")
                               .With({folder, failed.message()}));
    for (const std::string& file : files) Load(file);
}

void ModuleCatalogue::Load(const std::string& file) {
    const auto isLoaded = [&](const auto& library) { return library->GetFile() == file; };
    if (std::any_of(libraries.begin(), libraries.end(), isLoaded)) return;
    std::string error;
    std::unique_ptr<ModuleLibrary> library = ModuleLibrary::Open(file, error);
    if (library == nullptr) {
        problems.push_back(file + ": " + error);
        return;
    }
    AddEntries(*library);
    libraries.push_back(std::move(library));
}

void ModuleCatalogue::AddEntries(const ModuleLibrary& library) {
    for (std::size_t kind = 0; kind < library.GetIds().size(); ++kind)
        AddEntry({library.GetIds()[kind], &library, library.FirstKind() + static_cast<int>(kind)});
}

void ModuleCatalogue::AddEntry(const CatalogueEntry& entry) {
    const auto [known, isNew] = entries.emplace(entry.id, entry);
    if (isNew && !duplicates.contains(entry.id)) return;
    std::string& reason = duplicates[entry.id];
    if (reason.empty())
        reason = Bilingual("the module id '%1' is offered by %2", "die Modulkennung '%1' bieten an: %2")
                     .With({entry.id, FileOf(known->second)});
    reason += Bilingual(" and by %1", " und %1").With({FileOf(entry)});
    entries.erase(known);
}

std::string ModuleCatalogue::WhyUnusable(const std::string& id) const {
    const auto found = duplicates.find(id);
    if (found != duplicates.end())
        return Bilingual("%1; take one of them off the module path",
                         "%1; nehmen Sie eine davon aus dem Modulpfad")
            .With({found->second});
    CStringArray ids;
    for (const auto& [known, entry] : entries) ids.push_back(known);
    std::string searched;
    for (const std::string& folder : folders) searched += (searched.empty() ? "" : ", ") + folder;
    static constexpr Bilingual OWN(
        "; if it is one of your own, name the folder of its library with --module-path",
        "; ist es ein eigenes, nennen Sie den Ordner seiner Bibliothek mit "
        "--module-path");
    const std::string text = ids.empty()
                                 ? Bilingual(
                                       "there is no module '%1' in %2, nor any other; name the folder of its "
                                       "library with --module-path",
                                       "es gibt weder das Modul '%1' noch ein anderes in %2; nennen Sie den "
                                       "Ordner seiner Bibliothek mit --module-path")
                                       .With({id, searched})
                                 : Bilingual("there is no module '%1'; %2", "es gibt kein Modul '%1'; %2")
                                           .With({id, tc::SuggestNames(id, ids)}) +
                                       (tc::NearestNames(id, ids).empty() ? OWN.Text() : "");
    const bool hasDefault = std::find(folders.begin(), folders.end(), DefaultFolder()) != folders.end();
    return hasDefault ? text
                      : Bilingual(
                            "%1 (the module path leaves out the modules that came with the program; a colon "
                            "at its end adds them)",
                            "%1 (im Modulpfad fehlen die mitgelieferten Module; ein Doppelpunkt an seinem "
                            "Ende nimmt sie hinzu)")
                            .With({text});
}

const CatalogueEntry* ModuleCatalogue::Find(const std::string& id) const {
    const auto found = entries.find(id);
    return found != entries.end() ? &found->second : nullptr;
}

ModulePointer ModuleCatalogue::Create(const CatalogueEntry& entry, int instance, std::string& error) const {
    ModulePointer module(nullptr, {entry.library->destroy, entry.kind});
    error = WhatItThrows([&] { module.reset(entry.library->create(entry.kind, instance)); });
    if (module == nullptr && error.empty())
        error = Bilingual("its library %1 did not create it", "die Bibliothek %1 hat es nicht erzeugt")
                    .With({FileOf(entry)});
    return module;
}

const std::string& ModuleCatalogue::FileOf(const CatalogueEntry& entry) {
    return entry.library->GetFile();
}

HINSTANCE ModuleCatalogue::HandleOf(const CatalogueEntry& entry) {
    return entry.library->GetHandle();
}

}  // namespace host
