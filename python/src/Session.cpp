#include "python/src/Session.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>

#include "host/Guard.h"
#include "sigweave/services/Bilingual.h"

namespace python {
namespace {

using tc::Bilingual;

std::mutex opening;  // the modules of one graph at a time are made and checked

bool HasMeaning(TCBaseModule& module, int output, const char* meaning) {
    const char* type = nullptr;
    int items = 0;
    module.GetPortType(OUTPUT, output, type, items);
    return type != nullptr && std::strstr(type, meaning) != nullptr;
}

}  // namespace

std::shared_ptr<LiveBlock> BlockPool::Take() {
    std::unique_ptr<LiveBlock> block;
    {
        const std::lock_guard lock(mutex);
        ++held;
        if (!free.empty()) {
            block = std::move(free.back());
            free.pop_back();
        }
    }
    if (block == nullptr) block = std::make_unique<LiveBlock>();
    return {block.release(), [pool = shared_from_this()](LiveBlock* back) {
                std::unique_ptr<LiveBlock> owned(back);
                const std::lock_guard lock(pool->mutex);
                --pool->held;
                pool->free.push_back(std::move(owned));
            }};
}

std::int64_t BlockPool::Held() const {
    const std::lock_guard lock(mutex);
    return held;
}

Session::Session(Request what) : request(std::move(what)) {}

Session::~Session() {
    Close();
}

void Session::Close() {
    Interrupt();
    thread = nullptr;
    const std::lock_guard lock(mutex);
    waiting.clear();
}

void Session::Start() {
    thread = std::make_unique<tc::Thread>("sigweave run", [this] { Work(); });
}

bool Session::Wait(int milliseconds) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return isOver; });
}

void Session::Interrupt() {
    interruption.Raise();
    const std::lock_guard lock(mutex);
    isClosed = true;
    changed.notify_all();
}

std::shared_ptr<LiveBlock> Session::Next(int milliseconds, bool& ended) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, std::chrono::milliseconds(milliseconds),
                     [this] { return isOver || !waiting.empty(); });
    ended = isOver && waiting.empty();
    if (waiting.empty()) return nullptr;
    std::shared_ptr<LiveBlock> block = std::move(waiting.front());
    waiting.pop_front();
    changed.notify_all();
    return block;
}

host::RunProgress Session::Progress() {
    const std::lock_guard lock(mutex);
    return progress;
}

int Session::LineOf(const std::string& instance) const {
    const auto found = std::ranges::find(places, instance, &std::pair<std::string, int>::first);
    return found != places.end() ? found->second : 0;
}

void Session::Work() {
    const std::string thrown = host::WhatItThrows([this] { OpenAndRun(); });
    const std::lock_guard lock(mutex);
    trouble = isOutOfMemory ? Bilingual(
                                  "there is no memory for the blocks of %1; keep fewer outputs, or shorter "
                                  "signals",
                                  "für die Blöcke von %1 ist kein Speicher da; behalten Sie weniger "
                                  "Ausgänge oder kürzere Signale")
                                  .With({request.outputs[0]})
                            : thrown;
    isOver = true;
    changed.notify_all();
}

void Session::OpenAndRun() {
    host::messages::Collection collection;
    std::unique_lock lock(opening);
    host::OpenGraph open(request.source);
    std::vector<host::OutputWatch> watches;
    for (const std::string& name : request.outputs)
        if (const auto watch = open.WatchOutput(name, {"output '" + name + "'"})) watches.push_back(*watch);
    lock.unlock();
    Check(open);
    std::vector<host::Message> idle;
    if (report.verdict != host::Verdict::Mistakes && !request.checkOnly) {
        report = open.Run(OptionsFor(open, std::move(watches)), idle);
        for (const host::Message& warning : idle) collection.list.Add(warning);
    }
    report.messages = collection.list.Take(report.messagesLeftOut);
}

void Session::Check(host::OpenGraph& open) {
    for (const host::InstanceEntry& entry : open.file.GetInstances())
        places.emplace_back(entry.name, entry.place.line);
    for (const std::string& problem : open.catalogue.Problems())
        host::messages::Add({host::Severity::Warning, "", problem, {}, false});
    modules = static_cast<int>(open.graph.Modules().size());
    lines = static_cast<int>(open.graph.Lines().size());
    if (open.mistakes.IsEmpty()) {
        for (const host::Message& warning : open.graph.Warnings()) host::messages::Add(warning);
        return;
    }
    report.verdict = host::Verdict::Mistakes;
    report.mistakes = open.mistakes.InOrder();
    const bool isAnyUnknown = std::ranges::any_of(
        open.file.GetInstances(),
        [&](const host::InstanceEntry& entry) { return open.catalogue.Find(entry.module) == nullptr; });
    if (!isAnyUnknown) return;
    const host::Place place{"module path", 0};
    for (const std::string& problem : open.catalogue.Problems())  // may be why
        report.mistakes.push_back({place, problem});
}

host::RunOptions Session::OptionsFor(host::OpenGraph& open, std::vector<host::OutputWatch> watches) {
    host::RunOptions options;
    options.realtime = request.realtime;
    options.threads = request.threads;
    options.interruption = &interruption;
    options.onProgress = [this](const host::RunProgress& now) {
        const std::lock_guard guard(mutex);
        progress = now;
    };
    options.onWarning = [](const std::string& text) {
        host::messages::Add({host::Severity::Warning, "", text, {}, false});
    };
    kept.resize(watches.size());
    counts.resize(watches.size());
    const std::vector<host::RunModule> all = open.graph.Modules();
    for (std::size_t i = 0; i < watches.size(); ++i) {
        host::OutputWatch& watch = watches[i];
        kept[i].SetSpectrum(
            HasMeaning(*all[static_cast<std::size_t>(watch.module)].module, watch.output, "{FREQ_DOMAIN}"));
        watch.onBlock = [this, i](const TCIOStream::Block& block) { Take(i, block); };
    }
    options.watches = std::move(watches);
    return options;
}

// Without memory for what is to be kept the run ends in an orderly way.
void Session::Take(std::size_t output, const TCIOStream::Block& block) {
    if (isOutOfMemory) return;
    try {
        if (request.capacity > 0)
            HandOn(output, block);
        else
            kept[output].Append(block);
    } catch (const std::bad_alloc&) {
        isOutOfMemory = true;
        interruption.Raise();
    }
}

// The run waits while too many blocks do.
void Session::HandOn(std::size_t output, const TCIOStream::Block& block) {
    std::shared_ptr<LiveBlock> copy = pool->Take();
    copy->output = request.outputs[output];
    copy->number = counts[output]++;
    copy->track.Clear();  // what it held before is used again
    copy->track.SetSpectrum(kept[output].isSpectrum);
    copy->track.Append(block);
    std::unique_lock lock(mutex);
    changed.wait(lock,
                 [this] { return isClosed || waiting.size() < static_cast<std::size_t>(request.capacity); });
    if (isClosed) return;
    waiting.push_back(std::move(copy));
    changed.notify_all();
}

}  // namespace python
