#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

#include "host/check/Checks.h"
#include "host/check/Runs.h"
#include "sigweave/services/Bilingual.h"

namespace host::check {
namespace {

using tc::Bilingual;

constexpr std::size_t MOST_HUGE = 2;  // types: blocks of a million values take their time

struct Pattern {
    const char* name;
    std::vector<BlockPlan> plans;
};

// Signals as they come: in one block, in several, one after the other, in blocks of unlike lengths.
const std::vector<Pattern>& Patterns() {
    static const std::vector<Pattern> PATTERNS = {
        {"COMPLETE", {{COMPLETE}}},
        {"START BUSY BUSY STOP", {{START}, {BUSY, 1}, {BUSY, 1000}, {STOP, 63}}},
        {"START STOP COMPLETE START BUSY STOP", LongSignal()},
    };
    return PATTERNS;
}

bool HasStates(const Wiring& wiring) {
    return !wiring.empty() && std::ranges::all_of(wiring, [](const LineType& type) {
        return type.items == 0 || type.HasTypeInfo();
    });
}

std::string Scene(const Wiring& wiring, const std::string& blocks) {
    return Bilingual("%1 on %2", "%1 auf %2").With({blocks, ToText(wiring)});
}

// Metadata that arrive in order must leave in order.
void CheckStates(const OutputRecord& record, const Wiring& wiring, bool isSource) {
    if (!isSource && !HasStates(wiring)) return;
    const std::string wrong = record.WrongStates(true);
    if (!wrong.empty())
        Fail(
            wrong,
            Bilingual("a signal is START, BUSY ..., STOP, or one COMPLETE block; UseTypeInfoFromInput copies "
                      "the states of an input",
                      "ein Signal ist START, BUSY ..., STOP oder ein Block COMPLETE; UseTypeInfoFromInput "
                      "übernimmt die Zustände eines Eingangs")
                .Text());
}

// One block of a kind that a module may refuse in words, but must survive. Answers how it took it.
Answer Survive(CheckSubject& subject, const Wiring& wiring, const std::vector<BlockPlan>& plans,
               const Bilingual& scene) {
    Stand stand(subject);
    subject.Scene(Scene(wiring, scene.Text()));
    subject.EnterFreshFolder();
    stand.Wire(wiring);
    BlockMaker maker(SIGNAL_SEED);
    return stand.Run(maker, plans, nullptr);
}

// Of the first wirings, `most` of them; reports how many took the blocks.
Finding SurviveAll(CheckSubject& subject, const std::vector<BlockPlan>& plans, const Bilingual& scene,
                   std::size_t most = 100) {
    int taken = 0;
    std::string refusal;
    std::vector<Wiring> wirings = RunnableWirings(subject);
    wirings.resize(std::min(wirings.size(), most));
    if (wirings.front().empty()) DoesNotApply(Bilingual("it has no inputs", "es hat keine Eingänge").Text());
    for (const Wiring& wiring : wirings) {
        const Answer answer = Survive(subject, wiring, plans, scene);
        taken += answer.IsRefusal() ? 0 : 1;
        if (answer.IsRefusal()) refusal = ToText(answer);
    }
    const std::string counts = Bilingual("taken on %1 of %2 types", "genommen bei %1 von %2 Typen")
                                   .With({std::to_string(taken), std::to_string(wirings.size())});
    return Passed(refusal.empty() ? counts : counts + "; " + refusal);
}

void MustNotRefuse(const Answer& answer, const char* what) {
    if (answer.IsRefusal())
        Fail(std::string(what) + ": " + ToText(answer),
             Bilingual(
                 "Done must release all that Init acquired, so that Init can be called again",
                 "Done muss alles freigeben, was Init belegt hat, damit Init erneut aufgerufen werden kann")
                 .Text());
}

// What came of all runs so far.
struct Yield {
    int blocks = 0;
    bool resultsOrFiles = false;
    std::optional<OutputRecord::Nameless> nameless;

    bool IsNothing() const { return blocks == 0 && !resultsOrFiles; }
};

Answer RunOnce(CheckSubject& subject, const Wiring& wiring, const std::string& scene,
               const std::vector<BlockPlan>& plans, Yield& yield) {
    Stand stand(subject);
    subject.EnterFreshFolder();
    stand.Wire(wiring);
    subject.Scene(Scene(wiring, scene));
    BlockMaker maker(SIGNAL_SEED);
    OutputRecord record;
    const Answer answer = stand.Run(maker, plans, &record);
    std::error_code ignored;
    const bool hasFiles =
        std::filesystem::directory_iterator(".", ignored) != std::filesystem::directory_iterator();
    const bool hasResults = stand.Extended() != nullptr && !stand.Extended()->GetResults().IsEmpty();
    yield.blocks += stand.BlocksMade();
    yield.resultsOrFiles = yield.resultsOrFiles || hasFiles || hasResults;
    if (answer.IsRefusal()) return answer;
    CheckStates(record, wiring, stand.IsSource());
    if (!wiring.empty() && HasStates(wiring) && !yield.nameless) yield.nameless = record.FirstNameless();
    return answer;
}

// Long, and at its end with values that no threshold passes over.
std::vector<BlockPlan> PlentifulSignal() {
    std::vector<BlockPlan> plans(64, {BUSY, 1024});
    plans.front().state = START;
    plans.push_back({BUSY, 1024, Content::Extreme});
    plans.push_back({STOP, 1024});
    return plans;
}

// A module with inputs and outputs of which nothing comes at all. It may only be slow, or wait for something.
void MustYield(CheckSubject& subject, const std::vector<Wiring>& wirings, Yield& yield) {
    const bool hasOutputs = Stand(subject).Module().GetNoOutput() > 0;
    if (!hasOutputs || wirings.front().empty()) return;
    for (const Wiring& wiring : wirings)
        if (yield.IsNothing())
            RunOnce(subject, wiring, Bilingual("a long signal", "ein langes Signal").Text(),
                    PlentifulSignal(), yield);
    if (yield.IsNothing())
        Fail(Bilingual("it makes no block, no result and no file, whatever it is fed",
                       "es erzeugt weder Block noch Ergebnis noch Datei, was immer ihm zugeführt wird")
                 .Text(),
             Bilingual(
                 "write a block for each that Execute takes, for example with WriteDblData; if it only "
                 "reacts to certain signals, set it with --set PARAMETER=VALUE so that it reacts to numbers "
                 "between -1 and 1",
                 "schreiben Sie für jeden Block, den Execute nimmt, einen, etwa mit WriteDblData; reagiert "
                 "es nur auf bestimmte Signale, so stellen Sie es mit --set PARAMETER=WERT so ein, dass es "
                 "auf Zahlen zwischen -1 und 1 reagiert")
                 .Text());
}

Finding WarnOfNameless(const OutputRecord::Nameless& nameless) {
    static constexpr Bilingual NAME("output %1 loses the name of its input",
                                    "Ausgang %1 verliert den Namen seines Eingangs");
    static constexpr Bilingual NAME_AND_UNIT("output %1 loses the name and the unit of its input",
                                             "Ausgang %1 verliert Namen und Einheit seines Eingangs");
    return Warned(
        (nameless.unitToo ? NAME_AND_UNIT : NAME).With({std::to_string(nameless.output)}),
        Bilingual("call UseTypeInfoFromInput(output, input) in the constructor, or set them with "
                  "SetTI_SignalName and SetTI_Unit",
                  "rufen Sie im Konstruktor UseTypeInfoFromInput(Ausgang, Eingang) auf, oder setzen Sie "
                  "sie mit SetTI_SignalName und SetTI_Unit")
            .Text());
}

}  // namespace

Finding CheckRun(CheckSubject& subject) {
    const std::vector<Wiring> wirings = RunnableWirings(subject);
    int well = 0;
    Yield yield;
    Answer refusal;
    for (const Wiring& wiring : wirings) {
        bool took = true;
        for (const Pattern& pattern : Patterns()) {
            const Answer answer =
                RunOnce(subject, wiring, wiring.empty() ? "source" : pattern.name, pattern.plans, yield);
            if (answer.IsRefusal()) refusal = answer;
            took = took && !answer.IsRefusal();
            if (wiring.empty()) break;  // nothing is fed to a source
        }
        well += took ? 1 : 0;
    }
    if (well == 0) ThrowCannotRun(subject, refusal);
    MustYield(subject, wirings, yield);
    if (yield.nameless) return WarnOfNameless(*yield.nameless);
    const std::string counts =
        Bilingual("%1 of %2 types, %3 blocks made", "%1 von %2 Typen, %3 Blöcke erzeugt")
            .With({std::to_string(well), std::to_string(wirings.size()), std::to_string(yield.blocks)});
    const std::string madeUp = Stand(subject).MadeUp();
    const std::string with = madeUp.empty() ? madeUp : Bilingual("; with %1", "; mit %1").With({madeUp});
    return Passed(counts + with + (refusal.call.empty() ? "" : "; " + ToText(refusal)));
}

Finding CheckInitDone(CheckSubject& subject) {
    const Wiring wiring = RunnableWirings(subject).front();
    Stand stand(subject);
    stand.Wire(wiring);
    subject.Scene(Bilingual("Done without Init", "Done ohne Init").Text());
    stand.End();
    subject.Scene(Bilingual("Init and Done, three times", "Init und Done, dreimal").Text());
    for (int turn = 0; turn < 3; ++turn) {
        subject.EnterFreshFolder();
        const Answer begun = stand.Begin();
        const Answer ended = stand.End();
        MustNotRefuse(begun, Bilingual("Init after Done", "Init nach Done").Text());
        MustNotRefuse(ended, Bilingual("Done after Init", "Done nach Init").Text());
    }
    subject.Scene(Bilingual("Init twice, Done twice", "zweimal Init, zweimal Done").Text());
    subject.EnterFreshFolder();
    stand.Begin();
    stand.Begin();  // may be refused, and must leave no trace
    stand.End();
    stand.End();
    subject.Scene(Bilingual("Init and Done after them", "danach Init und Done").Text());
    subject.EnterFreshFolder();
    const Answer begun = stand.Begin();
    stand.End();
    MustNotRefuse(begun, Bilingual("Init after Init twice", "Init nach zweimal Init").Text());
    return Passed(Bilingual("Init follows Done again and again", "Init folgt auf Done, immer wieder").Text());
}

Finding CheckEqualRuns(CheckSubject& subject) {
    int compared = 0;
    for (const Wiring& wiring : RunnableWirings(subject)) {
        Stand stand(subject);
        stand.Wire(wiring);
        OutputRecord first;
        for (int run = 1; run <= 3; ++run) {
            subject.Scene(
                Bilingual("run %1 on %2", "Lauf %1 auf %2").With({std::to_string(run), ToText(wiring)}));
            subject.EnterFreshFolder();
            BlockMaker maker(SIGNAL_SEED);
            OutputRecord record;
            stand.Run(maker, LongSignal(), &record);
            if (run == 1) first = record;
            const std::string difference = first.DifferenceTo(record);
            if (!difference.empty())
                Fail(Bilingual("over the same input, run 1 and run %1 differ: %2",
                               "bei gleicher Eingabe unterscheiden sich Lauf 1 und Lauf %1: %2")
                         .With({std::to_string(run), difference}),
                     Bilingual("Init must put the module into the state before a first run",
                               "Init muss das Modul in den Zustand vor einem ersten Lauf versetzen")
                         .Text());
        }
        ++compared;
    }
    return Passed(Bilingual("three runs on each of %1 types", "drei Läufe mit jedem von %1 Typen")
                      .With({std::to_string(compared)}));
}

Finding CheckEmptyBlocks(CheckSubject& subject) {
    return SurviveAll(subject, {{COMPLETE, 0}, {START, 0}, {BUSY, 0}, {BUSY, 16}, {STOP, 0}},
                      {"blocks without values", "Blöcke ohne Werte"});
}

Finding CheckHugeBlocks(CheckSubject& subject) {
    return SurviveAll(subject, {{COMPLETE, 1000000}},
                      {"blocks of a million values", "Blöcke von einer Million Werten"}, MOST_HUGE);
}

Finding CheckNotANumber(CheckSubject& subject) {
    SurviveAll(subject, {{COMPLETE, 100, Content::NotFinite}, {START, 5, Content::NotFinite}, {STOP, 5}},
               {"values that are not finite", "nicht endliche Werte"});
    SurviveAll(subject, {{START, 64}, {BUSY, 64, Content::Extreme}, {STOP, 64, Content::Extreme}},
               {"the largest and smallest numbers", "die größten und kleinsten Zahlen"});
    return SurviveAll(subject,
                      {{COMPLETE, 32, Content::Signal, true}, {COMPLETE, 32, Content::NotFinite, true}},
                      {"metadata that make no sense", "unsinnige Metadaten"});
}

}  // namespace host::check
