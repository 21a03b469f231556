#include "host/Scheduler.h"

#include <algorithm>

#include "host/Guard.h"
#include "host/LiveChanges.h"
#include "host/ParameterGate.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr int STEPS_AFTER_INTERRUPT = 100;
constexpr int STEPS_BEYOND_LIMIT = 1000;
// ms: a source that has something to give may take longer than the time it is to give.
constexpr double DELAY = 1000.0;
constexpr double PROGRESS_INTERVAL = 100.0;  // ms
constexpr double UNTOLD_WAIT = 1500.0;
// In a row, of a module that may have made blocks for an output without a line. Beyond, it is taken for one
// that has none: cutting a block as large as can be into the smallest pieces takes less.
constexpr int MOST_IDLE_STEPS = 1 << 20;

// The mean over the sources that know how far they are; -1 when none does.
double ShareDone(const std::vector<Scheduler::Node>& nodes) {
    double sum = 0.0;
    int known = 0;
    for (const Scheduler::Node& node : nodes) {
        auto* module = node.source ? dynamic_cast<TCBaseModuleEx*>(node.module) : nullptr;
        const double share = module == nullptr ? -1.0 : node.ended ? 1.0 : module->GetProgress();
        if (share < 0.0) continue;
        sum += share;
        ++known;
    }
    return known > 0 ? sum / known : -1.0;
}

struct Extent {
    double length = -1.0;  // ms; -1: the block has no time
    int values = 0;
};

Extent ExtentOf(const TCIOStream::Block& block) {
    const TCIOStream::DataSegment* values = block.Segment(0);
    const TCTypeInfo* info = block.GetTI();
    Extent extent;
    if (values != nullptr) extent.values = values->GetElementCount();
    if (info != nullptr && info->GetSamplerate() > 0.0)
        extent.length = 1000.0 * extent.values / info->GetSamplerate();
    return extent;
}

thread_local const Scheduler* current = nullptr;

// By how much the block of a source that may lose something begins later than its signal ended.
double GapBefore(const Scheduler::Node& node, const TCIOStream::Block& block) {
    const TCTypeInfo* const info = block.GetTI();
    const bool isKnown = info != nullptr && std::isfinite(info->GetTimestamp()) && std::isfinite(node.next);
    return isKnown ? std::max(0.0, info->GetTimestamp() - node.next) : 0.0;
}

// That of a source is no step of its own.
bool IsGate(const Scheduler::Node& node) {
    return node.gate != nullptr && !node.source;
}

bool IsOfGraph(const Scheduler::Node& node) {
    return node.module != nullptr && !IsGate(node);
}

// Where the next block of a driven source begins.
void NoteEnd(Scheduler::Node& node, const TCIOStream::Block& block, double length) {
    const TCTypeInfo* const info = block.GetTI();
    if (info == nullptr || !std::isfinite(info->GetTimestamp())) return;
    node.next = std::max(node.next, info->GetTimestamp() + std::max(length, 0.0));
}

// A bus is as long as its longest channel.
Extent ExtentWithChannels(const TCIOStream::Block& block) {
    Extent extent = ExtentOf(block);
    if (block.GetTI() != nullptr) return extent;
    extent.values = 0;
    for (int index = 0; index < block.SegmentCnt(); ++index) {
        const TCIOStream::DataSegment& channel = *block.Segment(index);
        double length = 0.0;
        for (int i = 0; channel.GetBlocks() != nullptr && i < channel.GetElementCount(); ++i) {
            const Extent part = ExtentOf(*channel.GetBlocks()[i]);
            length += std::max(part.length, 0.0);
            extent.values += part.values;
        }
        if (length > 0.0) extent.length = std::max(extent.length, length);
    }
    return extent;
}

}  // namespace

Scheduler::Scheduler(Wiring runWiring, std::vector<Node> allNodes, std::vector<Line> allLines,
                     const RunOptions& runOptions, Outlet* stepOutlet)
    : wiring(std::move(runWiring)),
      nodes(std::move(allNodes)),
      lines(std::move(allLines)),
      options(runOptions),
      outlet(stepOutlet),
      clock(runOptions.clock != nullptr ? *runOptions.clock : tc::MachineClock()),
      policy(wiring, runOptions.queueLimit) {
    for (int index = 0; index < static_cast<int>(nodes.size()); ++index) {
        At(index).inputs = wiring.ModuleAt(index).inputs;
        At(index).outputs = wiring.ModuleAt(index).outputs;
        observes = observes || !At(index).watches.empty();
        auto* const source = At(index).source ? dynamic_cast<TCBaseModuleEx*>(At(index).module) : nullptr;
        if (source != nullptr) At(index).handle = source->GetWaitHandle(At(index).awaited);
        if (At(index).handle != nullptr) At(index).pace = nullptr;  // it has one of its own
    }
    for (int index = 0; index < static_cast<int>(lines.size()); ++index) {
        LineAt(index).to = wiring.LineAt(index).to;
        LineAt(index).first = wiring.LineAt(index).first;
        linesOfGraph = std::max(linesOfGraph, static_cast<std::size_t>(LineAt(index).number + 1));
    }
    for (const Node& node : nodes)
        if (IsOfGraph(node))
            modulesOfGraph = std::max(modulesOfGraph, static_cast<std::size_t>(node.number + 1));
}

Scheduler::End Scheduler::RunSteps(int place, bool withSources) {
    if (!std::exchange(hasBegun, true)) {
        begin = clock.Milliseconds();
        nextProgress = begin + PROGRESS_INTERVAL;
    }
    const Scheduler* const before = std::exchange(current, this);
    bool goesOn = true;
    bool isHeard = true;
    bool isElsewhere = false;
    const auto mayStep = [&] { return goesOn && isHeard && !isElsewhere; };
    thrown = WhatItThrows([&] {
        do
            while (mayStep() && (withSources || !IsTurnOfSources()) && (goesOn = AskWaiting()) &&
                   (position = policy.Choose()) >= 0 && At(position).place > place) {
                isElsewhere = At(position).module == nullptr;
                if (isElsewhere) break;
                goesOn = StepNext();
                isHeard = !goesOn || outlet == nullptr || outlet->HasStepped(LastPlace());
            }
        while (mayStep() && withSources && place < 0 && (EndLines() || WaitForSources()));
    });
    current = before;
    if (!goesOn || !thrown.empty()) return End::Failed;
    if (isElsewhere) return End::Elsewhere;
    return isHeard ? End::NothingToDo : End::Stopped;
}

const Scheduler* Scheduler::Current() {
    return current;
}

int Scheduler::LastPlace() const {
    const Node& node = nodes[static_cast<std::size_t>(position)];
    return node.source ? -1 : node.place;
}

void Scheduler::HasTaken(int node) {
    CountTaken(At(node));
    policy.HasNoWork(node);
}

void Scheduler::HasTurned(int node, const SourceTurn& itsTurn) {
    if (itsTurn.isTimed) lastLength = itsTurn.lastLength;
    if (itsTurn.hasMade) policy.HasMade(node, itsTurn.isTimed ? itsTurn.milliseconds : lastLength);
    if (itsTurn.gap > 0.0) policy.HasGap(node, itsTurn.gap);
    if (!itsTurn.isOver) return;
    At(node).ended = true;
    policy.HasNoWork(node);
}

bool Scheduler::StepNext() {
    if (!interruptSeen && options.interruption != nullptr && options.interruption->IsRaised()) {
        Interrupt();
        return true;
    }
    Node& node = At(position);
    if (options.gauge != nullptr) {
        options.gauge->Calls(IsGate(node) ? -1 : node.number);
        if (options.gauge->IsAsked()) AnswerGauge();
    }
    return observes ? StepObserved(node) : Step(node);
}

bool Scheduler::StepObserved(Node& node) {
    for (Watch& watch : node.watches)
        if (watch.line >= 0) watch.before = policy.DepthOf(watch.line);
    const bool goesOn = timesSteps ? StepTimed(node) : Step(node);
    if (goesOn)
        for (const Watch& watch : node.watches) ShowMade(watch);
    return goesOn;
}

void Scheduler::ShowMade(const Watch& watch) {
    const int count = watch.receiver->GetBlockCnt(nullptr);
    for (int block = watch.before; block < count; ++block)
        watch.watch->onBlock(*watch.receiver->GetWaitingBlock(block));
    if (watch.line < 0) watch.receiver->RemoveContents(true);
}

bool Scheduler::StepTimed(Node& node) {
    const double before = clock.Milliseconds();
    const bool goesOn = Step(node);
    node.seconds += (clock.Milliseconds() - before) / 1000.0;
    return goesOn;
}

bool Scheduler::Step(Node& node) {
    if (node.gate != nullptr && !MayStep(node)) return true;
    if (node.source) turn = SourceTurn();
    if (!HasWork(node)) return code == 0;
    if (node.source) turn.source = node.place;
    if (options.changes != nullptr && options.changes->IsAny()) MakeChanges(node);
    if (node.pace != nullptr && !interruptSeen) AwaitPace(node);
    code = node.module->Execute();
    if (code < 0) return false;
    ++node.steps;
    const int taken = CountTaken(node);
    const int made = CountMade(node);
    node.hasStepped = (node.source ? made : taken) == 0;
    if (node.source) {
        AfterSourceStep(node, made);
    } else if (taken == 0 && made == 0) {
        AfterIdleStep(node);
    } else {
        node.idleSteps = 0;
        if (node.queued == 0)
            return HasWork(node) || code == 0;  // asked now, while all of the module is in the cache
    }
    return true;
}

// Which takes no time of the module.
void Scheduler::AwaitPace(Node& node) {
    const bool isTimed = timesSteps;
    const double before = isTimed ? clock.Milliseconds() : 0.0;
    node.pace->Wait(options.interruption != nullptr ? options.interruption->Handle() : nullptr);
    if (isTimed) node.seconds -= (clock.Milliseconds() - before) / 1000.0;
}

// Sources that have nothing now are asked again when it is the turn of a source. False when one failed.
bool Scheduler::AskWaiting() {
    if (waiting == 0 || !policy.IsTurnOfSources()) return true;
    for (position = 0; position < static_cast<int>(nodes.size()); ++position)
        if (At(position).waits && HasWork(At(position)))
            EndWait(At(position));
        else if (code < 0)
            return false;
        else if (turn.isOver && outlet != nullptr)
            outlet->HasStepped(-1);
    return true;
}

// True when something may go on.
bool Scheduler::WaitForSources() {
    if (waiting == 0) return false;
    const bool mayEnd = options.interruption != nullptr && !interruptSeen;
    if (mayEnd && options.interruption->IsRaised()) {
        Interrupt();
        return true;
    }
    handles.clear();
    for (const Node& node : nodes)
        if (node.waits) handles.push_back(node.handle);
    if (mayEnd) handles.push_back(options.interruption->Handle());
    if (options.gauge != nullptr) handles.push_back(options.gauge->Handle());
    if (waitBegan < 0.0) waitBegan = clock.Milliseconds();
    if (options.gauge != nullptr) options.gauge->Calls(-1);
    AfterWait(clock.WaitForAny(handles, WaitUntil()));
    return true;
}

double Scheduler::WaitUntil() const {
    double until = HUGE_VAL;
    for (const Node& node : nodes) {
        if (node.waits) until = std::min(until, EndOf(node));
        if (node.waits && !node.waitTold) until = std::min(until, waitBegan + UNTOLD_WAIT);
    }
    return until;
}

// When a source that has nothing now is asked to end, by the clock. One that gives something needs as long as
// it gives, and the time that it takes on the way.
double Scheduler::EndOf(const Node& node) const {
    if (options.limit.milliseconds <= 0.0) return HUGE_VAL;
    return begin + options.limit.milliseconds + (node.made > 0 ? DELAY : 0.0);
}

void Scheduler::AfterWait(int signalled) {
    if (options.gauge != nullptr && options.gauge->IsAsked()) AnswerGauge();
    if (signalled >= 0 && signalled < waiting) return;
    const double now = clock.Milliseconds();
    if (now >= waitBegan + UNTOLD_WAIT) TellWaits();
    for (Node& node : nodes)
        if (node.waits && now >= EndOf(node)) AskToEnd(node);
}

void Scheduler::TellWaits() {
    for (Node& node : nodes)
        if (node.waits && !std::exchange(node.waitTold, true) && options.onWait)
            options.onWait(*node.name, Text(node.awaited));
}

void Scheduler::BeginWait(Node& node) {
    if (!std::exchange(node.waits, true)) ++waiting;
    policy.HasNothingNow(static_cast<int>(&node - nodes.data()));
}

void Scheduler::EndWait(Node& node) {
    if (std::exchange(node.waits, false)) --waiting;
    waitBegan = -1.0;
    policy.MayHaveWork(static_cast<int>(&node - nodes.data()));
}

// A module without work is asked again when a block arrives. Sources are held to have ended then, unless they
// have a wait handle.
bool Scheduler::HasWork(Node& node) {
    const int verdict = node.module->Fetch();
    code = std::min(verdict, 0);
    if (verdict == 0) return true;
    if (verdict == 1 && node.handle != nullptr && node.stepsLeft < 0 && !node.ended) {
        BeginWait(node);
        return false;
    }
    if (node.waits) EndWait(node);
    policy.HasNoWork(position);
    if (!node.source) return false;
    node.ended = true;
    turn = {.source = node.place, .isOver = true};
    TellState(*node.name, Bilingual("has given all its blocks", "hat alle Blöcke abgegeben").Text());
    return false;
}

// A source whose parameters are driven waits for their values. True for a gate itself.
bool Scheduler::MayStep(Node& node) {
    if (!node.source) return true;
    if (node.ended) node.gate->DropDrivers();
    const bool mayStep = !node.ended && node.gate->Decide(node.next);
    CountTaken(node);
    if (!mayStep) policy.HasNoWork(position);
    return mayStep;
}

// Nothing steps any more: lines to gates whose sources have all ended bring no more blocks. One gate at a
// time, the first in the order of the steps, for what it lets through may still come to others. True when
// something may go on.
bool Scheduler::EndLines() {
    return std::ranges::any_of(nodes, [this](Node& node) { return node.gate != nullptr && EndLines(node); });
}

bool Scheduler::EndLines(Node& node) {
    bool goesOn = false;
    for (const int index : node.inputs) {
        const int port = LineAt(index).gatePort;
        const bool isKnown = port < 0 || node.gate->HasEnded(port);
        if (isKnown || !std::ranges::all_of(wiring.SourcesOf(wiring.LineAt(index).from),
                                            [this](int source) { return At(source).ended; }))
            continue;
        node.gate->EndLine(port);
        goesOn = true;
    }
    if (node.source && node.ended) {
        node.gate->DropDrivers();
        return CountTaken(node) > 0;
    }
    if (goesOn) policy.MayHaveWork(static_cast<int>(&node - nodes.data()));
    return goesOn;
}

// The run's number of a block is that of this one; see LiveChanges.
void Scheduler::MakeChanges(Node& node) {
    if (node.hasStepped || IsGate(node)) return;
    options.changes->Make(
        *node.name, (node.source ? node.made : node.taken) + 1,
        [&](const LiveChange& change) { return MakeChange(node, change); },
        [this](const ChangeOutcome& outcome) {
            const LiveChange& change = outcome.change;
            if (!outcome.refusal.empty()) {
                if (options.onWarning) options.onWarning(outcome.refusal);
                return;
            }
            changes.push_back(change);
            TellState(change.instance,
                      Bilingual("%1=%2 from block %3 on", "%1=%2 ab Block %3")
                          .With({change.parameter, change.value, std::to_string(change.block)}));
        });
}

// Why not; empty when done.
std::string Scheduler::MakeChange(Node& node, const LiveChange& change) {
    for (const Node& other : nodes)
        if (const TCExtPar* const driven = other.gate != nullptr && *other.name == change.instance
                                               ? other.gate->FindDriven(change.parameter)
                                               : nullptr)
            return Bilingual("%1.%2: %3 drives it; remove that line to set it",
                             "%1.%2: wird von %3 gesteuert; entfernen Sie die Verbindung, um es zu setzen")
                .With({change.instance, change.parameter, driven->GetPort()});
    auto* const module = dynamic_cast<TCBaseModuleEx*>(node.module);
    TCString reason;
    if (module == nullptr)
        return Bilingual("%1: its module has no parameters", "%1: das Modul hat keine Parameter")
            .With({change.instance});
    if (module->SetLive(change.parameter.c_str(), change.value.c_str(), reason)) return "";
    return change.instance + "." + std::string(reason);
}

int Scheduler::CountTaken(Node& node) {
    int sum = 0;
    for (const int index : node.inputs) {
        const int depth = LineAt(index).receiver->GetBlockCnt(nullptr);
        const int taken = policy.DepthOf(index) - depth;
        if (taken == 0) continue;
        sum += taken;
        policy.HasDepth(index, depth);
    }
    node.taken += sum;
    node.queued -= sum;
    return sum;
}

int Scheduler::CountMade(Node& node) {
    int sum = 0;
    for (const int index : node.outputs) {
        Line& line = LineAt(index);
        const int depth = line.receiver->GetBlockCnt(nullptr);
        const int added = depth - policy.DepthOf(index);
        if (added == 0) continue;
        policy.HasDepth(index, depth);
        line.deepest = std::max(line.deepest, depth);
        line.blocks += added;
        line.unmeasured = added;
        sum += added;
        if (line.first) node.made += added;
        At(line.to).queued += added;
        if (At(line.to).stepsLeft != 0) policy.MayHaveWork(line.to);
    }
    return sum;
}

void Scheduler::AfterIdleStep(Node& node) {
    if (node.makesUnseen && ++node.idleSteps <= MOST_IDLE_STEPS) return;
    node.makesUnseen = false;
    policy.HasNoWork(position);
}

void Scheduler::AfterSourceStep(Node& node, int made) {
    if (node.stepsLeft > 0 && --node.stepsLeft == 0) EndSource(node);
    if (made > 0) {
        node.lastSign = -1.0;
        const bool isOver = options.limit.IsAny() && KeepLimit(node);
        MeasureSignal(node);
        if (isOver) EndSource(node);
    } else {
        const double now = clock.Milliseconds();
        if (node.lastSign < 0.0) node.lastSign = now;
        node.silent = now - node.lastSign > static_cast<double>(options.patience.count());
        turn.isOver = turn.isOver || node.silent;
        if (node.silent) policy.HasNoWork(position);
    }
    if (options.onProgress) TellProgress();
}

// The blocks of this step wait where they were written. Of several outputs the one that has got furthest
// counts. Blocks without a time, as spectra, count as long as the last one that had one.
void Scheduler::MeasureSignal(Node& node) {
    double before = 0.0;
    double after = 0.0;
    double gap = 0.0;
    bool tells = false;
    for (const int index : node.outputs) {
        Line& line = LineAt(index);
        if (!line.first) continue;
        before = std::max(before, line.signal);
        const int depth = policy.DepthOf(index);
        for (int block = depth - line.unmeasured; block < depth; ++block) {
            const TCIOStream::Block& made = *line.receiver->GetWaitingBlock(block);
            const Extent extent = ExtentWithChannels(made);
            bytes += static_cast<double>(extent.values) * line.elementSize;
            if (node.handle != nullptr) gap = std::max(gap, GapBefore(node, made));
            if (node.gate != nullptr || node.handle != nullptr) NoteEnd(node, made, extent.length);
            if (extent.length < 0.0 || !line.isTimed) continue;
            line.signal += lastLength = extent.length;
            tells = true;
        }
        line.unmeasured = 0;
        after = std::max(after, line.signal);
    }
    turn = {node.place, true, tells, turn.isOver, after - before, lastLength, gap};
    policy.HasMade(position, tells ? after - before : lastLength);
    if (gap > 0.0) policy.HasGap(position, gap);
    if (!tells) return;
    signalSeconds = std::max(signalSeconds, after / 1000.0);
    if (node.pace != nullptr) node.pace->HasMade(after);
}

void Scheduler::Interrupt() {
    interruptSeen = true;
    TellState("", Bilingual("interrupted; the sources end their signals",
                            "unterbrochen; die Quellen beenden ihre Signale")
                      .Text());
    for (Node& node : nodes) {
        if (!node.source || node.ended || node.module == nullptr) continue;
        interrupted = true;
        AskToEnd(node);
    }
}

void Scheduler::AskToEnd(Node& node) {
    auto* module = dynamic_cast<TCBaseModuleEx*>(node.module);
    if (module == nullptr) return EndSource(node);
    module->Interrupt();
    node.stepsLeft = STEPS_AFTER_INTERRUPT;
    if (node.waits) EndWait(node);
}

// True when all lines of the source have what they may get. One of several outputs that is behind the others
// is waited for, but not without end.
bool Scheduler::KeepLimit(Node& node) {
    bool isReached = false;
    bool isOpen = false;
    for (const int index : node.outputs) {
        LimitLine(node, index);
        if (!LineAt(index).first) LineAt(index).unmeasured = 0;
        const LineCount& given = LineAt(index).given;
        isReached = isReached || given.isFull;
        isOpen = isOpen || (given.isOpen && !given.isFull);
    }
    if (isReached && isOpen && node.stepsLeft < 0 && ++node.stepsBeyond > STEPS_BEYOND_LIMIT) AskToEnd(node);
    return isReached && !isOpen;
}

// The blocks of this step that are more than the line may get are dropped.
void Scheduler::LimitLine(Node& node, int index) {
    Line& line = LineAt(index);
    const int depth = policy.DepthOf(index);
    int kept = depth - line.unmeasured;
    for (; kept < depth && !line.given.isFull; ++kept)
        options.limit.Take(const_cast<TCIOStream::Block&>(*line.receiver->GetWaitingBlock(kept)),
                           line.isTimed, line.given);
    const int dropped = depth - kept;
    if (dropped == 0) return;
    DropBlocks(*line.receiver, kept);
    policy.HasDepth(index, kept);
    line.blocks -= dropped;
    line.unmeasured -= dropped;
    if (line.first) node.made -= dropped;
    At(line.to).queued -= dropped;
}

void Scheduler::EndSource(Node& node) {
    if (node.waits) EndWait(node);
    node.ended = true;
    node.stepsLeft = 0;
    turn.isOver = turn.isOver || turn.source == node.place;
    policy.HasNoWork(static_cast<int>(&node - nodes.data()));
}

void Scheduler::AnswerGauge() {
    const double now = clock.Milliseconds();
    options.gauge->Answer([&](RunFigures& figures) {
        figures.seconds = (now - begin) / 1000.0;
        figures.modules.resize(modulesOfGraph);
        for (const Node& node : nodes)
            if (IsOfGraph(node))
                figures.modules[static_cast<std::size_t>(node.number)] = {node.steps, node.taken, node.made,
                                                                          node.seconds};
        figures.lines.resize(linesOfGraph);
        for (int index = 0; index < static_cast<int>(lines.size()); ++index) {
            Line& line = LineAt(index);
            if (line.number < 0) continue;
            const int depth = policy.DepthOf(index);
            const double passed = timesSteps ? (now - askedAt) / 1000.0 : 0.0;
            const double trend = passed > 0.0 ? (depth - line.askedDepth) / passed : 0.0;
            figures.lines[static_cast<std::size_t>(line.number)] = {line.blocks, depth, line.deepest, trend};
            line.askedDepth = depth;
        }
    });
    askedAt = now;
    timesSteps = observes = true;
}

void Scheduler::TellProgress() {
    const double now = clock.Milliseconds();
    if (now < nextProgress) return;
    nextProgress = now + PROGRESS_INTERVAL;
    options.onProgress({signalSeconds, ShareDone(nodes), bytes, (now - begin) / 1000.0});
}

void Scheduler::TellState(const std::string& instance, const std::string& state) const {
    if (options.onState) options.onState(instance, state);
}

}  // namespace host
