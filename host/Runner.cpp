#include "host/Runner.h"

#include <algorithm>
#include <cstring>

#include "host/Guard.h"
#include "host/Report.h"
#include "host/Topology.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr int TEXT_DIGITS = 9;  // of the text forms of streams

std::string ErrorText(TCBaseModule& module) {
    if (auto* extended = dynamic_cast<TCBaseModuleEx*>(&module)) {
        const std::string text = Text(extended->GetLastErrorText());
        if (!text.empty()) return text;
    }
    return module.GetPortHelper() != nullptr ? std::string(module.GetPortHelper()->GetErrorText())
                                             : std::string();
}

// How a module failed, by what it was doing: instance, module, reason.
constexpr Bilingual WIRING("%1 (%2) failed while being wired: %3", "%1 (%2) schlug beim Verbinden fehl: %3");
constexpr Bilingual STARTING("%1 (%2) failed while starting: %3", "%1 (%2) schlug beim Starten fehl: %3");
constexpr Bilingual RUNNING("%1 (%2) failed while running: %3", "%1 (%2) schlug im Lauf fehl: %3");
constexpr Bilingual FINISHING("%1 (%2) failed while finishing: %3", "%1 (%2) schlug beim Beenden fehl: %3");

void Append(std::string& list, const std::string& item) {
    list += (list.empty() ? "" : ", ") + item;
}

std::string Blocks(std::int64_t count) {
    static constexpr Bilingual ONE("%1 block", "%1 Block");
    static constexpr Bilingual SEVERAL("%1 blocks", "%1 Blöcke");
    return (count == 1 ? ONE : SEVERAL).With({std::to_string(count)});
}

}  // namespace

const char* ToText(Verdict verdict) {
    constexpr const char* WORDS[] = {"complete", "interrupted", "stalled", "failed", "mistakes", "gaps"};
    return WORDS[static_cast<int>(verdict)];
}

Runner::Runner(std::vector<RunModule> runModules, std::vector<RunLine> runLines, RunOptions runOptions)
    : modules(std::move(runModules)),
      lines(std::move(runLines)),
      modulesOfGraph(modules.size()),
      linesOfGraph(lines.size()),
      gates(InsertGates(modules, lines)),
      options(std::move(runOptions)) {
    for (const auto& gate : gates) gate->onWarning = options.onWarning;
    std::vector<std::pair<int, int>> edges;
    for (const RunLine& line : lines) edges.emplace_back(line.from, line.to);
    order = SortTopologically(static_cast<int>(modules.size()), edges).order;
}

RunReport Runner::Run() {
    tc::Clock& clock = options.clock != nullptr ? *options.clock : tc::MachineClock();
    const double begin = clock.Milliseconds();
    Join();
    if (report.verdict == Verdict::Complete && Begin()) Step();
    Finish();
    ReportResults();
    JudgeGaps();
    ReportDriven();
    for (const RunModule& entry : modules) entry.module->DeleteStreams();
    for (const auto& gate : gates) gate->DeleteStreams();
    Calls(-1);
    report.modules.resize(modulesOfGraph);
    report.lines.resize(linesOfGraph);
    report.seconds = (clock.Milliseconds() - begin) / 1000.0;
    return std::move(report);
}

std::string Runner::Speaker() const {
    const int module =
        stepping != nullptr ? order[static_cast<std::size_t>(std::max(stepping->Position(), 0))] : called;
    return module >= 0 ? Name(module) : std::string();
}

void Runner::Calls(int module) {
    called = module;
    const bool isOfGraph = module < static_cast<int>(modulesOfGraph);
    if (options.gauge != nullptr) options.gauge->Calls(isOfGraph ? module : -1);
}

bool Runner::WasInterrupted() const {
    return options.interruption != nullptr && options.interruption->IsRaised();
}

void Runner::TellState(const std::string& instance, const Bilingual& state) const {
    if (options.onState) options.onState(instance, state.Text());
}

void Runner::Join() {
    for (const RunLine& line : lines) {
        const int port = line.gatePort >= 0 ? line.gatePort : line.input;
        TCIOStream* receiver = Receiver(line).SetInputStream(port, 0, TEXT_DIGITS);
        if (receiver != nullptr)
            Module(line.from).AddOutputStream(line.output, receiver);
        else
            Fail(line.to, 0,
                 Bilingual("it has no stream for an input that it declares",
                           "es hat keinen Strom für einen Eingang, den es nennt")
                     .Text(),
                 WIRING);
        streams.push_back(receiver);
        report.lines.push_back({PortText(line.from, OUTPUT, line.output),
                                Name(line.to) + "." + Text(Receiver(line).GetInputName(port))});
    }
    for (const OutputWatch& watch : options.watches) {
        watchStreams.push_back(nullptr);
        if (FirstLineOf(watch.module, watch.output) >= 0) continue;
        watchStreams.back() = std::make_unique<TCIOStream>();
        Module(watch.module).AddOutputStream(watch.output, watchStreams.back()->SetInputStream(TEXT_DIGITS));
    }
    for (const RunModule& entry : modules)
        report.modules.push_back({entry.instance, Text(entry.module->GetModuleId()), 0, 0, {}});
}

TCBaseModule& Runner::Receiver(const RunLine& line) const {
    ParameterGate* const gate = modules[static_cast<std::size_t>(line.to)].gate;
    return line.gatePort >= 0 && gate != nullptr ? *gate : Module(line.to);
}

std::string Runner::PortText(int module, int kind, int port) const {
    return Name(module) + "." +
           Text(kind == INPUT ? Module(module).GetInputName(port) : Module(module).GetOutputName(port));
}

bool Runner::Begin() {
    for (const int index : order) {
        TCBaseModule& module = Module(index);
        Calls(index);
        ++initialised;
        int code = 0;
        const std::string thrown = WhatItThrows([&] {
            module.ComputeValidationData(CALLED_FROM_RUN);
            module.GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
            module.GetMessageA(TCPortHelper::MESSAGE_FIRST_IN_CYCLE, 1);
            OfferFacts(index);
            code = module.Init();
        });
        if (code >= 0 && thrown.empty()) {
            if (index < static_cast<int>(modulesOfGraph))
                TellState(Name(index), Bilingual("started", "gestartet"));
            continue;
        }
        Fail(index, code, thrown, STARTING);
        if (WasInterrupted()) report.verdict = Verdict::Interrupted;  // which ended a wait for a file
        return false;
    }
    return true;
}

void Runner::OfferFacts(int index) {
    auto* const extended = dynamic_cast<TCBaseModuleEx*>(&Module(index));
    if (options.facts != nullptr && extended != nullptr)
        extended->OfferRunFacts(*options.facts, Name(index).c_str());
}

Scheduler::Line Runner::MakeLine(std::size_t index) const {
    const RunLine& line = lines[index];
    const char* type = nullptr;
    int items = 0;
    Module(line.from).GetPortType(OUTPUT, line.output, type, items);
    const bool isTimed = type == nullptr || std::strstr(type, "{FREQ_DOMAIN}") == nullptr;
    const TCPortHelper* helper = Module(line.from).GetPortHelper();
    const int size = helper != nullptr ? helper->ElemSize(OUTPUT, static_cast<unsigned>(line.output)) : 0;
    Scheduler::Line made;
    made.receiver = streams[index];
    made.elementSize = size;
    made.isTimed = isTimed;
    made.gatePort = line.gatePort;
    return made;
}

// -1 when it has none.
int Runner::FirstLineOf(int module, int output) const {
    const auto found = std::ranges::find_if(
        lines, [&](const RunLine& line) { return line.from == module && line.output == output; });
    return found != lines.end() ? static_cast<int>(found - lines.begin()) : -1;
}

// Nodes are in the order of the steps.
void Runner::AddWatches(std::vector<Scheduler::Node>& nodes) const {
    for (std::size_t index = 0; index < options.watches.size(); ++index) {
        const OutputWatch& watch = options.watches[index];
        const int line = FirstLineOf(watch.module, watch.output);
        const auto node = std::ranges::find(nodes, watch.module, &Scheduler::Node::number);
        TCIOStream* receiver =
            line >= 0 ? streams[static_cast<std::size_t>(line)] : watchStreams[index].get();
        node->watches.push_back({&watch, receiver, line, 0});
    }
}

std::set<std::pair<int, int>> Runner::WiredOutputs() const {
    std::set<std::pair<int, int>> wired;
    for (const RunLine& line : lines) wired.emplace(line.from, line.output);
    return wired;
}

Scheduler Runner::MakeScheduler() const {
    std::vector<int> positions(modules.size());
    std::vector<Scheduler::Node> nodes;
    std::set<std::pair<int, int>> outputs = WiredOutputs();
    Wiring wiring;
    for (const int index : order) {
        TCBaseModule& module = Module(index);
        const bool source = module.GetTypeOfModule() == 1;
        bool unseen = false;
        for (int output = 0; output < module.GetNoOutput(); ++output)
            unseen = unseen || !outputs.contains({index, output});
        positions[static_cast<std::size_t>(index)] = wiring.AddModule(source);
        Scheduler::Node& node = nodes.emplace_back();
        node.module = &module;
        node.number = index;
        node.name = &Name(index);
        node.source = source;
        node.makesUnseen = unseen;
        node.gate = modules[static_cast<std::size_t>(index)].gate;
        if (source && options.realtime)
            node.pace =
                std::make_unique<SourcePace>(options.clock != nullptr ? *options.clock : tc::MachineClock());
    }
    std::vector<Scheduler::Line> wired;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const RunLine& line = lines[index];
        wiring.AddLine(positions[static_cast<std::size_t>(line.from)],
                       positions[static_cast<std::size_t>(line.to)],
                       outputs.erase({line.from, line.output}) > 0);
        wired.push_back(MakeLine(index));
    }
    wiring.FindSources();
    AddWatches(nodes);
    return Scheduler(std::move(wiring), std::move(nodes), std::move(wired), options);
}

void Runner::Step() {
    Scheduler scheduler = MakeScheduler();
    stepping = &scheduler;
    TellState("", Bilingual("running", "läuft"));
    const Scheduler::End end = scheduler.Run();
    stepping = nullptr;
    Calls(-1);
    if (scheduler.WasInterrupted()) report.verdict = Verdict::Interrupted;
    if (end == Scheduler::End::Failed) {
        Fail(order[static_cast<std::size_t>(scheduler.Position())], scheduler.FailedCode(),
             scheduler.Thrown(), RUNNING);
        if (WasInterrupted() && !scheduler.WasInterrupted())
            report.verdict = Verdict::Interrupted;  // as above
    } else {
        JudgeStall(scheduler);
    }
    report.signalSeconds = scheduler.SignalSeconds();
    report.changes = scheduler.Changes();
    ReportRestOfChanges();
    ReportCounts(scheduler);
}

// Also after a failure: a module that holds a file must be able to close it.
void Runner::Finish() {
    for (int position = 0; position < initialised; ++position) {
        const int index = order[static_cast<std::size_t>(position)];
        Calls(index);
        int code = 0;
        const std::string thrown = WhatItThrows([&] {
            code = Module(index).Done();
            Module(index).GetMessageA(TCPortHelper::MESSAGE_RUNNING, 0);
        });
        if (code < 0 || !thrown.empty())
            Fail(index, code, thrown, FINISHING);
        else if (index < static_cast<int>(modulesOfGraph))
            TellState(Name(index), Bilingual("finished", "beendet"));
    }
}

void Runner::Fail(int module, int code, const std::string& thrown, const Bilingual& failure) {
    std::string reason = thrown.empty() ? ErrorText(Module(module)) : thrown;
    if (reason.empty())
        reason = Bilingual("the module gave no reason (code %1)", "das Modul nannte keinen Grund (Code %1)")
                     .With({std::to_string(code)});
    const std::string text = failure.With({Name(module), Module(module).GetModuleName(), reason});
    if (options.onError) options.onError(text);
    report.failures.push_back({Name(module), code, FailedPort(module), reason});
    report.explanation +=
        (report.verdict == Verdict::Failed ? Bilingual("; then ", "; dann ").Text() : "") + text;
    report.verdict = Verdict::Failed;
}

std::string Runner::FailedPort(int module) const {
    const TCPortHelper* const helper = Module(module).GetPortHelper();
    if (helper == nullptr || helper->GetErrorRecord().code >= 0) return "";
    const TCPortError& error = helper->GetErrorRecord();
    const int count = error.kind == INPUT ? Module(module).GetNoInput() : Module(module).GetNoOutput();
    if (error.portIndex < 0 || error.portIndex >= count) return "";
    return PortText(module, error.kind, error.portIndex);
}

void Runner::JudgeStall(const Scheduler& scheduler) {
    std::string text;
    const auto add = [&](const std::string& part) { text += (text.empty() ? "" : "; ") + part; };
    for (std::size_t position = 0; position < order.size(); ++position) {
        if (scheduler.Nodes()[position].silent && !scheduler.Nodes()[position].ended)
            add(Bilingual("the source %1 says that it has work but makes no block",
                          "die Quelle %1 meldet Arbeit, erzeugt aber keinen Block")
                    .With({Name(order[position])}));
        const std::string leftovers = DescribeLeftovers(scheduler, static_cast<int>(position));
        if (!leftovers.empty()) add(leftovers);
    }
    if (text.empty()) return;
    report.explanation = text;
    if (report.verdict == Verdict::Complete) report.verdict = Verdict::Stalled;
}

std::string Runner::DescribeLeftovers(const Scheduler& scheduler, int position) const {
    std::string starved;
    std::string left;
    for (const int index : scheduler.GetWiring().ModuleAt(position).inputs) {
        const Scheduler::Line& line = scheduler.Lines()[static_cast<std::size_t>(index)];
        const int depth = scheduler.DepthOf(index);
        const LineReport& names = report.lines[static_cast<std::size_t>(index)];
        if (depth == 0)
            Append(starved, Bilingual("%1 (fed by %2 with %3)", "%1 (von %2 kamen %3)")
                                .With({names.to, names.from, Blocks(line.blocks)}));
        else
            Append(left, Bilingual("%1 at %2", "%1 an %2").With({Blocks(depth), names.to}));
    }
    if (left.empty()) return "";
    if (starved.empty())
        return Bilingual("%1 did not take the blocks that wait for it: %2",
                         "%1 nahm die wartenden Blöcke nicht: %2")
            .With({Name(order[static_cast<std::size_t>(position)]), left});
    return Bilingual("starved input: %1, while %2 are waiting", "unversorgter Eingang: %1; es warten %2")
        .With({starved, left});
}

void Runner::ReportCounts(const Scheduler& scheduler) {
    for (std::size_t position = 0; position < order.size(); ++position) {
        ModuleReport& module = report.modules[static_cast<std::size_t>(order[position])];
        module.blocksIn = scheduler.Nodes()[position].taken;
        module.blocksOut = scheduler.Nodes()[position].made;
        if (const SourcePace* pace = scheduler.Nodes()[position].pace.get()) ReportPace(*pace, module);
    }
    for (std::size_t index = 0; index < lines.size(); ++index) {
        report.lines[index].blocks = scheduler.Lines()[index].blocks;
        report.lines[index].deepestQueue = scheduler.Lines()[index].deepest;
    }
}

void Runner::ReportPace(const SourcePace& pace, ModuleReport& module) const {
    if (pace.SignalMade() == 0.0 && module.blocksOut > 0 && options.onWarning)
        options.onWarning(Bilingual("%1: its blocks have no sample rate, so it was not paced",
                                    "%1: die Blöcke haben keine Abtastrate, daher lief die Quelle ungebremst")
                              .With({module.instance}));
    const Intervals& intervals = pace.GetIntervals();
    constexpr const char* SIGNAL = "real time";
    module.results.push_back({SIGNAL, "intervals", static_cast<double>(intervals.Count()), ""});
    module.results.push_back({SIGNAL, "interval average", intervals.Average(), "ms"});
    module.results.push_back({SIGNAL, "interval maximum", intervals.Maximum(), "ms"});
    module.results.push_back({SIGNAL, "interval deviation", intervals.StandardDeviation(), "ms"});
}

// A change that came after the last block had no effect.
void Runner::ReportRestOfChanges() {
    if (options.changes == nullptr) return;
    for (const LiveChange& change : options.changes->TakeRest())
        if (options.onWarning)
            options.onWarning(Bilingual("%1.%2=%3 had no effect: the run ended before its block",
                                        "%1.%2=%3 blieb ohne Wirkung: der Lauf endete vor seinem Block")
                                  .With({change.instance, change.parameter, change.value}));
}

void Runner::ReportDriven() {
    for (const auto& gate : gates)
        for (ModuleReport& module : report.modules)
            for (const TCExtPar& driven : gate->Parameters())
                if (module.instance == gate->GetInstanceName()) {
                    module.results.push_back(
                        {driven.GetName(), "driving values", static_cast<double>(driven.GetTaken()), ""});
                    module.results.push_back(
                        {driven.GetName(), "refused values", static_cast<double>(driven.GetRefused()), ""});
                }
}

void Runner::ReportResults() {
    for (std::size_t index = 0; index < modulesOfGraph; ++index) {
        const auto* extended = dynamic_cast<const TCBaseModuleEx*>(modules[index].module);
        if (extended == nullptr) continue;
        report.modules[index].gaps = extended->GetGaps();
        for (const TCModuleResult& result : extended->GetResults())
            report.modules[index].results.push_back({std::string(result.signal), std::string(result.quantity),
                                                     result.value, std::string(result.unit)});
    }
}

void Runner::JudgeGaps() {
    for (const ModuleReport& module : report.modules) {
        if (module.gaps.count == 0) continue;
        const std::string text = module.instance + ": " + WriteGaps(module.gaps);
        report.explanation += (report.explanation.empty() ? "" : "; ") + text;
        if (report.verdict == Verdict::Complete) report.verdict = Verdict::Gaps;
    }
}

}  // namespace host
