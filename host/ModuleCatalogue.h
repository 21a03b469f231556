#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sigweave/module/TCBaseModule.h"

namespace host {

class ModuleLibrary;

// Deletes a module through the library that created it.
struct ModuleDeleter {
    void (*destroy)(int kind, TCBaseModule* module) = nullptr;
    int kind = 0;
    void operator()(TCBaseModule* module) const { destroy(kind, module); }
};
using ModulePointer = std::unique_ptr<TCBaseModule, ModuleDeleter>;

// One kind of module that a library offers.
struct CatalogueEntry {
    std::string id;
    const ModuleLibrary* library;
    int kind;
};

// The module libraries of some folders: each is opened once, its entry points and versions are checked before
// any module is created, and it stays open as long as the catalogue. What cannot be used is a problem of that
// file and leaves the others alone. Must outlive every module that it created.
class ModuleCatalogue {
 public:
    // Every file in `folders` whose name ends in ".so" or in ".py", in the order of the folders
    // and then of the names.
    explicit ModuleCatalogue(const std::vector<std::string>& folders);
    ~ModuleCatalogue();
    ModuleCatalogue(const ModuleCatalogue&) = delete;
    ModuleCatalogue& operator=(const ModuleCatalogue&) = delete;

    // The folders of a module path: entries separated by colons, where an empty one means the folder of
    // the modules that came with the program.
    static std::vector<std::string> SplitPath(const std::string& path);
    // The folder of the modules that came along; without this it is found from that of the program. A program
    // that is elsewhere names it, before it opens any.
    static void SetDefaultFolder(const std::string& folder);
    // Those of several module paths; of none: of SIGWEAVE_MODULE_PATH, and without that variable the modules
    // that came with the program.
    static std::vector<std::string> FoldersOf(const std::vector<std::string>& paths);

    // In the order of the ids. An id that two libraries offer is not among them.
    const std::map<std::string, CatalogueEntry>& Entries() const { return entries; }
    // Null when there is none.
    const CatalogueEntry* Find(const std::string& id) const;
    // Why `Find` does not find it, with the remedy.
    std::string WhyUnusable(const std::string& id) const;
    // Null, with `error`, when the library did not make one.
    ModulePointer Create(const CatalogueEntry& entry, int instance, std::string& error) const;
    static const std::string& FileOf(const CatalogueEntry& entry);
    static HINSTANCE HandleOf(const CatalogueEntry& entry);

    const std::vector<std::string>& Folders() const { return folders; }
    // What is wrong with files and folders, each with the file, the reason and the remedy.
    const std::vector<std::string>& Problems() const { return problems; }

 private:
    void Search(const std::string& folder);
    void Load(const std::string& file);
    void AddEntries(const ModuleLibrary& library);
    void AddEntry(const CatalogueEntry& entry);

    std::vector<std::string> folders;
    std::vector<std::unique_ptr<ModuleLibrary>> libraries;
    std::map<std::string, CatalogueEntry> entries;
    std::map<std::string, std::string> duplicates;
    std::vector<std::string> problems;
};

}  // namespace host
