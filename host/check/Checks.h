#pragma once

#include <array>
#include <span>

#include "host/check/CheckSubject.h"
#include "host/check/Finding.h"

namespace host::check {

// One named check. It runs in a process of its own, so whatever the module does is seen from outside.
struct NamedCheck {
    const char* name;                  // for reports, the same in every language (never change, only append)
    std::array<const char*, 4> needs;  // checks without which this one says nothing new
    bool ofLibrary;                    // else of each module
    Finding (*run)(CheckSubject&);
};

// In the order in which they are done.
std::span<const NamedCheck> AllChecks();

// --- Of the library
Finding CheckEntryPoints(CheckSubject& subject);
Finding CheckVersions(CheckSubject& subject);
Finding CheckIds(CheckSubject& subject);

// --- Of a module at rest
Finding CheckCreation(CheckSubject& subject);
Finding CheckPorts(CheckSubject& subject);
Finding CheckParameters(CheckSubject& subject);

// --- Of a module in runs
Finding CheckRun(CheckSubject& subject);
Finding CheckInitDone(CheckSubject& subject);
Finding CheckEqualRuns(CheckSubject& subject);
Finding CheckLeaks(CheckSubject& subject);
Finding CheckEmptyBlocks(CheckSubject& subject);
Finding CheckHugeBlocks(CheckSubject& subject);
Finding CheckNotANumber(CheckSubject& subject);
Finding CheckRandomCalls(CheckSubject& subject);

}  // namespace host::check
