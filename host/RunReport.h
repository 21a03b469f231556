#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/LiveChanges.h"
#include "host/Messages.h"
#include "host/Mistakes.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace host {

// Mistakes: of the graph or of the command line, and nothing was run. Gaps: all went well, but a source lost
// something of its signals.
enum class Verdict { Complete, Interrupted, Stalled, Failed, Mistakes, Gaps };

// "complete", "interrupted", "stalled", "failed", "mistakes" or "gaps", in every language: for the JSON
// report.
const char* ToText(Verdict verdict);

struct ResultReport {
    std::string signal;
    std::string quantity;
    double value = 0.0;
    std::string unit;
};

struct ModuleReport {
    std::string instance;
    std::string module;          // the module's id
    std::int64_t blocksIn = 0;   // taken off all inputs
    std::int64_t blocksOut = 0;  // written to wired outputs; one that goes to several inputs counts once
    std::vector<ResultReport> results;
    TCModuleGaps gaps = {};  // of a source
};

struct LineReport {
    std::string from;  // instance.Output
    std::string to;
    std::int64_t blocks = 0;
    int deepestQueue = 0;
};

// What a module answered that ended the run, or made its end fail.
struct FailureReport {
    std::string instance;
    int code = 0;
    std::string port;    // instance.Port, when the module's error is about one; else empty
    std::string reason;  // in words
};

// What came of a run.
struct RunReport {
    Verdict verdict = Verdict::Complete;
    std::string explanation;      // what went wrong, with the remedy; empty for a complete run
    double seconds = 0.0;         // that the run took
    double signalSeconds = -1.0;  // the longest signal of a source; -1 when not known
    std::vector<ModuleReport> modules;
    std::vector<LineReport> lines;
    std::vector<LiveChange> changes;  // that hold, in the order of the run
    std::vector<Message> messages;    // of modules and the host
    std::int64_t messagesLeftOut = 0;
    std::vector<Mistake> mistakes;
    std::vector<FailureReport> failures;  // in their order; told in the explanation
};

// How far a run has got; -1 is "not known".
struct RunProgress {
    double signalSeconds = -1.0;
    double share = -1.0;  // 0 to 1
    double bytes = 0.0;   // that the sources wrote
    double seconds = 0.0;
};

}  // namespace host
