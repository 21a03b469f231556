#include "host/Runner.h"

#include <algorithm>
#include <cstring>
#include <thread>

#include "host/FileWait.h"
#include "host/Guard.h"
#include "host/LiveChanges.h"
#include "host/Report.h"
#include "host/Topology.h"
#include "host/parts/PlaceRun.h"
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

// --- Parts

// Before anything is joined: cut lines are joined otherwise.
void Runner::Divide() {
    if (options.place != nullptr) return DivideIntoPlaces();
    const int most =
        options.threads > 0 ? options.threads : static_cast<int>(std::thread::hardware_concurrency());
    if (most <= 1) return;
    const PartPlan plan = MakePartPlan(PlanModules(), PlanLines(), most);
    TellDivision(plan);
    if (plan.count == 1) return;
    std::vector<int> parts(modules.size());
    for (std::size_t place = 0; place < order.size(); ++place)
        parts[static_cast<std::size_t>(order[place])] = plan.PartOf(static_cast<int>(place));
    parted = std::make_unique<PartedRun>(plan.count, std::move(parts), lines);
}

void Runner::DivideIntoPlaces() {
    const PlacePlan& plan = options.place->Plan();
    parted = std::make_unique<PartedRun>(static_cast<int>(plan.places.size()), PartsOf(plan), lines);
}

// By module of the run: gates are where the modules are.
std::vector<int> Runner::PartsOf(const PlacePlan& plan) const {
    std::vector<int> parts = plan.partOf;
    for (std::size_t index = modulesOfGraph; index < modules.size(); ++index) {
        const auto found = std::ranges::find(modules, modules[index].instance, &RunModule::instance);
        parts.push_back(plan.partOf[static_cast<std::size_t>(found - modules.begin())]);
    }
    return parts;
}

std::vector<MisplacedPart> Runner::FindMisplaced(const PlacePlan& plan) const {
    const std::vector<int> parts = PartsOf(plan);
    std::vector<int> byPlace;
    for (const int index : order) byPlace.push_back(parts[static_cast<std::size_t>(index)]);
    std::vector<MisplacedPart> found = host::FindMisplaced(PlanModules(), PlanLines(), byPlace);
    for (MisplacedPart& misplaced : found)
        if (misplaced.module >= 0) misplaced.module = order[static_cast<std::size_t>(misplaced.module)];
    std::erase_if(found, [&](const MisplacedPart& misplaced) {
        return misplaced.module >= static_cast<int>(modulesOfGraph) ||
               misplaced.line >= static_cast<int>(linesOfGraph);
    });
    return found;
}

bool Runner::IsHere(int module) const {
    return options.place == nullptr || parted->PartOf(module) == options.place->Plan().own;
}

std::vector<PlannedModule> Runner::PlanModules() const {
    std::vector<PlannedModule> planned;
    for (const int index : order) {
        const auto* const extended = dynamic_cast<const TCBaseModuleEx*>(&Module(index));
        PlannedModule& module = planned.emplace_back();
        module.name = Name(index);
        module.isSource = Module(index).GetTypeOfModule() == 1;
        if (extended != nullptr) module.placement = extended->GetPlacement();
        module.pinned = WhyPinned(index);
    }
    return planned;
}

// Why the module must be where the sources are, besides what it declares; empty: nothing.
std::string Runner::WhyPinned(int index) const {
    const bool isDriven =
        std::ranges::any_of(gates, [&](const auto& gate) { return Name(index) == gate->GetInstanceName(); });
    if (isDriven) return Bilingual("signals drive its parameters", "Signale steuern seine Parameter").Text();
    if (!options.watches.empty())
        return Bilingual("outputs are watched", "Ausgänge werden beobachtet").Text();
    if (options.changes != nullptr && options.changes->Concern(Name(index)))
        return Bilingual("its parameters are changed in the run", "seine Parameter werden im Lauf geändert")
            .Text();
    if (!FirstThatMayWait(FilesOf(Module(index))).empty())
        return Bilingual("it may wait for a file that is a pipe or a device",
                         "es wartet womöglich auf eine Datei, die eine Pipe oder ein Gerät ist")
            .Text();
    return "";
}

std::vector<PlannedLine> Runner::PlanLines() const {
    std::vector<int> places(modules.size());
    for (std::size_t place = 0; place < order.size(); ++place)
        places[static_cast<std::size_t>(order[place])] = static_cast<int>(place);
    std::vector<PlannedLine> planned;
    for (const RunLine& line : lines) {
        const char* type = nullptr;
        int items = 0;
        Module(line.from).GetPortType(OUTPUT, line.output, type, items);
        planned.push_back({places[static_cast<std::size_t>(line.from)],
                           places[static_cast<std::size_t>(line.to)],
                           type != nullptr && std::strstr(type, "POINTER") != nullptr});
    }
    return planned;
}

void Runner::TellDivision(const PartPlan& plan) {
    if (!options.onNote) return;
    for (const UncutLine& uncut : plan.uncut) {
        if (uncut.line >= static_cast<int>(linesOfGraph)) continue;
        const RunLine& line = lines[static_cast<std::size_t>(uncut.line)];
        const std::string to = line.gatePort >= 0
                                   ? Name(line.to)
                                   : Name(line.to) + "." + Text(Module(line.to).GetInputName(line.input));
        options.onNote(Bilingual("%1=%2 stays on one thread: %3", "%1=%2 bleibt auf einem Thread: %3")
                           .With({PortText(line.from, OUTPUT, line.output), to, uncut.reason}));
    }
    std::vector<std::string> names(static_cast<std::size_t>(plan.count));
    for (std::size_t place = 0; place < order.size(); ++place)
        if (order[place] < static_cast<int>(modulesOfGraph))
            Append(names[static_cast<std::size_t>(plan.partOf[place])], Name(order[place]));
    std::string text;
    for (std::size_t part = 0; part < names.size(); ++part)
        text += (part > 0 ? "; " : "") + std::to_string(part + 1) + ": " + names[part];
    options.onNote(Bilingual("threads: %1", "Threads: %1").With({text}));
}

// --- The run

RunReport Runner::Run() {
    tc::Clock& clock = options.clock != nullptr ? *options.clock : tc::MachineClock();
    const double begin = clock.Milliseconds();
    Divide();
    Join();
    if (report.verdict == Verdict::Complete && Begin())
        Step();
    else if (options.place != nullptr)
        options.place->GiveUp();
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
    const Scheduler* const stepping = Scheduler::Current();
    const int module = stepping != nullptr ? stepping->SteppedModule() : called;
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
        TCIOStream* receiver =
            IsHere(line.to) ? Receiver(line).SetInputStream(port, 0, TEXT_DIGITS) : nullptr;
        if (receiver != nullptr || !IsHere(line.to))
            Join(static_cast<std::size_t>(&line - lines.data()), receiver);
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

void Runner::Join(std::size_t index, TCIOStream* receiver) {
    const RunLine& line = lines[index];
    const int number = static_cast<int>(index);
    CutOutput* const cut = parted != nullptr ? parted->CutOf(number) : nullptr;
    if (cut == nullptr && !IsHere(line.from)) return;
    if (cut == nullptr) return Module(line.from).AddOutputStream(line.output, receiver);
    if (receiver != nullptr) parted->SetReceiver(number, receiver);
    if (parted->IsFirst(number) && IsHere(line.from))
        Module(line.from).AddOutputStream(line.output, &cut->sink);
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
        ++initialised;
        if (!IsHere(index)) continue;
        Calls(index);
        int code = 0;
        const std::string thrown = WhatItThrows([&] {
            module.ComputeValidationData(CALLED_FROM_RUN);
            module.GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
            module.GetMessageA(TCPortHelper::MESSAGE_FIRST_IN_CYCLE, 1);
            OfferFacts(index);
            code = module.Init();
        });
        if (parted != nullptr && options.place == nullptr) parted->PassOn();
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

void Runner::AddNode(int index, SchedulerParts& made, std::vector<int>& positions) const {
    TCBaseModule& module = Module(index);
    const bool source = module.GetTypeOfModule() == 1;
    positions[static_cast<std::size_t>(index)] = made.wiring.AddModule(source);
    Scheduler::Node& node = made.nodes.emplace_back();
    node.module = &module;
    node.number = index;
    node.name = &Name(index);
    node.source = source;
    node.gate = modules[static_cast<std::size_t>(index)].gate;
    if (source && options.realtime)
        node.pace =
            std::make_unique<SourcePace>(options.clock != nullptr ? *options.clock : tc::MachineClock());
}

// A line that comes from another part leads from the node `feed`; the cut lines of an output are one, to the
// node `exit`.
void Runner::AddLine(std::size_t index, int part, const std::vector<int>& positions,
                     std::set<std::pair<int, int>>& outputs, SchedulerParts& made) const {
    const RunLine& line = lines[index];
    const bool leaves = !IsIn(line.to, part);
    if (!IsIn(line.from, part) && leaves) return;
    if (leaves && !parted->IsFirst(static_cast<int>(index))) return;
    Scheduler::Line added = MakeLine(index);
    if (leaves) added.receiver = &parted->CutOf(static_cast<int>(index))->sink;
    added.number = leaves || index >= linesOfGraph ? -1 : static_cast<int>(index);
    const bool isFirst = outputs.erase({line.from, line.output}) > 0;
    const auto at = [&](int module, int otherwise) {
        return IsIn(module, part) ? positions[static_cast<std::size_t>(module)] : otherwise;
    };
    added.lineOfRun = leaves ? -1 : static_cast<int>(index);
    made.wiring.AddLine(at(line.from, made.feed), at(line.to, made.exit), isFirst);
    made.lines.push_back(added);
}

// Of one part, or with -1 of all.
SchedulerParts Runner::MakeSchedulerParts(int part) const {
    SchedulerParts made;
    std::vector<int> positions(modules.size());
    std::set<std::pair<int, int>> outputs = WiredOutputs();
    if (part >= 0) {
        made.feed = made.wiring.AddModule(false);
        made.nodes.emplace_back();
    }
    for (std::size_t place = 0; place < order.size(); ++place) {
        const int index = order[place];
        if (!IsIn(index, part)) continue;
        AddNode(index, made, positions);
        made.nodes.back().place = static_cast<int>(place);
        for (int output = 0; output < Module(index).GetNoOutput(); ++output)
            made.nodes.back().makesUnseen =
                made.nodes.back().makesUnseen || !outputs.contains({index, output});
    }
    if (part >= 0) {
        made.exit = made.wiring.AddModule(false);
        made.nodes.emplace_back();
    }
    for (std::size_t index = 0; index < lines.size(); ++index) AddLine(index, part, positions, outputs, made);
    made.wiring.FindSources();
    AddWatches(made.nodes);
    return made;
}

Runner::Outcome Runner::NewOutcome() const {
    Outcome outcome;
    outcome.nodes.resize(modules.size());
    outcome.lines.resize(lines.size());
    outcome.depths.resize(lines.size());
    return outcome;
}

// What one scheduler knows.
void Runner::Collect(const Scheduler& scheduler, Outcome& outcome) {
    for (const Scheduler::Node& node : scheduler.Nodes())
        if (node.module != nullptr) outcome.nodes[static_cast<std::size_t>(node.place)] = &node;
    for (int index = 0; index < static_cast<int>(scheduler.Lines().size()); ++index) {
        const Scheduler::Line& line = scheduler.Lines()[static_cast<std::size_t>(index)];
        if (line.lineOfRun < 0) continue;
        outcome.lines[static_cast<std::size_t>(line.lineOfRun)] = line;
        outcome.depths[static_cast<std::size_t>(line.lineOfRun)] = scheduler.DepthOf(index);
    }
}

void Runner::Step() {
    TellState("", Bilingual("running", "läuft"));
    if (options.place != nullptr) return StepPlace();
    if (parted != nullptr) return StepParts();
    SchedulerParts made = MakeSchedulerParts(-1);
    Scheduler scheduler(std::move(made.wiring), std::move(made.nodes), std::move(made.lines), options);
    Outcome outcome = NewOutcome();
    outcome.end = scheduler.Run();
    outcome.first = &scheduler;
    if (outcome.end == Scheduler::End::Failed) {
        outcome.failed = scheduler.LastStepped();
        outcome.code = scheduler.FailedCode();
        outcome.thrown = scheduler.Thrown();
    }
    Collect(scheduler, outcome);
    Judge(outcome);
}

void Runner::StepParts() {
    parted->Run([this](int part) { return MakeSchedulerParts(part); }, options);
    if (options.threads == 0 && !parted->IsThreaded() && options.onNote)
        options.onNote(
            Bilingual("threads: more than one would not pay", "Threads: mehr als einer lohnt nicht").Text());
    Outcome outcome = NewOutcome();
    outcome.first = &parted->PartAt(0).GetScheduler();
    for (int part = 0; part < parted->Count(); ++part) Collect(parted->PartAt(part).GetScheduler(), outcome);
    if (const int failed = parted->FailedPart(); failed >= 0) {
        const Part& part = parted->PartAt(failed);
        outcome.end = Scheduler::End::Failed;
        outcome.failed = part.GetScheduler().LastStepped();
        outcome.code = part.GetScheduler().FailedCode();
        outcome.thrown = part.OwnFailure().empty() ? part.GetScheduler().Thrown() : part.OwnFailure();
    }
    Judge(outcome);
}

void Runner::StepPlace() {
    const PlaceRun& place = *options.place;
    const int own = place.Plan().own;
    parted->RunPlace([this](int part) { return MakeSchedulerParts(part); }, options);
    const Part& part = parted->PartAt(own);
    Outcome outcome = NewOutcome();
    outcome.first = &part.GetScheduler();
    Collect(part.GetScheduler(), outcome);
    if (part.GetState() == Part::State::Failed) {
        outcome.end = Scheduler::End::Failed;
        outcome.failed = part.GetScheduler().LastStepped();
        outcome.code = part.GetScheduler().FailedCode();
        outcome.thrown = part.OwnFailure().empty() ? part.GetScheduler().Thrown() : part.OwnFailure();
    }
    const bool isOver = part.GetState() == Part::State::Ended && part.FailedPart() < 0;
    if (place.WasInterrupted()) report.verdict = Verdict::Interrupted;
    if (isOver || outcome.end == Scheduler::End::Failed) Judge(outcome);
    if (!isOver && outcome.end != Scheduler::End::Failed) JudgePlace(outcome, part);
}

// It was not a module here that ended the run.
void Runner::JudgePlace(const Outcome& outcome, const Part& part) {
    Calls(-1);
    ReportCounts(outcome);
    const PlaceRun& place = *options.place;
    if (part.GetScheduler().WasInterrupted()) report.verdict = Verdict::Interrupted;
    std::string text = place.GetError();
    if (text.empty() && part.FailedPart() >= 0)
        text = Bilingual("the place %1 failed; its own report says why",
                         "der Ort %1 ist gescheitert; sein eigener Bericht sagt, warum")
                   .With({place.Plan().places[static_cast<std::size_t>(part.FailedPart())]});
    if (text.empty()) return;
    if (options.onError) options.onError(text);
    report.explanation = text;
    report.verdict = Verdict::Failed;
}

void Runner::Judge(const Outcome& outcome) {
    const Scheduler& first = *outcome.first;
    Calls(-1);
    if (first.WasInterrupted()) report.verdict = Verdict::Interrupted;
    if (outcome.end == Scheduler::End::Failed) {
        Fail(order[static_cast<std::size_t>(outcome.failed)], outcome.code, outcome.thrown, RUNNING);
        if (WasInterrupted() && !first.WasInterrupted()) report.verdict = Verdict::Interrupted;  // as above
    } else {
        JudgeStall(outcome);
    }
    report.signalSeconds = first.SignalSeconds();
    report.changes = first.Changes();
    ReportRestOfChanges();
    ReportCounts(outcome);
}

// Also after a failure: a module that holds a file must be able to close it.
void Runner::Finish() {
    for (int position = 0; position < initialised; ++position) {
        const int index = order[static_cast<std::size_t>(position)];
        if (!IsHere(index)) continue;
        Calls(index);
        int code = 0;
        const std::string thrown = WhatItThrows([&] {
            code = Module(index).Done();
            Module(index).GetMessageA(TCPortHelper::MESSAGE_RUNNING, 0);
        });
        if (parted != nullptr && options.place == nullptr) parted->PassOn();
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

void Runner::JudgeStall(const Outcome& outcome) {
    std::string text;
    const auto add = [&](const std::string& part) { text += (text.empty() ? "" : "; ") + part; };
    for (std::size_t position = 0; position < order.size(); ++position) {
        if (outcome.nodes[position] == nullptr) continue;
        if (outcome.nodes[position]->silent && !outcome.nodes[position]->ended)
            add(Bilingual("the source %1 says that it has work but makes no block",
                          "die Quelle %1 meldet Arbeit, erzeugt aber keinen Block")
                    .With({Name(order[position])}));
        const std::string leftovers = DescribeLeftovers(outcome, position);
        if (!leftovers.empty()) add(leftovers);
    }
    if (text.empty()) return;
    report.explanation = text;
    if (report.verdict == Verdict::Complete) report.verdict = Verdict::Stalled;
}

std::string Runner::DescribeLeftovers(const Outcome& outcome, std::size_t position) const {
    std::string starved;
    std::string left;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        if (lines[index].to != order[position]) continue;
        const Scheduler::Line& line = outcome.lines[index];
        const int depth = outcome.depths[index];
        const LineReport& names = report.lines[index];
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
            .With({Name(order[position]), left});
    return Bilingual("starved input: %1, while %2 are waiting", "unversorgter Eingang: %1; es warten %2")
        .With({starved, left});
}

void Runner::ReportCounts(const Outcome& outcome) {
    for (std::size_t position = 0; position < order.size(); ++position) {
        if (outcome.nodes[position] == nullptr) continue;
        ModuleReport& module = report.modules[static_cast<std::size_t>(order[position])];
        module.blocksIn = outcome.nodes[position]->taken;
        module.blocksOut = outcome.nodes[position]->made;
        if (const SourcePace* pace = outcome.nodes[position]->pace.get()) ReportPace(*pace, module);
    }
    for (std::size_t index = 0; index < lines.size(); ++index) {
        report.lines[index].blocks = outcome.lines[index].blocks;
        report.lines[index].deepestQueue = outcome.lines[index].deepest;
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
        if (extended == nullptr || !IsHere(static_cast<int>(index))) continue;
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
