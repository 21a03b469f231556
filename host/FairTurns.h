#pragma once

#include <vector>

#include "host/PositionSet.h"
#include "host/Wiring.h"

namespace host {

// Chooses which module steps next. Of the modules that have work it is the one furthest downstream; sources
// come when no other module has any, by these two sentences:
//
//   It is the turn of the source whose signal has got least far; if it leads to a full line, the sources go
//   first that lead to the inputs for which the module at the line's end waits, but not more than 16 times
//   in a row, after which the line has room for more.
//   A source pauses only while it leads to a full line whose module waits for nothing that any source still
//   gives, and to no input that lacks blocks.
//
// A line is full while more blocks wait in it than it has room for, and an input lacks blocks while its line
// is not full and blocks wait at another input of its module. docs/architecture.md shows what follows: a run
// stalls only by a module that takes nothing, and memory is bounded where inputs are equally long. It knows
// nothing of modules, streams and time, so that a test steps it by hand; another policy offers the same
// operations. One thread. After the constructor nothing allocates.
class FairTurns {
 public:
    // The wiring must outlive it. At first all modules may have work, and all sources are at their beginning.
    FairTurns(const Wiring& runWiring, int roomOfLines);

    // A block came, or the module says so. A source that had ended goes on.
    void MayHaveWork(int module) { IsSource(module) ? Revive(module) : ready.Add(module); }
    // Until a block comes; a source has ended.
    void HasNoWork(int module) { IsSource(module) ? End(module) : ready.Remove(module); }
    // How many blocks wait in the line now.
    void HasDepth(int line, int depth) {
        LineState& state = lines[static_cast<std::size_t>(line)];
        state.depth = depth;
        if ((depth > state.room) != state.full) MarkFull(line);
    }
    int DepthOf(int line) const { return lines[static_cast<std::size_t>(line)].depth; }
    // How much longer the source's signal has become, in milliseconds.
    void HasMade(int source, double milliseconds) { far[static_cast<std::size_t>(source)] += milliseconds; }

    // Whether more waits in a line than it has room for although each other input of its module has blocks
    // too, or there is none: a module that takes every block it can get holds up nothing.
    bool IsHeldUp() const;

    // The module to step; -1 when none has work but sources that pause, or none at all.
    int Choose() {
        const int module = ready.Largest();
        return module >= 0 ? module : ChooseSource();
    }

 private:
    struct LineState {
        int depth = 0;
        int room;
        bool full = false;
    };

    bool IsSource(int module) const { return sources[static_cast<std::size_t>(module)] != 0; }
    void Revive(int source);
    void End(int source);
    void MarkFull(int line);
    int ChooseSource();
    bool Lacks(int line) const;
    bool CanGetBlocks(int module) const;
    bool IsPaused(int source) const;
    int Helper(int source) const;
    int HelperAt(int module, int source) const;
    int GiveTurn(int source);
    int TakeTurn(int source);
    void MakeRoom(int source);
    int LessFar(int a, int b) const;

    const Wiring& wiring;
    const int room;
    std::vector<char> sources;  // of each module, whether it is one
    PositionSet ready;          // without the sources
    std::vector<int> live;      // sources that have more to give, in their order
    std::vector<double> far;    // of each source, ms
    std::vector<int> letGo;     // how often in a row each source let others go
    std::vector<int> visited;   // sources, in one choice
    std::vector<LineState> lines;
    std::vector<int> full;  // in no order
};

}  // namespace host
