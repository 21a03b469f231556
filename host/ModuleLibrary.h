#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sigweave/module/TCBaseModule.h"

namespace host {

// One opened module library whose entry points are there and whose versions fit.
class ModuleLibrary {
 public:
    // What is looked at, in this order.
    enum class Step { Load, EntryPoints, Versions, Ids, Done };

    // Null when the file cannot be used; `error` then gives the reason and the remedy, and `failed` (may be
    // null) the step. No module is created.
    static std::unique_ptr<ModuleLibrary> Open(const std::string& file, std::string& error,
                                               Step* failed = nullptr);
    ~ModuleLibrary();
    ModuleLibrary(const ModuleLibrary&) = delete;
    ModuleLibrary& operator=(const ModuleLibrary&) = delete;

    const std::string& GetFile() const { return file; }
    HINSTANCE GetHandle() const { return handle; }
    // The ids of its kinds, in the order of their numbers, which begin with the first.
    const std::vector<std::string>& GetIds() const { return ids; }
    int FirstKind() const { return first; }

    // Modules in Python: a file NAME.py is opened through a library that brings the interpreter, and is
    // loaded only then. By default that is beside the modules that came with the program; a program that is
    // elsewhere names it, before it opens any.
    static void SetPythonLoader(const std::string& loaderFile);

    using CreateFunction = TCBaseModule* (*)(int kind, int instance);
    using DeleteFunction = void (*)(int kind, TCBaseModule* module);
    CreateFunction create = nullptr;
    DeleteFunction destroy = nullptr;

 private:
    ModuleLibrary(const std::string& libraryFile, HINSTANCE library) : file(libraryFile), handle(library) {}

    // Done, or the first step that failed, with the reason.
    Step Prepare(std::string& error);
    bool FindEntryPoints(std::string& error);
    std::string WhyVersionsDiffer() const;
    bool ReadIds(std::string& error);
    static std::unique_ptr<ModuleLibrary> OpenPython(const std::string& file, std::string& error, Step& step);

    std::string file;
    HINSTANCE handle;
    int (*count)() = nullptr;
    const char* (*id)(int kind) = nullptr;
    std::vector<std::string> ids;
    int first = 0;
};

}  // namespace host
