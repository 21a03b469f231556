#pragma once

#include <string>
#include <vector>

#include "sigweave/module/TCBaseModuleEx.h"

namespace host {

// How a graph is cut into parts, each of which runs on a thread of its own and hands its blocks to the next.
// The plan follows from the graph and the number of parts alone.
//
// The order of the steps of a run depends on which blocks wait where (see FairTurns). A cut run has the same
// order, because
//
//   - all sources are in the first part, and lines lead to the same part or a later one. So a part knows the
//     whole order when it learns what the parts before it did, one after the other (see Part.h);
//   - no choice of a source depends on what waits in a later part. Modules that take every block that comes
//     (ANY_THREAD) hold up nothing. Modules that join signals (ANY_THREAD_JOINS) may be in later parts when
//     every module of the graph has declared how it takes its blocks, and the lines to each join come from
//     the same sources: then no source ever pauses or lets another one go first, whatever waits. Proof: a
//     source that leads to a full line of a join also leads to the input of it that lacks blocks;
//   - when a module writes a block, what it wrote before into a cut line has been taken, as in the uncut run:
//     a line to a join is not cut, so that states of waiting blocks are joined as ever.
//
// What does not fit stays together in one part.
struct PlannedModule {
    std::string name;
    bool isSource = false;
    TCBaseModuleEx::PLACEMENT placement = TCBaseModuleEx::FIRST_THREAD;
    // Why it must be in the first part all the same; empty: it need not.
    std::string pinned;
    bool isDriven = false;  // signals set its parameters
};

// From and to modules, by their places in the order of the steps.
struct PlannedLine {
    int from = 0;
    int to = 0;
    bool holdsAddresses = false;  // what its blocks hold means nothing elsewhere
};

// A line that is not cut although the number of parts would allow it.
struct UncutLine {
    int line = 0;
    std::string reason;
};

struct PartPlan {
    int count = 1;
    std::vector<int> partOf;  // by place; each of the parts has a module
    std::vector<UncutLine> uncut;

    bool IsCut(const PlannedLine& line) const { return PartOf(line.from) != PartOf(line.to); }
    int PartOf(int place) const { return partOf[static_cast<std::size_t>(place)]; }
};

// Modules in the order of the steps: each line leads to a later one. At most that number of parts, at
// least 1.
PartPlan MakePartPlan(const std::vector<PlannedModule>& modules, const std::vector<PlannedLine>& lines,
                      int most);

// Something that cannot be where a plan has it.
struct MisplacedPart {
    int module = -1;  // its place in the order of the steps; -1: it is a line
    int line = -1;
    std::string reason;
};

// What keeps these parts, by place, from making the steps of the uncut run; empty when nothing does. Those
// before `joining` have sources and their stems: what a source leads to alone.
std::vector<MisplacedPart> FindMisplaced(const std::vector<PlannedModule>& modules,
                                         const std::vector<PlannedLine>& lines, const std::vector<int>& parts,
                                         int joining = 0);

}  // namespace host
