#pragma once

#include <span>

#include "host/check/CheckSubject.h"
#include "host/check/Finding.h"

namespace host::check {

// One named check. It runs in a process of its own, so whatever the module does is seen from outside.
struct NamedCheck {
    const char* name;   // for reports, the same in every language (never change, only append)
    const char* needs;  // the check without which this one says nothing; null: none
    bool ofLibrary;     // else of each module
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

}  // namespace host::check
