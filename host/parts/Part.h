#pragma once

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "host/Scheduler.h"
#include "host/parts/CutOutput.h"
#include "host/parts/PartLink.h"
#include "host/parts/StemLink.h"
#include "host/parts/Stems.h"

namespace host {

// What a scheduler is made of.
struct SchedulerParts {
    Wiring wiring;
    std::vector<Scheduler::Node> nodes;
    std::vector<Scheduler::Line> lines;
    int feed = -1;            // the node from which cut lines come; -1: none
    int exit = -1;            // the node to which they lead
    std::vector<int> feedOf;  // by module of the run: the node from which its blocks come
    bool hasSources = false;  // so that interrupts, changes and the like are for it
};

// One part of a run: the modules of a graph that one thread steps. Why its steps, and those of all parts
// together, are those of the uncut run:
//
// In the uncut run a module steps while no module at a larger place has work, and a source when no module has
// any. All parts number the places alike. The first part makes its steps in the order of the uncut run,
// because no later part has a source or leads back to it, and none holds up a source (see PartPlan.h). By
// induction, a part that learns all steps of those before it, in their order, knows when each of its own is
// due: before a step of others at a place p, all that have work beyond p. Several such steps without a block
// for this or a later part may be told as one, with the smallest of their places: what steps before the first
// of them, and then before the next, are the same modules in the same order. Each part hands on what concerns
// the ones after it, with its own steps put in: so the last one sees everything in the order of the uncut
// run. It also says what all of them said, in that order.
//
// Sources may be at places of their own, before the first part of the row. What one of them leads to there,
// its stem, runs by itself, and tells how each turn of the source ended (StemLink.h). Here it is a node
// without a module, whose turns are taken as they come (RunJoined): docs/machines.md says why all
// turns are then those of the uncut run.
//
// Where a module does not take what it declared to take, the part ends as the sources of an uncut run pause:
// the run has stalled. When a module fails, the parts after it make the steps that come before and then none;
// parts before it may have gone further by as much as the links hold. Each part is used by one thread at a
// time.
class Part final : public Scheduler::Outlet {
 public:
    enum class State { Runs, Ended, Failed, Stopped };

    // `allCuts` and `nextLink` (null for the last part) must outlive it; the link may be set later.
    Part(int partNumber, SchedulerParts parts, const RunOptions& runOptions,
         std::vector<std::unique_ptr<CutOutput>>& allCuts);

    void SetNext(PartLink* link) { next = link; }
    // Whether blocks are packed. If all parts are called by one thread, they may be shared instead: the next
    // part takes what waits in the output itself, before Send is back.
    void SetPacking(bool packing) { packs = packing; }

    // Of the first part: all of its steps, and the end of the others.
    void Run();
    // Of a part with sources that sends their turns to the one where they meet: before `Run`.
    void SetStem(StemLink* link) { stem = link; }
    // Of the part where the signals of sources elsewhere meet: all of its steps.
    void RunJoined(Stems& stems);
    // Of a later part: does what is due before the delivery, and takes it. False when it was the last one, or
    // when nothing more is wanted.
    bool Take(PartDelivery& delivery);

    // --- Afterwards

    State GetState() const { return state; }
    // Of the run, as this part knows it: the part whose module failed; -1: none has.
    int FailedPart() const { return failedPart; }
    // Why the part failed, when it was not a module that did; else empty.
    const std::string& OwnFailure() const { return ownFailure; }
    const Scheduler& GetScheduler() const { return *scheduler; }

    bool HasStepped(int stepPlace) override;
    // To whoever listens to the run.
    void Say(std::vector<PartText>& texts) const;

 private:
    RunOptions MakeOptions(const RunOptions& runOptions);
    Scheduler::End Go(int bound, bool withSources);
    bool HasGone(Scheduler::End end);
    bool Accept(PartDelivery& delivery, int from);
    bool TakeTurn(int node, Stems& stems);
    bool TakeOfTurn(PartDelivery& delivery, int node);
    bool EndTurn();
    bool Unpack(PartDelivery& delivery, int from);
    bool Pack();
    bool PackEach(int cut);
    void Share(int cut);
    bool HandOn();
    void Fail(int part);
    void End();

    const int number;
    const int feed;
    const int exit;
    const std::vector<int> feedOf;
    const bool hasSources;
    const RunOptions& original;
    const RunOptions options;
    std::vector<std::unique_ptr<CutOutput>>& cuts;
    std::vector<int> own;  // cuts whose output is here
    std::unique_ptr<Scheduler> scheduler;
    PartLink* next = nullptr;
    StemLink* stem = nullptr;
    bool hasBegun = false;  // a source has had a turn
    bool packs = true;
    bool hasShared = false;  // blocks of the last step wait in outputs
    PartDelivery outgoing;
    PartDelivery fromElsewhere;  // of a turn elsewhere
    int place = INT_MAX;         // the smallest since the last delivery
    State state = State::Runs;
    int failedPart = -1;
    std::string ownFailure;
};

}  // namespace host
