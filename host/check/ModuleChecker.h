#pragma once

#include <string>
#include <vector>

#include "host/check/CheckSubject.h"
#include "host/check/Checks.h"
#include "host/check/Finding.h"

namespace host::check {

struct CheckResult {
    std::string module;  // empty: of the library as a whole
    std::string check;
    Finding finding;
};

struct CheckReport {
    std::string library;
    std::uint64_t seed = 1;
    double seconds = 0.0;
    std::vector<CheckResult> results;
    std::vector<std::string> calls;  // of a reproduced sequence
    tc::Confinement confinement;     // of the library's code

    int Count(Finding::Status status) const;
};

// Puts a module library through all checks. Each check has a process of its own with limits of time and
// memory, so the checker outlives whatever the library does, and is confined as far as the system can: all
// but a temporary folder is read-only for it. One thread.
class ModuleChecker {
 public:
    explicit ModuleChecker(const CheckOptions& checkOptions);

    // False when the library cannot be read, the options name what it does not have, or no check can be
    // started; `error` says what. Warns when the system cannot keep the library's code from the user's
    // files.
    bool Prepare(std::string& error);
    // After Prepare.
    CheckReport Run();

 private:
    struct Kind {
        std::string id;
        std::vector<std::string> parameters;
    };

    bool FindConfinement(std::string& error);
    tc::ChildPlan Plan() const;
    tc::ChildEnd RunInChild(const std::function<void(const tc::ChildReport&, tc::ChildPlace&)>& work,
                            const std::function<void(char, std::string_view)>& listen) const;
    bool Look(std::string& error);
    bool ReadSettings(std::string& error);
    bool ChooseModule(std::string& error);
    void CheckModule(const std::string& id);
    void Add(const std::string& module, const NamedCheck& check);
    Finding Do(const std::string& module, const NamedCheck& check);
    // The check that makes this one pointless; empty when none does.
    std::string WhatHinders(const std::string& module, const NamedCheck& check) const;
    void JudgeStandardOutput(const std::string& module);

    CheckOptions options;
    Settings settings;
    std::vector<Kind> kinds;
    CheckReport report;
    std::string printed;    // by the module's checks so far
    std::string printedIn;  // the first check that printed
};

}  // namespace host::check
