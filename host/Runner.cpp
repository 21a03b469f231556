#include "host/Runner.h"

#include "host/Guard.h"
#include "host/parts/PlaceRun.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace host {

using tc::Bilingual;

Runner::Runner(std::vector<RunModule> runModules, std::vector<RunLine> runLines, RunOptions runOptions)
    : graph(std::move(runModules), std::move(runLines)),
      options(std::move(runOptions)),
      division(graph, options),
      streams(graph, options, division),
      verdict(graph, options, report),
      results(graph, options, report) {
    for (const auto& gate : graph.gates) gate->onWarning = options.onWarning;
}

RunReport Runner::Run() {
    tc::Clock& clock = options.clock != nullptr ? *options.clock : tc::MachineClock();
    const double begin = clock.Milliseconds();
    division.Divide();
    Join();
    if (report.verdict == Verdict::Complete && Begin())
        Step();
    else if (options.place != nullptr)
        options.place->GiveUp();
    Finish();
    results.AddResults(division);
    verdict.JudgeGaps();
    results.AddDriven();
    DeleteStreams();
    Calls(-1);
    results.RemoveGates();
    report.seconds = (clock.Milliseconds() - begin) / 1000.0;
    return std::move(report);
}

std::string Runner::Speaker() const {
    const Scheduler* const stepping = Scheduler::Current();
    const int module = stepping != nullptr ? stepping->SteppedModule() : called;
    return module >= 0 ? graph.Name(module) : std::string();
}

void Runner::Calls(int module) {
    called = module;
    if (options.gauge != nullptr) options.gauge->Calls(graph.IsOfGraph(module) ? module : -1);
}

void Runner::TellState(const std::string& instance, const Bilingual& state) const {
    if (options.onState) options.onState(instance, state.Text());
}

void Runner::Join() {
    streams.Join([this](int module) {
        verdict.Fail(module, 0,
                     Bilingual("it has no stream for an input that it declares",
                               "es hat keinen Strom für einen Eingang, den es nennt")
                         .Text(),
                     failures::WIRING);
    });
    results.ListAll();
}

bool Runner::Begin() {
    for (const int index : graph.order) {
        TCBaseModule& module = graph.Module(index);
        ++initialised;
        if (!division.IsHere(index)) continue;
        Calls(index);
        int code = 0;
        const std::string thrown = WhatItThrows([&] {
            module.ComputeValidationData(CALLED_FROM_RUN);
            module.GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
            module.GetMessageA(TCPortHelper::MESSAGE_FIRST_IN_CYCLE, 1);
            OfferFacts(index);
            code = module.Init();
        });
        PassOn();
        if (code >= 0 && thrown.empty()) {
            if (graph.IsOfGraph(index)) TellState(graph.Name(index), Bilingual("started", "gestartet"));
            continue;
        }
        verdict.Fail(index, code, thrown, failures::STARTING);
        // An interrupt ended a wait for a file.
        if (options.interruption != nullptr && options.interruption->IsRaised()) verdict.Interrupt();
        return false;
    }
    return true;
}

void Runner::OfferFacts(int module) {
    auto* const extended = dynamic_cast<TCBaseModuleEx*>(&graph.Module(module));
    if (options.facts != nullptr && extended != nullptr)
        extended->OfferRunFacts(*options.facts, graph.Name(module).c_str());
}

// Blocks that were written outside of steps.
void Runner::PassOn() {
    if (division.Parted() != nullptr && options.place == nullptr) division.Parted()->PassOn();
}

void Runner::Step() {
    TellState("", Bilingual("running", "läuft"));
    if (options.place != nullptr) return StepPlace();
    if (division.Parted() != nullptr) return StepParts();
    StepAll();
}

void Runner::StepAll() {
    SchedulerParts made = streams.MakeSchedulerParts(-1);
    Scheduler scheduler(std::move(made.wiring), std::move(made.nodes), std::move(made.lines), options);
    RunOutcome outcome = NewOutcome();
    outcome.first = &scheduler;
    outcome.end = scheduler.Run();
    outcome.Collect(scheduler);
    if (outcome.end == Scheduler::End::Failed) outcome.SetFailed(scheduler);
    Judge(outcome);
}

void Runner::StepParts() {
    PartedRun& parted = *division.Parted();
    parted.Run([this](int part) { return streams.MakeSchedulerParts(part); }, options);
    if (options.threads == 0 && !parted.IsThreaded() && options.onNote)
        options.onNote(
            Bilingual("threads: more than one would not pay", "Threads: mehr als einer lohnt nicht").Text());
    RunOutcome outcome = NewOutcome();
    outcome.first = &parted.PartAt(0).GetScheduler();
    for (int part = 0; part < parted.Count(); ++part) outcome.Collect(parted.PartAt(part).GetScheduler());
    if (const int failed = parted.FailedPart(); failed >= 0) outcome.SetFailed(parted.PartAt(failed));
    Judge(outcome);
}

void Runner::StepPlace() {
    const PlaceRun& place = *options.place;
    PartedRun& parted = *division.Parted();
    parted.RunPlace([this](int part) { return streams.MakeSchedulerParts(part); }, options);
    const Part& part = parted.PartAt(place.Plan().own);
    RunOutcome outcome = NewOutcome();
    outcome.first = &part.GetScheduler();
    outcome.Collect(part.GetScheduler());
    if (part.GetState() == Part::State::Failed) outcome.SetFailed(part);
    if (place.WasInterrupted()) verdict.Interrupt();
    const bool isOver = part.GetState() == Part::State::Ended && part.FailedPart() < 0;
    if (isOver || outcome.end == Scheduler::End::Failed) return Judge(outcome);
    Calls(-1);
    results.AddCounts(outcome);
    verdict.JudgeEndOfPlace(outcome.first->WasInterrupted(), part.FailedPart());
}

void Runner::Judge(const RunOutcome& outcome) {
    Calls(-1);
    verdict.JudgeEnd(outcome);
    results.AddSignal(outcome);
    results.AddCounts(outcome);
}

// Also after a failure: a module that holds a file must be able to close it.
void Runner::Finish() {
    for (int place = 0; place < initialised; ++place) {
        const int index = graph.order[static_cast<std::size_t>(place)];
        if (!division.IsHere(index)) continue;
        Calls(index);
        int code = 0;
        const std::string thrown = WhatItThrows([&] {
            code = graph.Module(index).Done();
            graph.Module(index).GetMessageA(TCPortHelper::MESSAGE_RUNNING, 0);
        });
        PassOn();
        if (code < 0 || !thrown.empty())
            verdict.Fail(index, code, thrown, failures::FINISHING);
        else if (graph.IsOfGraph(index))
            TellState(graph.Name(index), Bilingual("finished", "beendet"));
    }
}

void Runner::DeleteStreams() {
    for (const RunModule& entry : graph.modules) entry.module->DeleteStreams();
    for (const auto& gate : graph.gates) gate->DeleteStreams();
}

}  // namespace host
