#include "host/check/Runs.h"

#include "host/check/Finding.h"
#include "sigweave/services/Bilingual.h"

namespace host::check {

using tc::Bilingual;

namespace {

constexpr int DYNAMIC_INPUTS = 2;

}  // namespace

const std::vector<BlockPlan>& LongSignal() {
    static const std::vector<BlockPlan> PLANS = {{START, 16}, {STOP, 16}, {COMPLETE, 100},
                                                 {START, 5},  {BUSY, 5},  {STOP, 5}};
    return PLANS;
}

std::string ToText(const Answer& answer) {
    return Bilingual("%1 answered %2: %3", "%1 antwortete %2: %3")
        .With({answer.call, std::to_string(answer.code), answer.text});
}

void ThrowCannotRun(CheckSubject& subject, const Answer& answer) {
    const bool takesNothing = answer.call.empty();
    const std::string told = takesNothing
                                 ? Bilingual("its inputs take no type for which there are test blocks",
                                             "seine Eingänge nehmen keinen Typ, zu dem es Prüfblöcke gibt")
                                       .Text()
                                 : ToText(answer);
    if (!takesNothing && !Stand(subject).NeedsMore())
        Fail(told,
             Bilingual(
                 "with its default settings a module must run on an ordinary signal; what it cannot do "
                 "without is a parameter without default",
                 "mit den Vorgaben muss ein Modul mit einem gewöhnlichen Signal laufen; was es unbedingt "
                 "braucht, ist ein Parameter ohne Vorgabe")
                 .Text());
    throw Finding{.status = Finding::NOT_APPLICABLE,
                  .reason = told,
                  .remedy = Bilingual("give it what it needs with --set PARAMETER=VALUE",
                                      "geben Sie ihm mit --set PARAMETER=WERT, was es braucht")
                                .Text(),
                  .neverRan = true};
}

std::vector<Wiring> RunnableWirings(CheckSubject& subject) {
    std::vector<Wiring> runnable;
    Answer refusal;
    for (const Wiring& wiring : Stand::AcceptedWirings(subject, DYNAMIC_INPUTS)) {
        Stand stand(subject);
        subject.Scene(ToText(wiring));
        subject.EnterFreshFolder();
        if (!stand.Wire(wiring)) continue;
        const Answer answer = stand.Begin();
        stand.End();
        if (answer.IsRefusal())
            refusal = answer;
        else
            runnable.push_back(wiring);
    }
    if (runnable.empty()) ThrowCannotRun(subject, refusal);
    return runnable;
}

}  // namespace host::check
