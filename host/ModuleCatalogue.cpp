#include "host/ModuleCatalogue.h"

#include <algorithm>
#include <filesystem>

#include "host/Guard.h"
#include "host/ModuleLibrary.h"
#include "sigweave/foundation/NearNames.h"
#include "sigweave/platform/Process.h"

namespace host {
namespace {

std::string DefaultFolder() {
    return (std::filesystem::path(TCGetProgramFolder()) / "../lib/sigweave/modules")
        .lexically_normal()
        .string();
}

std::vector<std::string> LibraryFiles(const std::string& folder, std::error_code& failed) {
    std::vector<std::string> files;
    for (std::filesystem::directory_iterator entry(folder, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        std::error_code broken;
        if (entry->path().extension() != ".so" || entry->is_directory(broken)) continue;
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

ModuleCatalogue::ModuleCatalogue(const std::vector<std::string>& searched) : folders(searched) {
    for (const std::string& folder : folders) Search(folder);
    for (const auto& [id, reason] : duplicates) problems.push_back(WhyUnusable(id));
}

ModuleCatalogue::~ModuleCatalogue() = default;

void ModuleCatalogue::Search(const std::string& folder) {
    std::error_code failed;
    const std::vector<std::string> files = LibraryFiles(folder, failed);
    if (failed)
        problems.push_back(folder + ": the module path names this folder, but it cannot be read (" +
                           failed.message() + "); correct --module-path or SIGWEAVE_MODULE_PATH");
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
        AddEntry({library.GetIds()[kind], &library, static_cast<int>(kind)});
}

void ModuleCatalogue::AddEntry(const CatalogueEntry& entry) {
    const auto [known, isNew] = entries.emplace(entry.id, entry);
    if (isNew && !duplicates.contains(entry.id)) return;
    std::string& reason = duplicates[entry.id];
    if (reason.empty()) reason = "the module id '" + entry.id + "' is offered by " + FileOf(known->second);
    reason += " and by " + FileOf(entry);
    entries.erase(known);
}

std::string ModuleCatalogue::WhyUnusable(const std::string& id) const {
    const auto found = duplicates.find(id);
    if (found != duplicates.end()) return found->second + "; take one of them off the module path";
    CStringArray ids;
    for (const auto& [known, entry] : entries) ids.push_back(known);
    std::string text = "there is no module '" + id + "'";
    if (ids.empty()) {
        for (std::size_t index = 0; index < folders.size(); ++index)
            text += (index == 0 ? " in " : ", ") + folders[index];
        text += ", nor any other; name the folder of its library with --module-path";
    } else {
        text += "; " + std::string(tc::SuggestNames(id, ids));
    }
    const bool hasDefault = std::find(folders.begin(), folders.end(), DefaultFolder()) != folders.end();
    return hasDefault ? text
                      : text +
                            " (the module path leaves out the modules that came with the program; a colon "
                            "at its end adds them)";
}

const CatalogueEntry* ModuleCatalogue::Find(const std::string& id) const {
    const auto found = entries.find(id);
    return found != entries.end() ? &found->second : nullptr;
}

ModulePointer ModuleCatalogue::Create(const CatalogueEntry& entry, int instance, std::string& error) const {
    ModulePointer module(nullptr, {entry.library->destroy, entry.kind});
    error = WhatItThrows([&] { module.reset(entry.library->create(entry.kind, instance)); });
    if (module == nullptr && error.empty()) error = "its library " + FileOf(entry) + " did not create it";
    return module;
}

const std::string& ModuleCatalogue::FileOf(const CatalogueEntry& entry) {
    return entry.library->GetFile();
}

HINSTANCE ModuleCatalogue::HandleOf(const CatalogueEntry& entry) {
    return entry.library->GetHandle();
}

}  // namespace host
