#pragma once

#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/FairTurns.h"
#include "host/Interruption.h"
#include "host/RunGauge.h"
#include "host/RunLimit.h"
#include "host/RunReport.h"
#include "host/SourcePace.h"
#include "host/Wiring.h"
#include "host/parts/SourceTurn.h"
#include "sigweave/signal/TCIOStream.h"

class TCBaseModule;
class TCBaseModuleEx;
class TCRunFacts;

namespace host {

class LiveChanges;
class ParameterGate;
class PlaceRun;

// An output whose blocks somebody looks at while a run goes on.
struct OutputWatch {
    int module = 0;  // of the graph, which has it
    int output = 0;  // of the module, which has it
    // Called once for each block that the output got, on the thread of the run, right after the step that
    // made it. The block is valid, and stays as it is, until the function returns: what is to be kept longer
    // is to be copied. Must not throw. The blocks of a step that failed are not shown.
    std::function<void(const TCIOStream::Block&)> onBlock;
};

struct RunOptions {
    // How many blocks may wait in a line before that decides which source goes next (see FairTurns).
    int queueLimit = 16;
    // On how many threads modules are called, at most; what comes out is the same (see parts/PartPlan.h). 0:
    // as many as the machine has cores, if the first blocks show that this pays.
    int threads = 1;
    PlaceRun* place = nullptr;         // the only one whose modules are run; null: all are
    std::function<void()> onHandOver;  // between two threads, on each of them; for tests
    // How long a source may say that it has work without making a block.
    std::chrono::milliseconds patience{10000};
    // Whether sources make their blocks no faster than at their sample rate.
    bool realtime = false;
    RunLimit limit;                              // of each source
    const Interruption* interruption = nullptr;  // ends the run early; may be null
    tc::Clock* clock = nullptr;                  // null: the machine's
    RunGauge* gauge = nullptr;                   // through which others look on; may be null
    TCRunFacts* facts = nullptr;                 // for modules that ask; may be null
    LiveChanges* changes = nullptr;              // of live parameters, by others; may be null
    // Modules are stepped as they are without watches, and the report is the same. But an output without a
    // line has a receiver then: its module does not skip the work for it, and a block that could not be sent
    // into a line is refused.
    std::vector<OutputWatch> watches;
    // What the run says, on its thread; each may be empty. An instance's name is empty for the whole run.
    std::function<void(const RunProgress&)> onProgress;  // some times a second
    std::function<void(const std::string& instance, const std::string& state)> onState;
    // A source has had nothing to give for 1.5 s; once for each.
    std::function<void(const std::string& instance, const std::string& what)> onWait;
    std::function<void(const std::string& text)> onWarning;
    std::function<void(const std::string& text)> onError;
    // How the run is split on threads, and which lines are not cut and why.
    std::function<void(const std::string& text)> onNote;
};

// The step loop of a run: steps the modules that the policy chooses, counts what they take and make, and
// informs the policy. Which modules may have work is known without asking all: after a step these are the
// module itself and those that it wrote to.
//
// A module has work when its Fetch answers 0. One whose step neither takes nor makes a block is left alone
// until a block arrives, because what waits is not enough for it. But the blocks of an output without a line
// cannot be seen: a module with such an output is asked again, as long as it has been known to end.
//
// A source with a wait handle whose Fetch answers 1 has nothing now. It is asked again before another source
// steps, and when no module has work, the run waits for all such sources at once.
//
// The modules are wired and initialised. One thread.
class Scheduler {
 public:
    // Another policy has the same operations.
    using Policy = FairTurns;

    struct Line {
        TCIOStream* receiver = nullptr;  // the input's own stream
        int to = 0;                      // of the wiring, as the next one
        bool first = false;
        int elementSize = 0;  // bytes, for the throughput
        bool isTimed = true;  // its values follow each other in time
        int deepest = 0;
        std::int64_t blocks = 0;
        int unmeasured = 0;   // blocks of the last step, of a source
        double signal = 0.0;  // ms, of a source
        int askedDepth = 0;   // at the last question
        int gatePort = -1;    // of a line to a gate
        int number = -1;      // in the graph; -1: none
        int lineOfRun = -1;   // counted with those from gates; -1: it leaves a part
        LineCount given;      // of a source in a run with a limit
    };

    struct Watch {
        const OutputWatch* watch = nullptr;  // of the options
        TCIOStream* receiver = nullptr;
        int line = -1;  // of the wiring, the output's first; -1: it has none, and the receiver is the watch's
        int before = 0;  // blocks that waited before the step
    };

    struct Node {
        TCBaseModule* module = nullptr;  // null: in another part
        std::span<const int> inputs;     // of the wiring, as the next ones
        std::span<const int> outputs;
        int number = 0;  // in the graph
        int place = 0;   // in the order of all steps of the run
        const std::string* name = nullptr;
        bool source = false;
        bool makesUnseen = false;  // has an output without a line
        int idleSteps = 0;         // in a row
        std::int64_t queued = 0;   // blocks that wait at the inputs
        std::int64_t taken = 0;
        std::int64_t made = 0;
        std::int64_t steps = 0;
        double seconds = 0.0;              // of its steps, once somebody has asked
        bool ended = false;                // a source that has nothing more to give
        bool silent = false;               // a source that says it has work and makes nothing
        int stepsLeft = -1;                // after an interrupt; -1: no bound, 0: ended for good
        double lastSign = -1.0;            // when it began to make nothing; -1: it makes blocks
        std::unique_ptr<SourcePace> pace;  // of a source in a run in real time
        ParameterGate* gate = nullptr;     // that this is, or that a source has
        double next = -HUGE_VAL;  // ms, when the next block of such a source begins, once it is known
        void* handle = nullptr;   // of a source that may wait
        const char* awaited = "";
        bool waits = false;
        bool waitTold = false;
        int stepsBeyond = 0;      // of a source, since a line of it was full
        bool hasStepped = false;  // since its last block: too late for changes to that block
        std::vector<Watch> watches;
    };

    // `Elsewhere`: it is the turn of a source of another part, at `Position`.
    enum class End { NothingToDo, Failed, Stopped, Elsewhere };

    // Sees the steps of one part of a run (see parts/Part.h).
    class Outlet {
     public:
        // After a step that did not fail: the place of its module, -1 of a source, before which every module
        // that has work steps. False ends the steps: `Stopped`.
        virtual bool HasStepped(int place) = 0;

     protected:
        ~Outlet() = default;
    };

    // Nodes and lines are those of the wiring, in its order, which they learn here.
    Scheduler(Wiring runWiring, std::vector<Node> allNodes, std::vector<Line> allLines,
              const RunOptions& runOptions, Outlet* stepOutlet = nullptr);

    // Steps modules until none has work.
    End Run() { return RunBeyond(-1); }

    // --- Of a part of a run

    // Steps modules until none at a place beyond that one has work.
    End RunBeyond(int place) { return RunSteps(place, true); }
    // The same without sources, of which it is one's turn.
    End RunModulesBeyond(int place) { return RunSteps(place, false); }
    // The place of the last step, -1 of a source.
    int LastPlace() const;
    // The same, of a source too.
    int LastStepped() const { return nodes[static_cast<std::size_t>(position)].place; }
    // The number of the module in the graph; -1 before the first step.
    int SteppedModule() const { return position < 0 ? -1 : nodes[static_cast<std::size_t>(position)].number; }
    // The node, which is none to be stepped, has written blocks into its lines or taken them off.
    void HasMade(int node) { CountMade(At(node)); }
    void HasTaken(int node);
    // Whether no module has work but sources.
    bool IsTurnOfSources() const { return policy.IsTurnOfSources(); }
    // The last turn of a source, once; without one the source is -1. One that had nothing yet had no turn.
    SourceTurn TakeTurn() { return std::exchange(turn, SourceTurn()); }
    // The node, a source elsewhere, had its turn.
    void HasTurned(int node, const SourceTurn& itsTurn);
    // A node that stands for what is in other parts, and is never stepped.
    void NeverSteps(int node) { policy.HasNoWork(node); }
    // See FairTurns.
    bool IsHeldUp() const { return policy.IsHeldUp(); }
    // The module that the calling thread steps; null: none.
    static const Scheduler* Current();

    // After the run.
    const Wiring& GetWiring() const { return wiring; }
    const std::vector<Node>& Nodes() const { return nodes; }
    const std::vector<Line>& Lines() const { return lines; }
    int DepthOf(int line) const { return policy.DepthOf(line); }
    // Whether an interrupt came while a source had more to give.
    bool WasInterrupted() const { return interrupted; }
    double SignalSeconds() const { return signalSeconds; }
    // The module that is being stepped; after End::Failed the one that failed, with its code or what it
    // threw.
    int Position() const { return position; }
    int FailedCode() const { return code; }
    const std::string& Thrown() const { return thrown; }
    // Of live parameters, that hold.
    const std::vector<LiveChange>& Changes() const { return changes; }

 private:
    Node& At(int index) { return nodes[static_cast<std::size_t>(index)]; }
    Line& LineAt(int index) { return lines[static_cast<std::size_t>(index)]; }

    End RunSteps(int place, bool withSources);
    bool StepNext();
    bool AskWaiting();
    bool WaitForSources();
    double WaitUntil() const;
    double EndOf(const Node& node) const;
    void AfterWait(int signalled);
    void BeginWait(Node& node);
    void EndWait(Node& node);
    void TellWaits();
    bool StepObserved(Node& node);
    bool StepTimed(Node& node);
    static void ShowMade(const Watch& watch);
    bool Step(Node& node);
    void AwaitPace(Node& node);
    bool HasWork(Node& node);
    int CountTaken(Node& node);
    int CountMade(Node& node);
    void AfterIdleStep(Node& node);
    void AfterSourceStep(Node& node, int made);
    void MeasureSignal(Node& node);
    bool MayStep(Node& node);
    bool EndLines();
    bool EndLines(Node& node);
    void MakeChanges(Node& node);
    std::string MakeChange(Node& node, const LiveChange& change);
    void Interrupt();
    void AskToEnd(Node& node);
    bool KeepLimit(Node& node);
    void LimitLine(Node& node, int index);
    void EndSource(Node& node);
    void AnswerGauge();
    void TellProgress();
    void TellState(const std::string& instance, const std::string& state) const;

    const Wiring wiring;
    std::vector<Node> nodes;
    std::vector<Line> lines;
    const RunOptions& options;
    Outlet* const outlet;
    tc::Clock& clock;
    Policy policy;
    int position = -1;
    int code = 0;
    std::string thrown;
    SourceTurn turn;
    std::vector<LiveChange> changes;
    bool interruptSeen = false;
    bool interrupted = false;
    bool timesSteps = false;         // somebody has asked
    bool observes = false;           // steps are timed, or outputs are watched
    std::size_t modulesOfGraph = 0;  // without gates, and without the lines from them
    std::size_t linesOfGraph = 0;
    bool hasBegun = false;
    int waiting = 0;          // sources
    double waitBegan = -1.0;  // since then nothing came; -1: something has
    std::vector<void*> handles;
    double signalSeconds = -1.0;
    double lastLength = 1.0;  // ms, of the last block that had one
    double bytes = 0.0;
    double begin = 0.0;  // ms
    double nextProgress = 0.0;
    double askedAt = 0.0;  // the last question
};

}  // namespace host
