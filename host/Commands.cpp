#include "host/Commands.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "host/Console.h"
#include "host/Conversion.h"
#include "host/FileWait.h"
#include "host/LiveChanges.h"
#include "host/Messages.h"
#include "host/ModuleListing.h"
#include "host/OpenGraph.h"
#include "host/PresetCommand.h"
#include "host/ProgressLine.h"
#include "host/RecordDiff.h"
#include "host/Report.h"
#include "host/SetCommand.h"
#include "sigweave/platform/Process.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/platform/StandardStreams.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr std::size_t MOST_MISTAKES_TOLD = 1000;

Interruption interruption;

void TellProblems(const ModuleCatalogue& catalogue, bool areErrors) {
    for (const std::string& problem : catalogue.Problems())
        areErrors ? console::Error(problem) : console::Warning(problem);
}

void TellMistake(const std::string& text) {
    console::Say(text);
    runlog::FromHost(TCLogFile::ERROR, text);
}

void TellMistakes(const Mistakes& mistakes, const std::string& outcome) {
    const std::vector<Mistake> all = mistakes.InOrder();
    const std::size_t told = std::min(all.size(), MOST_MISTAKES_TOLD);
    for (std::size_t index = 0; index < told; ++index)
        TellMistake(ToText(all[index].place) + ": " + all[index].text);
    if (told < all.size())
        console::Say(
            Bilingual("... and %1 more", "... und %1 weitere").With({std::to_string(all.size() - told)}));
    static constexpr Bilingual ONE("%1 mistake; %2", "%1 Fehler; %2");
    static constexpr Bilingual SEVERAL("%1 mistakes; %2", "%1 Fehler; %2");
    console::Say((all.size() == 1 ? ONE : SEVERAL).With({std::to_string(all.size()), outcome}));
}

using console::Print;

void TellWarnings(const std::vector<Message>& warnings) {
    for (const Message& warning : warnings) {
        messages::Add(warning);
        runlog::FromHost(TCLogFile::WARNING, WriteMessage(warning));
    }
}

GraphSource SourceOf(const CommandOptions& options, const std::vector<FileUse>& filesOfHost = {}) {
    return {options.graph, std::nullopt, options.settings, ModuleCatalogue::FoldersOf(options.modulePath),
            filesOfHost};
}

// What is wrong with the graph and with the changes that are to be made in the run, or what to look out for.
void TellFindings(OpenGraph& open, const CommandOptions& options, std::vector<LiveChange>& changes) {
    if (options.json) open.graph.RefuseStandardOutput();
    if (!options.changes.empty()) changes = ReadChanges(options.changes, open.mistakes);
    if (open.mistakes.IsEmpty())
        CheckChanges(changes, open.graph.Modules(), open.graph.Lines(), open.mistakes);
    TellProblems(open.catalogue, !open.mistakes.IsEmpty());
    if (open.mistakes.IsEmpty()) return TellWarnings(open.graph.Warnings());
    TellMistakes(
        open.mistakes,
        Bilingual("nothing of %1 was run", "von %1 wurde nichts ausgeführt").With({open.file.GetPath()}));
}

RunReport RunWithSignals(const OpenGraph& open, bool realtime, LiveChanges* changes,
                         std::vector<Message>& warnings) {
    RunOptions options;
    options.realtime = realtime;
    options.changes = changes;
    options.interruption = &interruption;
    options.onState = runlog::StateOf;
    options.onWarning = console::Warning;
    options.onError = [](const std::string& text) { runlog::FromHost(TCLogFile::ERROR, text); };
    if (TCIsTerminal(StandardStream::Error))
        options.onProgress = [](const RunProgress& progress) {
            console::ShowProgress(WriteProgress(progress));
        };
    RunGauge gauge;
    options.gauge = &gauge;
    const RunWait wait(gauge, open.graph.Modules(), interruption, [] { std::_Exit(EXIT_INTERRUPTED); });
    TCOnInterrupt([] { interruption.Raise(); }, wait.MayBe() ? WaitingCalls::Fail : WaitingCalls::GoOn);
    RunReport report = open.Run(options, warnings);
    console::ShowProgress("");
    return report;
}

int ExitCodeOf(Verdict verdict) {
    if (verdict == Verdict::Complete) return EXIT_COMPLETE;
    if (verdict == Verdict::Mistakes) return EXIT_WRONG_INPUT;
    return verdict == Verdict::Interrupted ? EXIT_INTERRUPTED : EXIT_INCOMPLETE;
}

// What the program itself writes in a run, besides its standard streams.
std::vector<FileUse> FilesOf(const CommandOptions& options) {
    return {{Bilingual("the log", "das Protokoll").Text(),
             runlog::FileOf(options.log),
             TCModuleFile::WRITES,
             {"--log " + options.log.pattern}},
            {Bilingual("the report", "der Bericht").Text(),
             options.reportFile,
             TCModuleFile::WRITES,
             {"--report-file " + options.reportFile}},
            {Bilingual("the changes of this run", "die Änderungen dieses Laufs").Text(),
             options.writeChanges,
             TCModuleFile::WRITES,
             {"--write-changes " + options.writeChanges}},
            {Bilingual("the changes to make", "die verlangten Änderungen").Text(),
             options.changes,
             TCModuleFile::READS,
             {"--changes " + options.changes}}};
}

// The report and messages go their own way; what modules print is lost or goes elsewhere.
void TellLostStreams() {
    static constexpr Bilingual CLOSED(
        "a module closed %1; what modules print there is lost",
        "ein Modul hat %1 geschlossen; was Module dorthin schreiben, ist verloren");
    static constexpr Bilingual REDIRECTED(
        "a module redirected %1; what modules print there is not shown",
        "ein Modul hat %1 umgelenkt; was Module dorthin schreiben, erscheint nicht");
    static constexpr std::pair<StandardStream, Bilingual> STREAMS[] = {
        {StandardStream::Output, {"standard output", "die Standardausgabe"}},
        {StandardStream::Error, {"standard error", "die Fehlerausgabe"}}};
    for (const auto& [stream, name] : STREAMS) {
        const tc::StreamChange change = tc::WhatBecameOf(stream);
        if (change == tc::StreamChange::None) continue;
        console::Warning((change == tc::StreamChange::Closed ? CLOSED : REDIRECTED).With({name.Text()}));
    }
}

// Whether a file of the program is also another's: nothing may be written to it then.
bool HasClash(const Mistakes& mistakes, const std::vector<FileUse>& files) {
    return std::ranges::any_of(files,
                               [&](const FileUse& file) { return mistakes.HasAny(file.place.source); });
}

// The file for the JSON report or the changes, open from the start: if it cannot be written, the user learns
// it before a long run.
class ReportFile {
 public:
    // Answers why not; empty when it is open, or none was asked for.
    std::string Open(const std::string& name) {
        path = name;
        if (path.empty()) return "";
        errno = 0;
        file = tc::ReplacedFile::Open(path);
        return file != nullptr ? "" : tc::WhyNotWritten(path, std::generic_category().message(errno));
    }

    // False, after an error message, when it is not in place.
    bool Write(const std::string& text) {
        if (file == nullptr) return true;
        errno = 0;
        const bool written = std::fwrite(text.data(), 1, text.size(), file->Get()) == text.size();
        if (written && file->Commit()) return true;
        console::Error(tc::WhyNotWritten(path, std::generic_category().message(errno)));
        return false;
    }

 private:
    std::string path;
    std::unique_ptr<tc::ReplacedFile> file;
};

// What came of a graph without mistakes.
RunReport RunLogged(const OpenGraph& open, const CommandOptions& options,
                    const std::vector<LiveChange>& planned) {
    LiveChanges changes;
    for (const LiveChange& change : planned) changes.Add(change);
    std::vector<Message> warnings;
    RunReport report =
        RunWithSignals(open, options.realtime, options.changes.empty() ? nullptr : &changes, warnings);
    TellLostStreams();
    TellWarnings(warnings);
    return report;
}

RunReport ReportMistakes(const Mistakes& mistakes) {
    RunReport report;
    report.verdict = Verdict::Mistakes;
    report.mistakes = mistakes.InOrder();
    return report;
}

// Of what could not even begin.
RunReport RefuseRun(const std::string& option, const std::string& problem) {
    console::Error(Bilingual("%1; nothing was run", "%1; nichts wurde ausgeführt").With({problem}));
    Mistakes mistakes;
    mistakes.Add({option}, problem);
    return ReportMistakes(mistakes);
}

// False when not all of it was written.
bool Deliver(const RunReport& report, const CommandOptions& options, bool outputIsTaken) {
    const bool hasRun = report.verdict != Verdict::Mistakes;
    const std::string verdict = WriteVerdict(report, options.graph);
    if (options.json) {
        if (hasRun) console::Tell(WriteWarnings(report, Warnings::NotTold) + verdict + "\n");
        return Print(WriteJson(report, options.graph));
    }
    if (!hasRun) return true;
    const std::string text =
        WriteTable(report) + WriteChangesMade(report) + WriteWarnings(report, Warnings::All) + verdict + "\n";
    if (!outputIsTaken) return Print(text);
    console::Tell(text);
    return true;
}

// The code, unless warnings count.
int StrictCode(const CommandOptions& options, int code, std::int64_t warnings) {
    if (!options.strict || code != EXIT_COMPLETE || warnings == 0) return code;
    console::Error(
        Bilingual("--strict: warnings: %1", "--strict: Warnungen: %1").With({std::to_string(warnings)}));
    return EXIT_INCOMPLETE;
}

void AddMessages(RunReport& report) {
    report.messages = messages::Take(report.messagesLeftOut);
}

}  // namespace

ModuleCatalogue OpenCatalogue(const CommandOptions& options) {
    return ModuleCatalogue(ModuleCatalogue::FoldersOf(options.modulePath));
}

int RunGraph(const CommandOptions& options) {
    const std::vector<FileUse> files = FilesOf(options);
    ReportFile file;
    ReportFile changes;
    RunReport report;
    runlog::Hold();
    OpenGraph open(SourceOf(options, files));
    std::vector<LiveChange> planned;
    TellFindings(open, options, planned);
    const bool outputIsTaken = open.mistakes.IsEmpty() && open.graph.WritesToStandardOutput();
    const bool clashes = HasClash(open.mistakes, files);
    if (clashes)
        report = ReportMistakes(open.mistakes);
    else if (const std::string problem = file.Open(options.reportFile); !problem.empty())
        report = RefuseRun("--report-file " + options.reportFile, problem);
    else if (const std::string cannot = changes.Open(options.writeChanges); !cannot.empty())
        report = RefuseRun("--write-changes " + options.writeChanges, cannot);
    else if (const std::string reason = runlog::Open(options.log); !reason.empty())
        report = RefuseRun("--log " + options.log.pattern, reason);
    else
        report = open.mistakes.IsEmpty() ? RunLogged(open, options, planned) : ReportMistakes(open.mistakes);
    if (report.verdict != Verdict::Mistakes) runlog::StateOf("", WriteVerdict(report, options.graph));
    runlog::Close();
    AddMessages(report);
    const bool printed = Deliver(report, options, outputIsTaken);
    const bool kept = file.Write(WriteJson(report, options.graph)) &
                      (report.verdict == Verdict::Mistakes || changes.Write(WriteChanges(report.changes)));
    const int code = StrictCode(options, ExitCodeOf(report.verdict), CountWarnings(report));
    return printed && kept ? code : std::max<int>(code, EXIT_INCOMPLETE);
}

int CheckGraph(const CommandOptions& options) {
    OpenGraph open(SourceOf(options));
    std::vector<LiveChange> planned;
    TellFindings(open, options, planned);
    if (!open.mistakes.IsEmpty()) return EXIT_WRONG_INPUT;
    RunReport report;
    AddMessages(report);
    console::Tell(WriteWarnings(report, Warnings::NotTold));
    const std::string told = Bilingual("%1: no mistakes; modules: %2, lines: %3\n",
                                       "%1: keine Fehler; Module: %2, Verbindungen: %3\n")
                                 .With({options.graph, std::to_string(open.graph.Modules().size()),
                                        std::to_string(open.graph.Lines().size())});
    if (!Print(told)) return EXIT_INCOMPLETE;
    return StrictCode(options, EXIT_COMPLETE, CountWarnings(report));
}

int ConvertGraph(const CommandOptions& options) {
    Mistakes mistakes;
    const GraphFile file = GraphFile::Read(options.graph, mistakes);
    if (!mistakes.IsEmpty()) {
        TellMistakes(mistakes,
                     Bilingual("%1 was not written", "%1 wurde nicht geschrieben").With({options.target}));
        return EXIT_WRONG_INPUT;
    }
    std::string error;
    if (!ConvertTo(file, options.target, error)) {
        console::Error(error);
        return EXIT_INCOMPLETE;
    }
    static constexpr Bilingual TO_XML("%1: %2 as an XML document\n", "%1: %2 als XML-Dokument\n");
    static constexpr Bilingual TO_TEXT("%1: %2 as parameter text\n", "%1: %2 als Parametertext\n");
    const Bilingual& told = file.GetForm() == GraphForm::Text ? TO_XML : TO_TEXT;
    return Print(told.With({options.target, options.graph})) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

int DiffRecords(const CommandOptions& options) {
    const auto& [a, b] = options.records;
    const RecordComparison found = CompareRecords(a, b);
    bool written = true;
    if (found.verdict == RecordVerdict::Unreadable)
        console::Error(found.text);
    else if (found.verdict == RecordVerdict::Different)
        written = Print(Bilingual("%1 and %2 differ: %3\n", "%1 und %2 unterscheiden sich: %3\n")
                            .With({a, b, found.text}));
    else
        written = Print(Bilingual("%1 and %2 are equal\n", "%1 und %2 sind gleich\n").With({a, b}));
    return written ? static_cast<int>(found.verdict) : static_cast<int>(RecordVerdict::Unreadable);
}

int UsePresets(const CommandOptions& options, const PresetOptions& presets) {
    return RunPresetCommand(OpenCatalogue(options), presets);
}

int ShowModules(const CommandOptions& options) {
    const ModuleCatalogue catalogue = OpenCatalogue(options);
    TellProblems(catalogue, true);
    std::string text;
    if (options.moduleId.empty()) {
        const bool complete = ListModules(catalogue, text) && catalogue.Problems().empty();
        return Print(text) && complete ? EXIT_COMPLETE : EXIT_INCOMPLETE;
    }
    const CatalogueEntry* entry = catalogue.Find(options.moduleId);
    if (entry == nullptr) {
        console::Error(catalogue.WhyUnusable(options.moduleId));
        return EXIT_WRONG_INPUT;
    }
    const bool described =
        options.json ? DeclareModule(catalogue, *entry, text) : DescribeModule(catalogue, *entry, text);
    if (!described) console::Error(text);
    return described && Print(text) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace host
