#include "host/Scheduler.h"

#include <algorithm>
#include <bit>

#include "host/Console.h"
#include "host/Guard.h"
#include "host/RunLog.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

using Clock = std::chrono::steady_clock;

constexpr int STEPS_AFTER_INTERRUPT = 100;
constexpr auto PROGRESS_INTERVAL = std::chrono::milliseconds(100);

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

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

}  // namespace

int PositionSet::Largest() const {
    for (std::size_t index = words.size(); index-- > 0;)
        if (words[index] != 0) return static_cast<int>(index * 64) + 63 - std::countl_zero(words[index]);
    return -1;
}

Scheduler::Scheduler(std::vector<Node> allNodes, std::vector<Line> allLines, const RunOptions& runOptions)
    : nodes(std::move(allNodes)),
      lines(std::move(allLines)),
      options(runOptions),
      ready(static_cast<int>(nodes.size())) {
    FindSources();
    for (int index = 0; index < static_cast<int>(nodes.size()); ++index) ready.Add(index);
}

void Scheduler::FindSources() {
    for (int index = 0; index < static_cast<int>(nodes.size()); ++index) {
        std::vector<int>& sources = At(index).sources;
        if (At(index).source) sources.push_back(index);
        for (const int line : At(index).inputs) {
            const std::vector<int>& upstream = At(LineAt(line).from).sources;
            sources.insert(sources.end(), upstream.begin(), upstream.end());
        }
        std::sort(sources.begin(), sources.end());
        sources.erase(std::unique(sources.begin(), sources.end()), sources.end());
    }
}

Scheduler::End Scheduler::Run() {
    begin = Clock::now();
    nextProgress = begin + PROGRESS_INTERVAL;
    bool failed = false;
    thrown = WhatItThrows([&] {
        while (!failed && (position = Choose()) >= 0) {
            if (options.interrupt != nullptr && !interruptSeen &&
                options.interrupt->load(std::memory_order_relaxed))
                Interrupt();
            else
                failed = !Step(At(position));
        }
    });
    return failed || !thrown.empty() ? End::Failed : End::NothingToDo;
}

// In real time, sources come after all others, and of them the one whose next block is due first.
int Scheduler::Choose() const {
    const int largest = ready.Largest();
    if (!options.realtime) return largest;
    int chosen = -1;
    for (int index = largest; index >= 0; --index) {
        if (!ready.Contains(index)) continue;
        const SourcePace* const pace = nodes[static_cast<std::size_t>(index)].pace.get();
        if (pace == nullptr) return index;
        if (chosen < 0 || pace->SignalMade() < nodes[static_cast<std::size_t>(chosen)].pace->SignalMade())
            chosen = index;
    }
    return chosen;
}

bool Scheduler::Step(Node& node) {
    if (!HasWork(node)) return code == 0;
    if (node.pace != nullptr && !interruptSeen) node.pace->Wait(options.interrupt);
    code = node.module->Execute();
    if (code < 0) return false;
    const int taken = CountTaken(node);
    const int made = CountMade(node);
    if (node.source)
        AfterSourceStep(node, made);
    else if (taken == 0 && made == 0)
        ready.Remove(position);  // until a block arrives: what waits here is not enough
    else if (node.queued == 0)
        return HasWork(node) || code == 0;  // asked now, while all of the module is in the cache
    return true;
}

// A module without work is asked again when a block arrives.
bool Scheduler::HasWork(Node& node) {
    const int verdict = node.module->Fetch();
    code = std::min(verdict, 0);
    if (verdict == 0) return true;
    ready.Remove(position);
    node.ended = node.source;
    if (node.ended)
        runlog::StateOf(console::Speaker(),
                        Bilingual("has given all its blocks", "hat alle Blöcke abgegeben").Text());
    return false;
}

int Scheduler::CountTaken(Node& node) {
    int sum = 0;
    for (const int index : node.inputs) {
        Line& line = LineAt(index);
        const int depth = line.receiver->GetBlockCnt(nullptr);
        sum += line.depth - depth;
        line.depth = depth;
        if (line.full && depth <= options.queueLimit) MarkFull(line, false);
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
        const int added = depth - line.depth;
        if (added == 0) continue;
        line.depth = depth;
        line.deepest = std::max(line.deepest, depth);
        line.blocks += added;
        sum += added;
        if (line.first) node.made += added;
        At(line.to).queued += added;
        ready.Add(line.to);
        if (!line.full && depth > options.queueLimit) MarkFull(line, true);
    }
    return sum;
}

void Scheduler::MarkFull(Line& line, bool full) {
    line.full = full;
    for (const int index : At(line.from).sources) {
        Node& source = At(index);
        source.fullBehind += full ? 1 : -1;
        if (source.fullBehind > 0)
            ready.Remove(index);
        else if (!source.ended)
            ready.Add(index);
    }
}

void Scheduler::AfterSourceStep(Node& node, int made) {
    if (node.stepsLeft > 0 && --node.stepsLeft == 0) EndSource(node);
    if (made > 0) {
        node.waiting = false;
        MeasureSignal(node);
    } else {
        const auto now = Clock::now();
        if (!node.waiting) node.lastSign = now;
        node.waiting = true;
        node.silent = now - node.lastSign > options.patience;
        if (node.silent) ready.Remove(position);
    }
    if (options.onProgress) TellProgress();
}

// The queue behind a source is short, so what waits there is what was just made. A line without metadata (a
// bus) does not tell. Outputs may make their blocks at different times: each counts on its own.
void Scheduler::MeasureSignal(Node& node) {
    for (const int index : node.outputs) {
        Line& line = LineAt(index);
        const TCTypeInfo* info = line.blocks > line.measured ? line.receiver->PeekTI() : nullptr;
        if (info == nullptr || !(info->GetSamplerate() > 0.0)) continue;
        const int values = line.receiver->GetBlockLen(0, 0);
        const double length = 1000.0 * values / info->GetSamplerate();
        bytes += static_cast<double>(values) * line.elementSize;
        if (line.blocks == line.depth) node.firstTimestamp = info->GetTimestamp();
        const double end = info->GetTimestamp() - node.firstTimestamp + length;
        signalSeconds = std::max(signalSeconds, end / 1000.0);
        line.signal += static_cast<double>(line.blocks - line.measured) * length;
        line.measured = line.blocks;
        if (node.pace != nullptr) node.pace->HasMade(line.signal);
        return;
    }
}

void Scheduler::Interrupt() {
    interruptSeen = true;
    runlog::StateOf("", Bilingual("interrupted; the sources end their signals",
                                  "unterbrochen; die Quellen beenden ihre Signale")
                            .Text());
    for (Node& node : nodes) {
        if (!node.source || node.ended) continue;
        interrupted = true;
        auto* module = dynamic_cast<TCBaseModuleEx*>(node.module);
        if (module == nullptr) {
            EndSource(node);
            continue;
        }
        module->Interrupt();
        node.stepsLeft = STEPS_AFTER_INTERRUPT;
    }
}

void Scheduler::EndSource(Node& node) {
    node.ended = true;
    ready.Remove(static_cast<int>(&node - nodes.data()));
}

void Scheduler::TellProgress() {
    const auto now = Clock::now();
    if (now < nextProgress) return;
    nextProgress = now + PROGRESS_INTERVAL;
    options.onProgress({signalSeconds, ShareDone(nodes), bytes, Seconds(now - begin)});
}

}  // namespace host
