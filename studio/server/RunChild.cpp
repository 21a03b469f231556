#include "studio/server/RunChild.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>

#include "host/Console.h"
#include "host/FileWait.h"
#include "host/LiveChanges.h"
#include "host/OpenGraph.h"
#include "host/Report.h"
#include "sigweave/platform/PipedProgram.h"
#include "sigweave/platform/Thread.h"
#include "sigweave/services/StringResources.h"
#include "studio/server/Frames.h"
#include "studio/server/Trace.h"

namespace studio {
namespace {

using Json = nlohmann::ordered_json;
using namespace std::chrono_literals;

constexpr auto PICTURE_INTERVAL = 16'667us;  // 60 a second
constexpr auto FIGURES_INTERVAL = 500ms;
constexpr int FIGURES_PATIENCE = 200;  // ms
constexpr std::size_t MOST_TRACES = 256;

// The traces of one output. The run's thread has a list of its own, and takes over a new one between blocks.
class Tap {
 public:
    using Traces = std::vector<std::shared_ptr<Trace>>;

    void Show(Traces traces) {
        const std::lock_guard lock(mutex);
        next = std::move(traces);
        hasNext.store(true, std::memory_order_release);
    }
    // The thread of the run.
    void Add(const TCIOStream::Block& block) {
        if (hasNext.load(std::memory_order_acquire)) TakeOver();
        for (const auto& trace : shown) trace->Add(block);
    }
    void PublishAll() {
        for (const auto& trace : shown) trace->Publish();
    }

 private:
    void TakeOver() {
        const std::lock_guard lock(mutex);  // which the other side holds for an exchange of pointers
        shown.swap(next);
        hasNext.store(false, std::memory_order_relaxed);
    }

    std::mutex mutex;
    std::atomic<bool> hasNext{false};
    Traces next;
    Traces shown;
};

class Child {
 public:
    explicit Child(std::FILE* pipe) : frames(pipe) {}

    int Run(const Json& order);

 private:
    void Open(const Json& order);
    void AddWatches(host::RunOptions& options);
    void Listen();
    void Obey(const Json& line);
    void Watch(const Json& wishes);
    void Look();
    void SendPictures();
    void SendOutcomes();
    void SendFigures();
    void AddStuck(Json& json, int module);

    Frames frames;
    std::unique_ptr<host::OpenGraph> open;
    host::RunGauge gauge;
    host::Interruption interruption;
    host::LiveChanges changes;
    std::map<std::string, std::unique_ptr<Tap>> taps;  // by instance.Output; fixed before the run
    std::mutex mutex;                                  // of the next
    std::map<int, std::shared_ptr<Trace>> traces;      // by the server's key
    std::condition_variable ends;
    bool ended = false;

    // Of the thread that looks.
    std::vector<std::string> waitedFiles;  // of each module the one that may keep it waiting; empty: none
    int stuck = -1;                        // the module in which the run did not answer
    std::chrono::steady_clock::time_point stuckSince;
};

void Child::Open(const Json& order) {
    host::GraphSource source;
    source.path = order.value("path", "");
    source.text = order.value("text", "");
    source.folders = order.value("folders", std::vector<std::string>());
    open = std::make_unique<host::OpenGraph>(source);
}

// Of every output, so that any can be looked at later; one that nobody looks at costs reading a flag.
void Child::AddWatches(host::RunOptions& options) {
    const std::vector<host::RunModule> modules = open->graph.Modules();
    for (std::size_t index = 0; index < modules.size(); ++index) {
        TCBaseModule& module = *modules[index].module;
        waitedFiles.push_back(host::FirstThatMayWait(host::FilesOf(module)));
        for (int output = 0; output < module.GetNoOutput(); ++output) {
            auto& tap = taps[modules[index].instance + "." + module.GetOutputName(output)];
            tap = std::make_unique<Tap>();
            options.watches.push_back({static_cast<int>(index), output,
                                       [at = tap.get()](const TCIOStream::Block& block) { at->Add(block); }});
        }
    }
}

int Child::Run(const Json& order) {
    Spectrogram::Prepare();
    Open(order);
    host::RunReport report;
    std::vector<host::Message> warnings;
    if (!open->mistakes.IsEmpty()) {
        report.verdict = host::Verdict::Mistakes;
        report.mistakes = open->mistakes.InOrder();
    } else {
        host::RunOptions options;
        options.interruption = &interruption;
        options.gauge = &gauge;
        options.changes = &changes;
        options.realtime = order.value("realtime", false);
        AddWatches(options);
        if (order.contains("watch")) Watch(order["watch"]);
        frames.Send({{"started", true}});
        const host::RunWait wait(gauge, open->graph.Modules(), interruption, [] { std::_Exit(130); });
        tc::Thread looking("look", [this] { Look(); });
        // It waits for the server's next line, perhaps for ever: the process ends without it.
        static tc::Thread* const listening = new tc::Thread("listen", [this] { Listen(); });
        (void)listening;
        report = open->Run(options, warnings);
        for (auto& [name, tap] : taps) tap->PublishAll();
        const std::lock_guard lock(mutex);
        ended = true;
        ends.notify_all();
    }
    report.messages = host::messages::Take(report.messagesLeftOut);
    for (const auto& all : {open->graph.Warnings(), warnings})
        report.messages.insert(report.messages.end(), all.begin(), all.end());
    SendPictures();
    const std::string path = order.value("path", "");
    frames.Send({{"report", Json::parse(host::WriteJson(report, path), nullptr, false)},
                 {"verdict", host::WriteVerdict(report, path)}});
    return report.verdict == host::Verdict::Complete ? 0 : 1;
}

void Child::Listen() {
    for (std::string line; std::getline(std::cin, line);) {
        const Json parsed = Json::parse(line, nullptr, false);
        try {
            if (parsed.is_object()) Obey(parsed);
        } catch (const Json::exception&) {  // not what the server sends
        }
    }
    interruption.Raise();
}

void Child::Obey(const Json& line) {
    if (line.contains("stop")) interruption.Raise();
    if (line.contains("watch")) Watch(line["watch"]);
    if (line.contains("set"))
        changes.Add({line["set"].value("instance", ""), line["set"].value("parameter", ""),
                     line["set"].value("value", "")});
}

// The whole list each time; traces that stay keep what they have seen.
void Child::Watch(const Json& wishes) {
    const std::lock_guard lock(mutex);
    std::map<int, std::shared_ptr<Trace>> wanted;
    std::map<std::string, Tap::Traces> ofTaps;
    for (const auto& [name, tap] : taps) ofTaps[name];
    for (const Json& one : wishes) {
        if (wanted.size() >= MOST_TRACES) break;
        Wish wish;
        const int key = one.value("key", 0);
        wish.port = one.value("port", "");
        KindOf(one.value("kind", ""), wish.kind);
        wish.seconds = one.value("seconds", 1.0);
        wish.samples = one.value("samples", 1024);
        wish.triggers = one.value("triggers", false);
        wish.level = one.value("level", 0.0);
        const auto known = traces.find(key);
        wanted[key] = known != traces.end() ? known->second : std::make_shared<Trace>(wish);
        if (ofTaps.contains(wish.port)) ofTaps[wish.port].push_back(wanted[key]);
    }
    traces = std::move(wanted);
    for (auto& [name, list] : ofTaps) taps[name]->Show(std::move(list));
}

void Child::Look() {
    auto nextFigures = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex);
    auto nextPictures = nextFigures + PICTURE_INTERVAL;
    while (!ends.wait_until(lock, nextPictures, [this] { return ended; })) {
        lock.unlock();
        SendPictures();
        SendOutcomes();
        const auto time = std::chrono::steady_clock::now();
        nextPictures = std::max(nextPictures + PICTURE_INTERVAL, time + PICTURE_INTERVAL / 4);
        if (time >= nextFigures) {
            nextFigures = time + FIGURES_INTERVAL;
            SendFigures();
        }
        lock.lock();
    }
}

void Child::SendPictures() {
    std::map<int, std::shared_ptr<Trace>> all;
    {
        const std::lock_guard lock(mutex);
        all = traces;
    }
    bool some = false;
    for (const auto& [key, trace] : all) {
        Picture picture;
        if (!trace->Take(picture)) continue;
        frames.Send('P', Encode(picture, key, trace->GetWish().kind));
        some = true;
    }
    if (some) frames.Send('E', "");
}

// What became of changes of live parameters.
void Child::SendOutcomes() {
    for (const host::ChangeOutcome& outcome : changes.TakeOutcomes())
        frames.Send({{"set",
                      {{"instance", outcome.change.instance},
                       {"parameter", outcome.change.parameter},
                       {"value", outcome.change.value},
                       {"block", outcome.change.block},
                       {"refusal", outcome.refusal}}}});
}

// How long one call of a module has taken already, and for what it may be waiting.
void Child::AddStuck(Json& json, int module) {
    const auto now = std::chrono::steady_clock::now();
    if (module != stuck) stuckSince = now;
    stuck = module;
    if (module < 0) return;
    json["stuck"] = std::chrono::duration<double>(now - stuckSince).count();
    const std::string& file = waitedFiles[static_cast<std::size_t>(module)];
    if (!file.empty()) json["file"] = file;
}

void Child::SendFigures() {
    host::RunFigures figures;
    const bool answered = gauge.Ask(figures, FIGURES_PATIENCE);
    const int busy = gauge.Current();
    Json json = {{"busy", busy}};
    AddStuck(json, answered ? -1 : busy);
    if (answered) {
        json["seconds"] = figures.seconds;
        for (const auto& module : figures.modules)
            json["modules"].push_back({module.steps, module.blocksIn, module.blocksOut, module.seconds});
        for (const auto& line : figures.lines)
            json["lines"].push_back({line.blocks, line.depth, line.deepest, line.trend});
    }
    frames.Send({{"figures", std::move(json)}});
}

}  // namespace

int RunChild() {
    std::FILE* const pipe = std::fopen(tc::PipedProgram::REPORT_PATH, "wb");
    std::string line;
    if (pipe == nullptr || !std::getline(std::cin, line)) return 2;
    const Json order = Json::parse(line, nullptr, false);
    if (!order.is_object()) return 2;
    host::console::BeSilent();
    TCSetLoadStrResLanguage(order.value("language", 0));
    static Child child(pipe);
    const int code = child.Run(order);
    std::fflush(pipe);
    std::_Exit(code);  // a thread waits at standard input
}

}  // namespace studio
