#include "host/Commands.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "host/AnyRecording.h"
#include "host/Console.h"
#include "host/Conversion.h"
#include "host/EngineSection.h"
#include "host/FileWait.h"
#include "host/LiveChanges.h"
#include "host/Messages.h"
#include "host/ModuleListing.h"
#include "host/OpenGraph.h"
#include "host/Places.h"
#include "host/PresetCommand.h"
#include "host/ProgressLine.h"
#include "host/RecordDiff.h"
#include "host/Report.h"
#include "host/Rerun.h"
#include "host/SetCommand.h"
#include "host/engine/EnginePlace.h"
#include "sigweave/platform/OwnedFolder.h"
#include "sigweave/platform/Process.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/platform/StandardStreams.h"
#include "sigweave/recording/RecordingReader.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"
#include "sigweave/services/RunTime.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr std::size_t MOST_MISTAKES_TOLD = 1000;

// Made when it is first asked for, not before the standard streams are kept: it takes the number of one that
// is closed.
Interruption& Wish() {
    static Interruption interruption;
    return interruption;
}

void TellProblems(const ModuleCatalogue& catalogue, bool areErrors) {
    for (const std::string& problem : catalogue.Problems())
        areErrors ? console::Error(problem) : console::Warning(problem);
}

void TellMistake(const std::string& text) {
    console::Say(text);
    runlog::FromHost(TCLogFile::ERROR, text);
}

void TellMistakes(const Mistakes& mistakes, const std::string& outcome) {
    const std::vector<Mistake> told = mistakes.InOrder(MOST_MISTAKES_TOLD);
    const std::size_t count = mistakes.GetCount();
    for (const Mistake& mistake : told) TellMistake(ToText(mistake.place) + ": " + mistake.text);
    if (told.size() < count)
        console::Say(
            Bilingual("... and %1 more", "... und %1 weitere").With({std::to_string(count - told.size())}));
    static constexpr Bilingual ONE("%1 mistake; %2", "%1 Fehler; %2");
    static constexpr Bilingual SEVERAL("%1 mistakes; %2", "%1 Fehler; %2");
    console::Say((count == 1 ? ONE : SEVERAL).With({std::to_string(count), outcome}));
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

// What is wrong with the graph, or what to look out for.
void TellFindings(OpenGraph& open, bool reportTakesOutput) {
    if (reportTakesOutput) open.graph.RefuseStandardOutput();
    TellProblems(open.catalogue, !open.mistakes.IsEmpty());
    if (open.mistakes.IsEmpty()) return TellWarnings(open.graph.Warnings());
    TellMistakes(
        open.mistakes,
        Bilingual("nothing of %1 was run", "von %1 wurde nichts ausgeführt").With({open.file.GetPath()}));
}

// Changes of live parameters that are to be made in the run; what is wrong with them goes to the mistakes.
std::vector<LiveChange> PlanChanges(OpenGraph& open, const CommandOptions& options) {
    std::vector<LiveChange> changes;
    if (!options.changes.empty()) changes = ReadChanges(options.changes, open.mistakes);
    if (open.mistakes.IsEmpty())
        CheckChanges(changes, open.graph.Modules(), open.graph.Lines(), open.mistakes);
    return changes;
}

// Of --place; none without.
std::optional<PlacePlan> PlanPlace(OpenGraph& open, const CommandOptions& options) {
    if (options.place.empty() || !open.mistakes.IsEmpty()) return std::nullopt;
    return PlanPlaces(open, options.place);
}

// Of --threads: 0 is auto.
int ThreadsOf(const std::string& text) {
    int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

// Not a part of the report, which is the same on any number of threads.
void TellNote(const std::string& text) {
    console::Say(std::string(console::NOTE_WORD.Text()) + ": " + text);
    runlog::FromHost(TCLogFile::NOTICE, text);
}

RunReport RunWithSignals(const OpenGraph& open, RunOptions options, std::vector<Message>& warnings) {
    options.onNote = TellNote;
    options.interruption = &Wish();
    options.onState = runlog::StateOf;
    options.onWait = TellWait;
    options.onWarning = console::Warning;
    options.onError = [](const std::string& text) { runlog::FromHost(TCLogFile::ERROR, text); };
    if (TCIsTerminal(StandardStream::Error))
        options.onProgress = [](const RunProgress& progress) {
            console::ShowProgress(WriteProgress(progress));
        };
    RunGauge gauge;
    options.gauge = &gauge;
    const RunWait wait(gauge, open.graph.Modules(), Wish(), [] { std::_Exit(EXIT_INTERRUPTED); });
    TCOnInterrupt([] { Wish().Raise(); }, wait.MayBe() ? WaitingCalls::Fail : WaitingCalls::GoOn);
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
    // True also when none was asked for.
    bool Open(const std::string& name, std::string& error) {
        path = name;
        if (path.empty()) return true;
        errno = 0;
        file = tc::ReplacedFile::Open(path);
        if (file == nullptr) error = tc::WhyNotWritten(path, errno);
        return file != nullptr;
    }

    // False, after an error message, when it is not in place.
    bool Write(const std::string& text) {
        if (file == nullptr) return true;
        errno = 0;
        const bool written = std::fwrite(text.data(), 1, text.size(), file->Get()) == text.size();
        if (written && file->Commit()) return true;
        console::Error(tc::WhyNotWritten(path, errno));
        return false;
    }

 private:
    std::string path;
    std::unique_ptr<tc::ReplacedFile> file;
};

// What came of a graph without mistakes.
RunReport RunLogged(const OpenGraph& open, const std::vector<LiveChange>& planned,
                    const CommandOptions& options, PlaceRun* place = nullptr) {
    LiveChanges changes;
    for (const LiveChange& change : planned) changes.Add(change);
    std::vector<Message> warnings;
    RunOptions runOptions;
    runOptions.realtime = options.realtime;
    runOptions.limit = options.limit;
    runOptions.threads = ThreadsOf(options.threads);
    runOptions.place = place;
    if (!options.changes.empty()) runOptions.changes = &changes;
    RunReport report = RunWithSignals(open, std::move(runOptions), warnings);
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

// The part of the graph that runs here.
RunReport RunPlace(const OpenGraph& open, const std::vector<LiveChange>& planned,
                   const CommandOptions& options, const PlacePlan& plan) {
#ifdef SIGWEAVE_ENGINE
    const std::string place = "--place " + options.place;
    if (plan.places.size() < 2) return RunLogged(open, planned, options);
    Mistakes known;
    std::string error;
    Wish();  // before a signal asks for it
    TCOnInterrupt([] { Wish().Raise(); }, WaitingCalls::GoOn);
    const auto joined = engine::JoinPlace(open, plan, ReadEngineSection(open.file, known),
                                          {options.engine, options.newRun, &Wish()}, error);
    if (joined != nullptr) return RunLogged(open, planned, options, joined.get());
    return RefuseRun(place,
                     error.empty() ? Bilingual("it was interrupted", "es wurde abgebrochen").Text() : error);
#else
    (void)open, (void)planned, (void)plan;
    return RefuseRun(
        "--place " + options.place,
        Bilingual(
            "this program was built without libnats, which joins places; install libnats-dev and build it "
            "again",
            "dieses Programm wurde ohne libnats gebaut, das Orte verbindet; installieren Sie libnats-dev, "
            "und "
            "bauen Sie es neu")
            .Text());
#endif
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
    std::string error;
    runlog::Hold();
    OpenGraph open(SourceOf(options, files));
    const std::vector<LiveChange> planned = PlanChanges(open, options);
    const std::optional<PlacePlan> places = PlanPlace(open, options);
    TellFindings(open, options.json);
    const bool outputIsTaken = open.mistakes.IsEmpty() && open.graph.WritesToStandardOutput();
    const bool clashes = HasClash(open.mistakes, files);
    if (clashes)
        report = ReportMistakes(open.mistakes);
    else if (!file.Open(options.reportFile, error))
        report = RefuseRun("--report-file " + options.reportFile, error);
    else if (!changes.Open(options.writeChanges, error))
        report = RefuseRun("--write-changes " + options.writeChanges, error);
    else if (!runlog::Open(options.log, error))
        report = RefuseRun("--log " + options.log.pattern, error);
    else
        report = !open.mistakes.IsEmpty() ? ReportMistakes(open.mistakes)
                 : places                 ? RunPlace(open, planned, options, *places)
                                          : RunLogged(open, planned, options);
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
    PlanChanges(open, options);
    PlanPlace(open, options);
    TellFindings(open, false);
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

namespace {

// False, with the reason, when not all of it is there.
bool WriteText(const std::string& path, const std::string& text, std::string& error) {
    errno = 0;
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) error = tc::WhyNotWritten(path, errno);
    return !file.fail();
}

constexpr Bilingual SET_TMPDIR("; the environment variable TMPDIR names another folder for temporary files",
                               "; die Umgebungsvariable TMPDIR nennt einen anderen Ordner für temporäre "
                               "Dateien");

// The graph that is to run again, as it was recorded unless --graph names another one.
GraphFile RerunGraphOf(const tc::RecordingReader& reader, const CommandOptions& options, Mistakes& mistakes) {
    const std::string& recording = options.records[0];
    if (!options.graph.empty()) return GraphFile::Read(options.graph, mistakes);
    const std::string recorded = reader.GetFact("graph");
    if (!recorded.empty()) return GraphFile::Parse(recording, recorded, mistakes);
    mistakes.Add(
        {recording},
        Bilingual("does not hold the graph that recorded it; name one with --graph",
                  "enthält den Graphen nicht, der sie aufgezeichnet hat; nennen Sie mit --graph einen")
            .Text());
    return {};
}

}  // namespace

int RerunRecording(const CommandOptions& options) {
    const std::string recording = std::filesystem::absolute(options.records[0]).string();
    tc::RecordingReader reader;
    if (!reader.Open(options.records[0].c_str())) {
        console::Error(WhyNotPacked(options.records[0], reader.GetError()));
        return EXIT_WRONG_INPUT;
    }
    Mistakes mistakes;
    const GraphFile graph = RerunGraphOf(reader, options, mistakes);
    if (!mistakes.IsEmpty()) {
        TellMistakes(mistakes, Bilingual("nothing was run", "nichts wurde ausgeführt").Text());
        return EXIT_WRONG_INPUT;
    }
    std::error_code failed;
    const auto folder = tc::OwnedFolder::MakeTemporary("sigweave-rerun-", failed);
    if (folder == nullptr) {
        console::Error(
            Bilingual("there can be no temporary folder: %1", "es gibt keinen temporären Ordner: %1")
                .With({failed.message()}) +
            SET_TMPDIR.Text());
        return EXIT_INCOMPLETE;
    }
    const std::string again = (folder->Path() / "again.mcap").string();
    const RerunGraph made = MakeRerunGraph(graph, reader.GetFact("recorder"), recording, again);
    if (!made.error.empty()) {
        console::Error(made.error);
        return EXIT_WRONG_INPUT;
    }
    CommandOptions run = options;
    run.graph = (folder->Path() / "rerun.graph").string();
    std::string error;
    if (!WriteText(run.graph, made.text, error)) {
        console::Error(error + SET_TMPDIR.Text());
        return EXIT_INCOMPLETE;
    }
    OpenGraph open(SourceOf(run));
    TellFindings(open, false);
    if (!open.mistakes.IsEmpty()) return EXIT_WRONG_INPUT;
    tc::RunTime start;
    if (const double recordedStart = std::strtod(reader.GetFact("start").c_str(), nullptr);
        recordedStart > 0.0)
        start.Take(recordedStart);
    std::vector<Message> warnings;
    const RunReport report = RunWithSignals(open, {}, warnings);
    TellWarnings(warnings);
    if (report.verdict != Verdict::Complete) {
        console::Error(WriteVerdict(report, options.records[0]));
        return EXIT_INCOMPLETE;
    }
    if (!made.ranAnew.empty())
        console::Tell(Bilingual("these sources were not recorded and ran anew: %1\n",
                                "diese Quellen wurden nicht aufgezeichnet und liefen neu: %1\n")
                          .With({made.ranAnew}));
    const RecordComparison found =
        CompareRecords(options.records[0], again, Bilingual("the new run", "dem neuen Lauf").Text());
    if (found.verdict == RecordVerdict::Equal)
        return Print(Bilingual("identical\n", "identisch\n").Text()) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
    Print(found.text + "\n");
    return EXIT_INCOMPLETE;
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
