#include "host/Commands.h"

#include <algorithm>
#include <cstdlib>

#include "host/Console.h"
#include "host/Conversion.h"
#include "host/FileWait.h"
#include "host/Graph.h"
#include "host/ModuleListing.h"
#include "host/ProgressLine.h"
#include "host/RecordDiff.h"
#include "host/Report.h"
#include "sigweave/platform/Process.h"
#include "sigweave/platform/StandardStreams.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr std::size_t MOST_MISTAKES_TOLD = 1000;

Interruption interruption;

ModuleCatalogue OpenCatalogue(const CommandOptions& options) {
    std::string path;
    for (const std::string& part : options.modulePath) path += (path.empty() ? "" : ":") + part;
    const char* environment = std::getenv("SIGWEAVE_MODULE_PATH");
    if (options.modulePath.empty() && environment != nullptr) path = environment;
    return ModuleCatalogue(ModuleCatalogue::SplitPath(path));
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

// A graph read and checked, with all that it needs.
struct OpenGraph {
    explicit OpenGraph(const CommandOptions& options, const std::vector<FileUse>& filesOfHost = {})
        : file(GraphFile::Read(options.graph, mistakes)), catalogue(OpenCatalogue(options)) {
        for (const std::string& setting : options.settings) file.Set(setting, mistakes);
        graph = std::make_unique<Graph>(file, catalogue, window, mistakes, filesOfHost);
        TellProblems(catalogue, !mistakes.IsEmpty());
        if (!mistakes.IsEmpty())
            TellMistakes(
                mistakes,
                Bilingual("nothing of %1 was run", "von %1 wurde nichts ausgeführt").With({options.graph}));
    }

    Mistakes mistakes;
    GraphFile file;
    HostWindow window;
    ModuleCatalogue catalogue;
    std::unique_ptr<Graph> graph;
};

RunReport RunWithSignals(const Graph& graph, bool realtime) {
    RunOptions options;
    options.realtime = realtime;
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
    Runner runner(graph.Modules(), graph.Lines(), options);
    console::SetSpeaker([&runner] { return runner.Speaker(); });
    const RunWait wait(gauge, graph.Modules(), interruption, [] { std::_Exit(EXIT_INTERRUPTED); });
    TCOnInterrupt([] { interruption.Raise(); }, wait.MayBe() ? WaitingCalls::Fail : WaitingCalls::GoOn);
    RunReport report = runner.Run();
    console::SetSpeaker(nullptr);
    console::ShowProgress("");
    return report;
}

int ExitCodeOf(Verdict verdict) {
    if (verdict == Verdict::Complete) return EXIT_COMPLETE;
    return verdict == Verdict::Interrupted ? EXIT_INTERRUPTED : EXIT_INCOMPLETE;
}

// What the program itself writes in a run, beside its standard streams.
std::vector<FileUse> FilesOf(const CommandOptions& options) {
    return {{Bilingual("the log", "das Protokoll").Text(),
             runlog::FileOf(options.log),
             TCModuleFile::WRITES,
             {"--log " + options.log.pattern}}};
}

// The report and messages go their own way; what modules print is lost or goes elsewhere.
void TellLostStreams() {
    static constexpr Bilingual CLOSED(
        "a module closed %1; what modules print there is lost",
        "ein Modul hat %1 geschlossen; was Module dorthin schreiben, ist verloren");
    static constexpr Bilingual REDIRECTED(
        "a module led %1 elsewhere; what modules print there is not seen",
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

int RunLogged(const OpenGraph& open, const CommandOptions& options) {
    if (!open.mistakes.IsEmpty()) return EXIT_WRONG_INPUT;
    open.graph->MakeFolders();
    const RunReport report = RunWithSignals(*open.graph, options.realtime);
    TellLostStreams();
    const std::string verdict = WriteVerdict(report, options.graph);
    runlog::StateOf("", verdict);
    if (options.json) console::Say(verdict);
    const bool written =
        Print(options.json ? WriteJson(report, options.graph) : WriteTable(report) + verdict + "\n");
    const int code = ExitCodeOf(report.verdict);
    return written || code != EXIT_COMPLETE ? code : EXIT_INCOMPLETE;
}

}  // namespace

int RunGraph(const CommandOptions& options) {
    const std::vector<FileUse> files = FilesOf(options);
    runlog::Hold();
    const OpenGraph open(options, files);
    if (HasClash(open.mistakes, files)) return EXIT_WRONG_INPUT;
    const std::string problem = runlog::Open(options.log);
    if (!problem.empty()) {
        console::Error(Bilingual("%1; nothing was run", "%1; nichts wurde ausgeführt").With({problem}));
        return EXIT_WRONG_INPUT;
    }
    const int code = RunLogged(open, options);
    runlog::Close();
    return code;
}

int CheckGraph(const CommandOptions& options) {
    const OpenGraph open(options);
    if (!open.mistakes.IsEmpty()) return EXIT_WRONG_INPUT;
    const std::string told = Bilingual("%1: no mistakes; modules: %2, lines: %3\n",
                                       "%1: keine Fehler; Module: %2, Verbindungen: %3\n")
                                 .With({options.graph, std::to_string(open.graph->Modules().size()),
                                        std::to_string(open.graph->Lines().size())});
    return Print(told) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
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
    const bool described = DescribeModule(catalogue, *entry, text);
    if (!described) console::Error(text);
    return described && Print(text) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace host
