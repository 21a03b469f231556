#include <algorithm>
#include <chrono>
#include <random>

#include "host/Guard.h"
#include "host/check/Checks.h"
#include "host/check/ParameterValues.h"
#include "host/check/Stand.h"
#include "sigweave/services/Bilingual.h"

namespace host::check {
namespace {

using tc::Bilingual;

constexpr int SEQUENCES = 100;
constexpr int STEPS = 60;
constexpr double SHARE_OF_TIME = 0.4;  // of the limit; then no further sequence begins

constexpr int LENGTHS[] = {0, 1, 2, 3, 64, 1000, 4096};
constexpr const char* GARBAGE[] = {"", "x", "=", "a=b\n", "\"", "\xFF\xFE", "[lines]\n"};
constexpr unsigned LAST_MESSAGE = 60;  // beyond the numbers that mean something

// One sequence of calls as a host may make them: which ones, and in which order, follows from the seed alone.
class Sequence {
 public:
    Sequence(CheckSubject& checkSubject, std::uint64_t sequenceSeed)
        : subject(checkSubject),
          seed(sequenceSeed),
          random(sequenceSeed),
          maker(sequenceSeed),
          stand(subject) {}

    void Play() {
        for (step = 1; step <= STEPS; ++step) {
            const Operation& operation = Choose();
            Tell(operation.name.Text());
            (this->*operation.run)();
        }
        Tell(Bilingual("the end", "das Ende").Text());
        if (state == RUNNING) stand.End();
    }

 private:
    enum State : unsigned { EDITING = 1, WIRED = 2, RUNNING = 4, ANY = 7 };

    struct Operation {
        Bilingual name;
        unsigned states;
        void (Sequence::*run)();
    };

    static const Operation OPERATIONS[21];

    const Operation& Choose();
    void Tell(const std::string& what) {
        subject.Scene(Bilingual("seed %1, step %2: %3", "Startwert %1, Schritt %2: %3")
                          .With({std::to_string(seed), std::to_string(step), what}));
    }

    int Below(int bound) { return bound > 0 ? static_cast<int>(random() % static_cast<unsigned>(bound)) : 0; }
    bool OneIn(int bound) { return Below(bound) == 0; }
    template <class Set>
    const auto& OneOf(const Set& set) {
        return set[static_cast<std::size_t>(Below(static_cast<int>(std::size(set))))];
    }

    // --- Editing

    void SetParameter() {
        TCBaseModuleEx* const module = stand.Extended();
        if (module == nullptr || module->GetParameters().empty()) return;
        const TCModuleParameter& parameter = OneOf(module->GetParameters());
        if (parameter.kind == TCModuleParameter::FILE && !OneIn(4)) return;  // else it rarely finds its file
        std::vector<std::string> values = OneIn(4) ? ForbiddenValues(parameter) : AllowedValues(parameter);
        if (values.empty()) return;
        const std::string before(module->GetSettings());
        TCString error;
        subject.Call("SetParameter");
        module->SetParameter(parameter.name, OneOf(values).c_str(), error);
        subject.Call("ApplySettings");
        if (!module->ApplySettings(error)) module->SetSettings(before.c_str(), error);
    }

    void SetSettings() {
        TCBaseModuleEx* const module = stand.Extended();
        if (module == nullptr) return;
        TCString error;
        subject.Call("SetSettings");
        const std::string text = OneIn(3) ? OneOf(GARBAGE) : std::string(module->GetSettings());
        module->SetSettings(text.c_str(), error);
    }

    void AskForInputs() {
        subject.Call("GetMessageA");
        stand.Module().GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, Below(6));
    }

    void DrawLine() {
        const PORTTYPE kind = OneIn(2) ? INPUT : OUTPUT;
        const int ports = kind == INPUT ? stand.Module().GetNoInput() : stand.Module().GetNoOutput();
        const int port = Below(ports + 1);
        const LineType& type = OneOf(LineTypes());
        subject.Call("ValidatePortType");
        const bool fits = stand.Module().ValidatePortType(kind, port, type.text.c_str(), type.items) != 0;
        subject.Call("AddLine");
        if (fits) stand.Module().AddLine(kind, port);
        subject.Call("DelLine");
        stand.Module().DelLine(kind, port);
    }

    void Wire() {
        AskForInputs();
        Wiring wiring(static_cast<std::size_t>(std::max(stand.Module().GetNoInput(), 0)));
        for (int input = 0; input < static_cast<int>(wiring.size()); ++input) {
            for (int trial = 0; trial < 30; ++trial) {
                const LineType& type = OneOf(LineTypes());
                subject.Call("ValidatePortType");
                if (stand.Module().ValidatePortType(INPUT, input, type.text.c_str(), type.items) == 0)
                    continue;
                wiring[static_cast<std::size_t>(input)] = type;
                break;
            }
        }
        open.assign(wiring.size(), false);
        state = stand.Wire(wiring) ? WIRED : EDITING;
        if (state == EDITING) stand.Unwire();
    }

    // --- Runs

    void Unwire() {
        stand.Unwire();
        state = EDITING;
    }

    void Begin() {
        open.assign(open.size(), false);
        state = RUNNING;
        EndAfter(stand.Begin());
    }

    void EndAfter(const Answer& answer) {
        if (answer.IsRefusal()) End();
    }

    void End() {
        stand.End();
        stand.Collect(nullptr);
        state = WIRED;
    }

    TCBLOCKSTATUS NextState(std::vector<bool>::reference isOpen) {
        if (OneIn(20)) return static_cast<TCBLOCKSTATUS>(Below(4));  // a neighbour that gets it wrong
        const bool wasOpen = isOpen;
        const bool ends = OneIn(3);
        isOpen = !ends;
        return wasOpen ? (ends ? STOP : BUSY) : ends ? COMPLETE : START;
    }

    void Feed() {
        if (open.empty()) return;
        const int input = Below(static_cast<int>(open.size()));
        BlockPlan plan;
        plan.state = NextState(open[static_cast<std::size_t>(input)]);
        plan.values = OneOf(LENGTHS);
        plan.content = OneIn(4) ? (OneIn(2) ? Content::NotFinite : Content::Extreme) : Content::Signal;
        plan.wildMetadata = OneIn(10);
        stand.Feed(static_cast<unsigned>(input), maker, plan);
        maker.Advance(plan);
        if (OneIn(2)) Pump();
    }

    void MakeStep() {
        bool hasWork = false;
        bool moved = false;
        const Answer answer = stand.Step(hasWork, moved);
        stand.Collect(nullptr);
        EndAfter(answer);
    }

    void Pump() { EndAfter(stand.Pump(nullptr)); }

    void Interrupt() {
        subject.Call("Interrupt");
        if (stand.Extended() != nullptr) stand.Extended()->Interrupt();
    }

    // --- At any time

    void Ask() {
        TCBaseModule& module = stand.Module();
        const int port = Below(4) - 1;
        subject.Call("queries");
        const char* type = nullptr;
        int items = 0;
        int result = Below(3);
        RET_PORT hit;
        module.GetModuleId();
        module.GetDescription();
        module.GetModuleName();
        module.GetInputName(port);
        module.GetOutputName(port);
        module.GetPortType(OneIn(2) ? INPUT : OUTPUT, port, type, items);
        module.GetFrameColor();
        module.OnLeftDblClk(0, port, hit);
        module.OnEndShowDialog(result);
        if (TCBaseModuleEx* const extended = stand.Extended()) {
            extended->GetProgress();
            extended->GetLastErrorText();
            extended->GetParameter("no such parameter");
            for (const TCModuleResult& found : extended->GetResults())
                resultBytes += found.quantity.GetLength();
        }
    }

    // Those that change ports, settings or the run have operations of their own.
    void Send() {
        const unsigned id = static_cast<unsigned>(Below(static_cast<int>(LAST_MESSAGE)));
        constexpr unsigned OWN[] = {TCPortHelper::MESSAGE_RUNNING,
                                    TCPortHelper::MESSAGE_INSTANCE_HANDLE,
                                    TCPortHelper::MESSAGE_CHECK_OBLIGATORY,
                                    TCPortHelper::MESSAGE_DYN_PORTS,
                                    TCBaseModule::MESSAGE_SINK,
                                    TCBaseModule::MESSAGE_REGISTRY_PATH,
                                    TCBaseModule::MESSAGE_LANGUAGE,
                                    TCBaseModule::MESSAGE_TRANSLATION_FIRST,
                                    TCBaseModule::MESSAGE_TRANSLATION_SECOND};
        if (std::ranges::find(OWN, id) != std::end(OWN)) return;
        subject.Call("GetMessageA");
        stand.Module().GetMessageA(id, 0);
    }

    void CreateOther() { subject.Create(Below(5)); }

    CheckSubject& subject;
    std::uint64_t seed;
    std::mt19937_64 random;
    BlockMaker maker;
    Stand stand;
    State state = EDITING;
    int step = 0;
    std::vector<bool> open;  // by input: a signal has begun and not ended
    long resultBytes = 0;    // so that the texts are read
};

// What is there twice comes twice as often.
const Sequence::Operation Sequence::OPERATIONS[21] = {
    {{"a parameter", "ein Parameter"}, EDITING, &Sequence::SetParameter},
    {{"a parameter", "ein Parameter"}, EDITING, &Sequence::SetParameter},
    {{"the settings", "die Einstellungen"}, EDITING, &Sequence::SetSettings},
    {{"the number of inputs", "die Zahl der Eingänge"}, EDITING, &Sequence::AskForInputs},
    {{"a line drawn and removed", "eine Verbindung, gezogen und entfernt"}, EDITING, &Sequence::DrawLine},
    {{"all lines", "alle Verbindungen"}, EDITING, &Sequence::Wire},
    {{"all lines", "alle Verbindungen"}, EDITING, &Sequence::Wire},
    {{"the beginning of a run", "der Beginn eines Laufs"}, WIRED, &Sequence::Begin},
    {{"the beginning of a run", "der Beginn eines Laufs"}, WIRED, &Sequence::Begin},
    {{"no lines", "keine Verbindungen"}, WIRED, &Sequence::Unwire},
    {{"a block", "ein Block"}, RUNNING, &Sequence::Feed},
    {{"a block", "ein Block"}, RUNNING, &Sequence::Feed},
    {{"a block", "ein Block"}, RUNNING, &Sequence::Feed},
    {{"a step", "ein Schritt"}, RUNNING, &Sequence::MakeStep},
    {{"a step", "ein Schritt"}, RUNNING, &Sequence::MakeStep},
    {{"all steps", "alle Schritte"}, RUNNING, &Sequence::Pump},
    {{"an interruption", "ein Abbruch"}, RUNNING, &Sequence::Interrupt},
    {{"the end of the run", "das Ende des Laufs"}, RUNNING, &Sequence::End},
    {{"questions", "Abfragen"}, EDITING | WIRED | RUNNING, &Sequence::Ask},
    {{"a message", "eine Meldung"}, EDITING | WIRED | RUNNING, &Sequence::Send},
    {{"another module", "ein weiteres Modul"}, EDITING | WIRED | RUNNING, &Sequence::CreateOther},
};

const Sequence::Operation& Sequence::Choose() {
    for (;;) {
        const Operation& operation = OneOf(OPERATIONS);
        if ((operation.states & state) != 0) return operation;
    }
}

}  // namespace

Finding CheckRandomCalls(CheckSubject& subject) {
    const auto begin = std::chrono::steady_clock::now();
    const std::chrono::duration<double> time(subject.Options().timeLimit * SHARE_OF_TIME);
    const int wanted = subject.Options().reproduce ? 1 : SEQUENCES;
    const std::uint64_t first = subject.Options().seed;
    int done = 0;
    for (; done < wanted && (done == 0 || std::chrono::steady_clock::now() - begin < time); ++done) {
        const std::uint64_t seed = first + static_cast<std::uint64_t>(done);
        subject.Seed(seed);
        subject.EnterFreshFolder();
        Sequence(subject, seed).Play();
    }
    return Passed(Bilingual("%1 sequences of %2 steps, seeds %3 to %4",
                            "%1 Folgen von %2 Schritten, Startwerte %3 bis %4")
                      .With({std::to_string(done), std::to_string(STEPS), std::to_string(first),
                             std::to_string(first + static_cast<std::uint64_t>(done) - 1)}));
}

}  // namespace host::check
