#pragma once

#include <string>

namespace host::check {

// What one check found.
struct Finding {
    // WARNING: passed, but something is most likely not meant so.
    enum Status { PASSED, FAILED, NOT_APPLICABLE, WARNING };

    Status status = PASSED;
    std::string reason;     // of PASSED: what was looked at
    std::string remedy;     // of the others
    std::string step{};     // what the module was doing; empty when it does not matter
    std::string seed{};     // of the random calls that failed
    bool neverRan = false;  // NOT_APPLICABLE, since with the settings it has it cannot begin a run
    bool skipped = false;   // NOT_APPLICABLE, since a check that it needs failed or was skipped
};

// "passed", "failed", "not applicable" or "warning", in every language: for the JSON report.
const char* ToText(Finding::Status status);

// Checks end by throwing what they found, or by returning.
Finding Passed(const std::string& what);
Finding Warned(const std::string& reason, const std::string& remedy);
[[noreturn]] void Fail(const std::string& reason, const std::string& remedy);
[[noreturn]] void DoesNotApply(const std::string& reason, const std::string& remedy = {});

}  // namespace host::check
