#include <algorithm>
#include <optional>
#include <vector>

#include "host/check/Checks.h"
#include "host/check/Runs.h"
#include "sigweave/services/Bilingual.h"

namespace host::check {
namespace {

using tc::Bilingual;

constexpr int ROUNDS = 5;
constexpr int ROUNDS_UNSEEN = 2;  // they fill caches
constexpr int MODULES_A_ROUND = 100;
constexpr int RUNS_A_ROUND = 4;

// Memory that grows in every round, by at least this much a turn, is lost; caches grow once and stay.
constexpr std::int64_t LEAST_LEAK = 8;

// Bytes that each turn leaves behind; 0 when memory stays level.
template <class Turn>
std::int64_t LostBytes(int turns, Turn turn) {
    std::int64_t before = 0;
    std::int64_t least = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        for (int i = 0; i < turns; ++i) turn();
        const std::int64_t now = tc::HeapInUse();
        if (round == ROUNDS_UNSEEN) least = now - before;
        if (round > ROUNDS_UNSEEN) least = std::min(least, now - before);
        before = now;
    }
    return least >= LEAST_LEAK * turns ? least / turns : 0;
}

void MustBeNone(std::int64_t lost, const Bilingual& sentence, const Bilingual& remedy) {
    if (lost > 0) Fail(sentence.With({std::to_string(lost)}), remedy.Text());
}

// None when the module cannot be run with the settings it has.
std::optional<Wiring> WiringToRun(CheckSubject& subject) {
    try {
        return RunnableWirings(subject).front();
    } catch (const Finding&) {
        return {};
    }
}

std::int64_t LostByRuns(CheckSubject& subject, const Wiring& wiring) {
    Stand stand(subject);
    stand.Wire(wiring);
    return LostBytes(RUNS_A_ROUND, [&] {
        Stand::ClearFolder();
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
    subject.Scene(Bilingual("modules created and deleted", "Module erzeugt und gelöscht").Text());
    MustBeNone(
        LostBytes(MODULES_A_ROUND, [&] { subject.Create(1); }),
        {"each module that is created and deleted leaves %1 bytes behind",
         "jedes erzeugte und gelöschte Modul lässt %1 Byte zurück"},
        {"TCModuleLibrary_Delete must delete the module as its class, and its destructor what it owns",
         "TCModuleLibrary_Delete muss das Modul als seine Klasse löschen, und sein Destruktor, was ihm "
         "gehört"});
    const std::optional<Wiring> wiring = WiringToRun(subject);
    subject.Scene(Bilingual("runs, one after the other", "Läufe nacheinander").Text());
    if (wiring)
        MustBeNone(LostByRuns(subject, *wiring),
                   {"each run leaves %1 bytes behind", "jeder Lauf lässt %1 Byte zurück"},
                   {"Done must give back all that Init and Execute took",
                    "Done muss alles zurückgeben, was Init und Execute nahmen"});
    static constexpr Bilingual MODULES("%1 modules created and deleted: memory stays level",
                                       "%1 Module erzeugt und gelöscht: der Speicher bleibt gleich");
    static constexpr Bilingual BOTH("%1 modules created and deleted, %2 runs: memory stays level",
                                    "%1 Module erzeugt und gelöscht, %2 Läufe: der Speicher bleibt gleich");
    const std::string modules = std::to_string(ROUNDS * MODULES_A_ROUND);
    return Passed(wiring ? BOTH.With({modules, std::to_string(ROUNDS * RUNS_A_ROUND)})
                         : MODULES.With({modules}));
}

}  // namespace host::check
