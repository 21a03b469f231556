#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/LiveChanges.h"
#include "host/Messages.h"
#include "host/Mistakes.h"

namespace host {

// Mistakes: of the graph or of the command line, and nothing was run.
enum class Verdict { Complete, Interrupted, Stalled, Failed, Mistakes };

// "complete", "interrupted", "stalled", "failed" or "mistakes", in every language: for the JSON report.
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
};

struct LineReport {
    std::string from;  // instance.Output
    std::string to;
    std::int64_t blocks = 0;
    int deepestQueue = 0;
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
};

// How far a run has got; -1 is "not known".
struct RunProgress {
    double signalSeconds = -1.0;
    double share = -1.0;  // 0 to 1
    double bytes = 0.0;   // that the sources wrote
    double seconds = 0.0;
};

}  // namespace host
