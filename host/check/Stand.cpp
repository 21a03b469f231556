#include "host/check/Stand.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "host/Guard.h"
#include "host/check/Finding.h"
#include "sigweave/services/Bilingual.h"

namespace host::check {
namespace {

using tc::Bilingual;

constexpr int DIGITS = 9;
constexpr int MOST_STEPS = 100000;      // for what one block brought
constexpr int MOST_SOURCE_STEPS = 500;  // then it is interrupted
constexpr int STEPS_AFTER_INTERRUPT = 100;
constexpr int MOST_SILENT_STEPS = 1000;  // of a source that makes nothing

constexpr const char* OUTPUT_FILES[] = {"output.dat", "output.csv", "output.xml", "output.svg",
                                        "output.png", "output.wav", "output.txt"};

std::string FirstChoice(const TCModuleParameter& parameter) {
    const std::string words = Text(parameter.choices);
    return words.substr(0, words.find('|'));
}

// For a parameter that must be given and was not; empty for an input file.
std::string LikelyValue(const TCModuleParameter& parameter) {
    switch (parameter.kind) {
        case TCModuleParameter::CHOICE:
            return FirstChoice(parameter);
        case TCModuleParameter::SWITCH:
            return "no";
        case TCModuleParameter::INTEGER:
        case TCModuleParameter::NUMBER:
            return std::to_string(static_cast<int>(std::clamp(1.0, parameter.minimum, parameter.maximum)));
        case TCModuleParameter::OUTPUT_FILE:
            return OUTPUT_FILES[0];
        case TCModuleParameter::FILE:
            return {};
        case TCModuleParameter::TEXT:
            break;
    }
    return "signal";
}

[[noreturn]] void HasNoEnd(const Bilingual& how, int steps) {
    Fail(how.With({std::to_string(steps)}),
         Bilingual(
             "Fetch must answer 1 when Execute has nothing to take or to make; a source clears its ready "
             "flag with its last block",
             "Fetch muss 1 liefern, wenn Execute nichts zu nehmen oder zu erzeugen hat; eine Quelle "
             "löscht mit dem letzten Block ihr Bereit-Flag")
             .Text());
}

}  // namespace

std::string ToText(const Wiring& wiring) {
    for (const LineType& type : wiring)
        if (type.items > 0) return type.text;
    return Bilingual("no inputs", "ohne Eingänge").Text();
}

Stand::Stand(CheckSubject& checkSubject, int instance, bool withSettings)
    : subject(checkSubject), module(subject.Create(instance)) {
    extended = dynamic_cast<TCBaseModuleEx*>(module.get());
    if (extended == nullptr || !withSettings) return;
    for (const TCModuleParameter& parameter : extended->GetParameters())
        needsMore =
            needsMore || parameter.kind == TCModuleParameter::FILE || parameter.defaultValue == nullptr;
    ApplySettings();
}

Stand::~Stand() {
    module->DeleteStreams();
    module.reset();  // before the streams that it may still read
}

// File names start at the folder in which the program was started, not in the one where the check works.
std::string Stand::GivenValue(const TCModuleParameter& parameter, const std::string& value) const {
    if (parameter.kind != TCModuleParameter::FILE || value.empty()) return value;
    return (std::filesystem::path(subject.Options().folder) / value).lexically_normal().string();
}

void Stand::ApplySettings() {
    SetGivenValues();
    MakeUpSettings();
}

void Stand::SetGivenValues() {
    TCString error;
    for (const auto& [name, value] : subject.GivenSettings()) {
        const TCModuleParameter* parameter = extended->FindParameter(name.c_str());
        if (parameter == nullptr) continue;  // meant for another module of the library
        subject.Call("SetParameter");
        if (!extended->SetParameter(name.c_str(), GivenValue(*parameter, value).c_str(), error))
            DoesNotApply(std::string(error));
    }
}

// What the name of an output file must end in is only found by trying.
void Stand::MakeUpSettings() {
    std::vector<const char*> files;
    std::vector<std::pair<const char*, std::string>> others;
    for (const TCModuleParameter& parameter : extended->GetParameters()) {
        if (parameter.defaultValue != nullptr || !extended->GetParameter(parameter.name).IsEmpty()) continue;
        const std::string value = LikelyValue(parameter);
        TCString ignored;
        if (value.empty() || !extended->SetParameter(parameter.name, value.c_str(), ignored)) continue;
        if (parameter.kind == TCModuleParameter::OUTPUT_FILE)
            files.push_back(parameter.name);
        else
            others.emplace_back(parameter.name, value);
        madeUp.push_back(parameter.name);
    }
    TCString error;
    for (const char* file : OUTPUT_FILES) {
        TCString ignored;
        SetGivenValues();  // what does not fit is taken back as a whole
        for (const auto& [name, value] : others) extended->SetParameter(name, value.c_str(), ignored);
        for (const char* parameter : files) extended->SetParameter(parameter, file, ignored);
        error.Empty();
        subject.Call("ApplySettings");
        if (extended->ApplySettings(error)) return;
    }
    if (error.IsEmpty())
        Fail(Bilingual("OnSettingsChanged refuses the settings without a text",
                       "OnSettingsChanged lehnt die Einstellungen ohne Text ab")
                 .Text(),
             Bilingual("say in `error` what is wrong and what is allowed",
                       "nennen Sie in `error`, was falsch ist und was erlaubt wäre")
                 .Text());
    Finding finding{Finding::NOT_APPLICABLE, std::string(error),
                    Bilingual("give it what it needs with --set PARAMETER=VALUE",
                              "geben Sie ihm mit --set PARAMETER=WERT, was es braucht")
                        .Text()};
    finding.neverRan = true;
    throw finding;
}

std::string Stand::MadeUp() const {
    std::string text;
    for (const char* name : madeUp)
        text +=
            (text.empty() ? "" : ", ") + std::string(name) + "=" + std::string(extended->GetParameter(name));
    return text;
}

bool Stand::Wire(const Wiring& wiring) {
    subject.Call("GetMessageA");
    if (!wiring.empty())
        module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, static_cast<long>(wiring.size()));
    feeders.resize(wiring.size());
    queues.assign(wiring.size(), nullptr);
    lines = wiring;
    for (int input = 0; input < static_cast<int>(wiring.size()); ++input) {
        const LineType& type = wiring[static_cast<std::size_t>(input)];
        if (type.items == 0) continue;
        subject.Call("ValidatePortType");
        if (module->ValidatePortType(INPUT, input, type.text.c_str(), type.items) == 0) return false;
        subject.Call("AddLine");
        module->AddLine(INPUT, input);
        subject.Call("SetInputStream");
        TCIOStream* queue = module->SetInputStream(input, 0, DIGITS);
        if (queue == nullptr) continue;
        auto& feeder = feeders[static_cast<std::size_t>(input)] = std::make_unique<TCIOStream>();
        feeder->AddOutputStream(queue);
        queues[static_cast<std::size_t>(input)] = queue;
    }
    for (int output = 0; output < module->GetNoOutput(); ++output) {
        subject.Call("AddOutputStream");
        module->AddLine(OUTPUT, output);
        receivers.push_back(std::make_unique<TCIOStream>());
        module->AddOutputStream(output, receivers.back()->SetInputStream(DIGITS));
    }
    return true;
}

void Stand::Unwire() {
    for (int output = 0; output < static_cast<int>(receivers.size()); ++output)
        module->DelLine(OUTPUT, output);
    for (int input = 0; input < static_cast<int>(lines.size()); ++input) module->DelLine(INPUT, input);
    subject.Call("DeleteStreams");
    module->DeleteStreams();
    feeders.clear();
    receivers.clear();
    queues.clear();
    lines.clear();
}

namespace {

// Types are tried on fresh modules, since a port that adopted one keeps it as long as the line is there.
bool Takes(CheckSubject& subject, int inputs, int input, const LineType& type) {
    Stand trial(subject);
    trial.Module().GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, inputs);
    return trial.Module().ValidatePortType(INPUT, input, type.text.c_str(), type.items) != 0;
}

// The known types, and those that the inputs name themselves.
std::vector<LineType> Candidates(TCBaseModule& module) {
    std::vector<LineType> candidates = LineTypes();
    for (int input = 0; input < module.GetNoInput(); ++input) {
        const char* type = nullptr;
        int items = 0;
        module.GetPortType(INPUT, input, type, items);
        if (type != nullptr && CanMake({type, items})) candidates.push_back({type, items});
    }
    return candidates;
}

bool IsSame(const Wiring& a, const Wiring& b) {
    return std::ranges::equal(a, b, {}, &LineType::text, &LineType::text);
}

}  // namespace

std::vector<Wiring> Stand::AcceptedWirings(CheckSubject& subject, int inputs) {
    Stand shape(subject);
    shape.Module().GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, inputs);
    const int count = shape.Module().GetNoInput();
    if (count == 0) return {Wiring{}};
    const std::vector<LineType> candidates = Candidates(shape.Module());
    std::vector<Wiring> wirings;
    for (const LineType& candidate : candidates) {
        Wiring wiring;
        bool isTaken = false;
        for (int input = 0; input < count; ++input) {
            const auto takes = [&](const LineType& type) { return Takes(subject, inputs, input, type); };
            const bool takesIt = takes(candidate);
            const auto other = takesIt ? candidates.end() : std::ranges::find_if(candidates, takes);
            wiring.push_back(takesIt ? candidate : other != candidates.end() ? *other : LineType{});
            isTaken = isTaken || takesIt;
        }
        const auto isKnown = [&](const Wiring& known) { return IsSame(known, wiring); };
        if (isTaken && std::ranges::none_of(wirings, isKnown)) wirings.push_back(wiring);
    }
    return wirings;
}

Answer Stand::Judge(const char* call, int code) {
    subject.CheckPlace();
    if (code >= 0) return {code, call, {}};
    std::string text = extended != nullptr ? Text(extended->GetLastErrorText()) : std::string();
    if (text.empty() && module->GetPortHelper() != nullptr)
        text = std::string(module->GetPortHelper()->GetErrorText());
    if (text.empty())
        Fail(Bilingual("%1 answers %2 without a text", "%1 liefert %2 ohne Text")
                 .With({call, std::to_string(code)}),
             Bilingual("end it with Fail(code, text), whose text says what is wrong",
                       "beenden Sie es mit Fail(code, text); der Text sagt, was falsch ist")
                 .Text());
    return {code, call, text};
}

Answer Stand::Begin() {
    blocksMade = 0;
    subject.Call("ComputeValidationData");
    module->ComputeValidationData(CALLED_FROM_RUN);
    subject.Call("GetMessageA");
    module->GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
    module->GetMessageA(TCPortHelper::MESSAGE_FIRST_IN_CYCLE, 1);
    subject.Call("Init");
    return Judge("Init", module->Init());
}

Answer Stand::End() {
    subject.Call("Done");
    const int code = module->Done();
    const Answer answer = Judge("Done", code);
    module->GetMessageA(TCPortHelper::MESSAGE_RUNNING, 0);
    return answer;
}

int Stand::Feed(unsigned input, BlockMaker& maker, const BlockPlan& plan) {
    return feeders[input] != nullptr ? maker.Write(*feeders[input], lines[input], plan, input) : 0;
}

int Stand::Waiting() const {
    int blocks = 0;
    for (const TCIOStream* queue : queues) blocks += queue != nullptr ? queue->GetBlockCnt(nullptr) : 0;
    return blocks;
}

int Stand::Made() const {
    int blocks = 0;
    for (const auto& receiver : receivers) blocks += receiver->GetBlockCnt(nullptr);
    return blocks;
}

Answer Stand::Step(bool& hasWork, bool& moved) {
    hasWork = moved = false;
    subject.Call("Fetch");
    const int verdict = module->Fetch();
    if (verdict < 0) return Judge("Fetch", verdict);
    if (verdict > 2)
        Fail(Bilingual("Fetch answers %1", "Fetch liefert %1").With({std::to_string(verdict)}),
             Bilingual("0 is work, 1 is none, 2 the end of a source",
                       "0 heißt Arbeit, 1 keine, 2 das Ende einer Quelle")
                 .Text());
    hasWork = verdict == 0;
    if (!hasWork) return {};
    const int waiting = Waiting();
    const int made = Made();
    subject.Call("Execute");
    const int code = module->Execute();
    moved = Waiting() != waiting || Made() != made;
    return Judge("Execute", code);
}

Answer Stand::Pump(OutputRecord* record) {
    const bool source = IsSource();
    int silent = 0;
    for (int step = 0; step < MOST_STEPS; ++step) {
        if (source && step == MOST_SOURCE_STEPS) {
            if (extended == nullptr) return {};
            subject.Call("Interrupt");
            extended->Interrupt();
        }
        bool hasWork = false;
        bool moved = false;
        const Answer answer = Step(hasWork, moved);
        Collect(record);
        if (answer.IsRefusal() || !hasWork) return answer;
        silent = moved ? 0 : silent + 1;
        if (silent > (source ? MOST_SILENT_STEPS : 0)) return {};
        if (source && step > MOST_SOURCE_STEPS + STEPS_AFTER_INTERRUPT)
            HasNoEnd({"a source goes on for %1 blocks after Interrupt",
                      "eine Quelle läuft nach Interrupt noch %1 Blöcke weiter"},
                     STEPS_AFTER_INTERRUPT);
    }
    HasNoEnd({"Fetch answers 0 for ever: %1 steps after one block",
              "Fetch liefert endlos 0: %1 Schritte nach einem Block"},
             MOST_STEPS);
}

void Stand::Collect(OutputRecord* record) {
    blocksMade += Made();
    for (std::size_t output = 0; output < receivers.size(); ++output) {
        if (record != nullptr)
            record->Take(output, *receivers[output]);
        else
            receivers[output]->RemoveContents(true);
    }
}

Answer Stand::Run(BlockMaker& maker, const std::vector<BlockPlan>& plans, OutputRecord* record) {
    Answer answer = Begin();
    if (!answer.IsRefusal()) answer = Pump(record);
    for (const BlockPlan& plan : plans) {
        for (unsigned input = 0; input < lines.size() && !answer.IsRefusal(); ++input) {
            Feed(input, maker, plan);
            answer = Pump(record);
        }
        if (answer.IsRefusal()) break;
        maker.Advance(plan);
    }
    const Answer end = End();
    Collect(record);
    if (record != nullptr && extended != nullptr) record->TakeResults(*extended);
    return answer.IsRefusal() ? answer : end;
}

}  // namespace host::check
