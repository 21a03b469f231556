#pragma once

#include "sigweave/foundation/TCArray.h"
#include "sigweave/foundation/TCString.h"

// Something that the host knows of a run, for a module that keeps it with its data: "graph" and its text,
// "program" and its version (docs/recordings.md lists those of the reference host). Texts are in UTF-8.
struct TCRunFact {
    TCString name;
    TCString value;
};

// What a host offers its modules before a run (see TCBaseModuleEx::OfferRunFacts).
class TCRunFacts {
 public:
    // Made when it is called for the first time, which may take long: a digest of each file that is read
    // belongs to it. The host's, and valid during the offer.
    virtual const TCArray<TCRunFact>& Get() = 0;

 protected:
    ~TCRunFacts() = default;
};
