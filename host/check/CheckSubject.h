#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/ModuleCatalogue.h"
#include "host/ModuleLibrary.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/platform/ChildProcess.h"

namespace host::check {

struct CheckOptions {
    std::string library;
    std::string module;                 // the id of the one to check; empty: all
    std::vector<std::string> settings;  // PARAMETER=VALUE
    std::uint64_t seed = 1;             // of the first sequence of random calls
    bool reproduce = false;             // only the sequence of that seed
    double timeLimit = 20.0;            // seconds, of each check
    bool json = false;
    std::string folder;  // where relative paths of settings begin
};

using Settings = std::vector<std::pair<std::string, std::string>>;

// What a check looks at: a library, and of most checks one kind of module in it. Lives in the child process
// that does the check, and reports to the parent where the check is, so that it is known when the child dies.
class CheckSubject {
 public:
    CheckSubject(const CheckOptions& checkOptions, const Settings& checkSettings, std::string moduleId,
                 const tc::ChildReport& childReport, tc::ChildPlace& childPlace)
        : options(checkOptions),
          settings(checkSettings),
          id(std::move(moduleId)),
          report(childReport),
          place(childPlace) {}

    static constexpr char TELLS_SCENE = 'p';
    static constexpr char TELLS_CALL = 'c';
    static constexpr char TELLS_SEED = 'r';

    // "the second run", and then each call in it: "Execute".
    void Scene(const std::string& text) const { report.Tell(TELLS_SCENE, text); }
    void Call(const char* name) const { report.Tell(TELLS_CALL, name); }
    void Seed(std::uint64_t seed) const { report.Tell(TELLS_SEED, std::to_string(seed)); }

    const CheckOptions& Options() const { return options; }
    // File names are absolute where the parameter names an input.
    const Settings& GivenSettings() const { return settings; }
    const std::string& Id() const { return id; }
    // Goes on in an empty folder, as each run does. Throws a finding when the module left the old one, or did
    // something to the standard streams; nothing is taken away.
    void EnterFreshFolder();
    // Throws that finding alone.
    void CheckPlace() const;
    // Opened at the first call; throws a finding when it cannot be used.
    const ModuleLibrary& Library();
    int Kind();
    // A module of the kind; throws a finding when there is none.
    ModulePointer Create(int instance);

 private:
    void Greet(TCBaseModule& module);

    const CheckOptions& options;
    const Settings& settings;
    std::string id;
    const tc::ChildReport& report;
    tc::ChildPlace& place;
    std::unique_ptr<ModuleLibrary> library;
};

}  // namespace host::check
