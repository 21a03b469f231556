#include "host/RunVerdict.h"

#include "host/Guard.h"
#include "host/Report.h"
#include "host/parts/PlaceRun.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace host {
namespace {

using tc::Bilingual;

std::string ErrorText(TCBaseModule& module) {
    if (auto* extended = dynamic_cast<TCBaseModuleEx*>(&module)) {
        const std::string text = Text(extended->GetLastErrorText());
        if (!text.empty()) return text;
    }
    return module.GetPortHelper() != nullptr ? std::string(module.GetPortHelper()->GetErrorText())
                                             : std::string();
}

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

void RunVerdict::Fail(int module, int code, const std::string& thrown, const Bilingual& failure) {
    std::string reason = thrown.empty() ? ErrorText(graph.Module(module)) : thrown;
    if (reason.empty())
        reason = Bilingual("the module gave no reason (code %1)", "das Modul nannte keinen Grund (Code %1)")
                     .With({std::to_string(code)});
    const std::string text = failure.With({graph.Name(module), graph.Module(module).GetModuleName(), reason});
    if (options.onError) options.onError(text);
    report.failures.push_back({graph.Name(module), code, FailedPort(module), reason});
    report.explanation +=
        (report.verdict == Verdict::Failed ? Bilingual("; then ", "; dann ").Text() : "") + text;
    report.verdict = Verdict::Failed;
}

std::string RunVerdict::FailedPort(int module) const {
    const TCPortHelper* const helper = graph.Module(module).GetPortHelper();
    if (helper == nullptr || helper->GetErrorRecord().code >= 0) return "";
    const TCPortError& error = helper->GetErrorRecord();
    const int count =
        error.kind == INPUT ? graph.Module(module).GetNoInput() : graph.Module(module).GetNoOutput();
    if (error.portIndex < 0 || error.portIndex >= count) return "";
    return graph.PortText(module, error.kind, error.portIndex);
}

bool RunVerdict::WasInterrupted() const {
    return options.interruption != nullptr && options.interruption->IsRaised();
}

// A failure after an interrupt that no scheduler saw: the interrupt ended a wait for a file.
void RunVerdict::JudgeEnd(const RunOutcome& outcome) {
    const bool wasSeen = outcome.first->WasInterrupted();
    if (wasSeen) Interrupt();
    if (outcome.end != Scheduler::End::Failed) return JudgeStall(outcome);
    Fail(graph.order[static_cast<std::size_t>(outcome.failed)], outcome.code, outcome.thrown,
         failures::RUNNING);
    if (WasInterrupted() && !wasSeen) Interrupt();
}

void RunVerdict::JudgeEndOfPlace(bool wasInterrupted, int failedPart) {
    const PlaceRun& place = *options.place;
    if (wasInterrupted) Interrupt();
    std::string text = place.GetError();
    if (text.empty() && failedPart >= 0)
        text = Bilingual("the place %1 failed; its own report says why",
                         "der Ort %1 ist gescheitert; sein eigener Bericht sagt, warum")
                   .With({place.Plan().places[static_cast<std::size_t>(failedPart)]});
    if (text.empty()) return;
    if (options.onError) options.onError(text);
    report.explanation = text;
    report.verdict = Verdict::Failed;
}

void RunVerdict::JudgeStall(const RunOutcome& outcome) {
    std::string text;
    const auto add = [&](const std::string& part) { text += (text.empty() ? "" : "; ") + part; };
    for (std::size_t place = 0; place < graph.order.size(); ++place) {
        const Scheduler::Node* const node = outcome.nodes[place];
        if (node == nullptr) continue;
        if (node->silent && !node->ended)
            add(Bilingual("the source %1 says that it has work but makes no block",
                          "die Quelle %1 meldet Arbeit, erzeugt aber keinen Block")
                    .With({graph.Name(graph.order[place])}));
        const std::string leftovers = DescribeLeftovers(outcome, place);
        if (!leftovers.empty()) add(leftovers);
    }
    if (text.empty()) return;
    report.explanation = text;
    if (report.verdict == Verdict::Complete) report.verdict = Verdict::Stalled;
}

std::string RunVerdict::DescribeLeftovers(const RunOutcome& outcome, std::size_t place) const {
    std::string starved;
    std::string left;
    for (std::size_t index = 0; index < graph.lines.size(); ++index) {
        if (graph.lines[index].to != graph.order[place]) continue;
        const int depth = outcome.depths[index];
        const LineReport& names = report.lines[index];
        if (depth == 0)
            Append(starved, Bilingual("%1 (fed by %2 with %3)", "%1 (von %2 kamen %3)")
                                .With({names.to, names.from, Blocks(outcome.lines[index].blocks)}));
        else
            Append(left, Bilingual("%1 at %2", "%1 an %2").With({Blocks(depth), names.to}));
    }
    if (left.empty()) return "";
    if (starved.empty())
        return Bilingual("%1 did not take the blocks that wait for it: %2",
                         "%1 nahm die wartenden Blöcke nicht: %2")
            .With({graph.Name(graph.order[place]), left});
    return Bilingual("starved input: %1, while %2 are waiting", "unversorgter Eingang: %1; es warten %2")
        .With({starved, left});
}

void RunVerdict::JudgeGaps() {
    for (const ModuleReport& module : report.modules) {
        if (module.gaps.count == 0) continue;
        const std::string text = module.instance + ": " + WriteGaps(module.gaps);
        report.explanation += (report.explanation.empty() ? "" : "; ") + text;
        if (report.verdict == Verdict::Complete) report.verdict = Verdict::Gaps;
    }
}

}  // namespace host
