#include <algorithm>
#include <chrono>
#include <optional>
#include <vector>

#include "host/check/Checks.h"
#include "host/check/Runs.h"
#include "sigweave/services/Bilingual.h"

namespace host::check {
namespace {

using tc::Bilingual;

constexpr int ROUNDS = 10;
constexpr int ROUNDS_UNSEEN = 4;  // they fill caches, those of the allocator too
constexpr int LEAST_ROUNDS = 7;   // before time may end the measuring
constexpr int MODULES_A_ROUND = 50;
constexpr int RUNS_A_ROUND = 3;
constexpr double SHARE_OF_TIME = 0.3;  // of the limit, for each measuring

// Memory that grows in every round, by at least this much a turn, is lost; caches grow once and stay.
constexpr std::int64_t LEAST_LEAK = 8;

struct Loss {
    std::int64_t bytes = 0;  // that each turn leaks; 0 when memory stays level
    int turns = 0;           // that were done
};

template <class Turn>
Loss Measure(int turns, double seconds, Turn turn) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    std::int64_t before = 0;
    std::int64_t least = 0;
    int round = 0;
    for (; round < ROUNDS && (round < LEAST_ROUNDS || std::chrono::steady_clock::now() < end); ++round) {
        for (int i = 0; i < turns; ++i) turn();
        const std::int64_t now = tc::HeapInUse();
        if (round == ROUNDS_UNSEEN) least = now - before;
        if (round > ROUNDS_UNSEEN) least = std::min(least, now - before);
        before = now;
    }
    return {least >= LEAST_LEAK * turns ? least / turns : 0, round * turns};
}

void MustBeNone(const Loss& loss, const Bilingual& sentence, const Bilingual& remedy) {
    if (loss.bytes > 0) Fail(sentence.With({std::to_string(loss.bytes)}), remedy.Text());
}

// None when the module cannot be run with the settings it has.
std::optional<Wiring> WiringToRun(CheckSubject& subject) {
    try {
        return RunnableWirings(subject).front();
    } catch (const Finding&) {
        return {};
    }
}

Loss LossOfRuns(CheckSubject& subject, const Wiring& wiring, double seconds) {
    Stand stand(subject);
    stand.Wire(wiring);
    return Measure(RUNS_A_ROUND, seconds, [&] {
        subject.EnterFreshFolder();
        BlockMaker maker(SIGNAL_SEED);
        stand.Run(maker, LongSignal(), nullptr);
    });
}

}  // namespace

Finding CheckLeaks(CheckSubject& subject) {
    if (tc::HeapInUse() < 0)
        DoesNotApply(Bilingual("memory cannot be measured under a sanitizer",
                               "unter einem Sanitizer lässt sich der Speicher nicht messen")
                         .Text());
    const double seconds = subject.Options().timeLimit * SHARE_OF_TIME;
    subject.Scene(Bilingual("modules created and deleted", "Module erzeugt und gelöscht").Text());
    const Loss created = Measure(MODULES_A_ROUND, seconds, [&] { subject.Create(1); });
    MustBeNone(
        created,
        {"each module that is created and deleted leaks %1 bytes",
         "jedes erzeugte und gelöschte Modul lässt %1 Byte zurück"},
        {"TCModuleLibrary_Delete must delete the module as its class, and its destructor what it owns",
         "TCModuleLibrary_Delete muss das Modul als seine Klasse löschen, und sein Destruktor, was ihm "
         "gehört"});
    const std::optional<Wiring> wiring = WiringToRun(subject);
    subject.Scene(Bilingual("runs, one after the other", "Läufe nacheinander").Text());
    const Loss ran = wiring ? LossOfRuns(subject, *wiring, seconds) : Loss{};
    MustBeNone(ran, {"each run leaks %1 bytes", "jeder Lauf lässt %1 Byte zurück"},
               {"Done must release all that Init and Execute acquired",
                "Done muss alles freigeben, was Init und Execute belegt haben"});
    return Passed(Bilingual("%1 modules created and deleted, %2 runs: memory stays level",
                            "%1 Module erzeugt und gelöscht, %2 Läufe: der Speicher bleibt gleich")
                      .With({std::to_string(created.turns), std::to_string(ran.turns)}));
}

}  // namespace host::check
