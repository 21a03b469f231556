#include "host/Commands.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host/Console.h"
#include "host/Conversion.h"
#include "host/Graph.h"
#include "host/IdleSinks.h"
#include "host/Messages.h"
#include "host/ModuleListing.h"
#include "host/ProgressLine.h"
#include "host/RecordDiff.h"
#include "host/Report.h"
#include "sigweave/platform/Process.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr std::size_t MOST_MISTAKES_TOLD = 1000;

std::atomic<bool> interruptWanted{false};

// The first signal asks the run to drain; a second one ends the program at once.
extern "C" void OnInterrupt(int) {
    interruptWanted.store(true);
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

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

void TellWarnings(const std::vector<Message>& warnings) {
    for (const Message& warning : warnings) {
        messages::Add(warning);
        runlog::FromHost(TCLogFile::WARNING, WriteMessage(warning));
    }
}

// A graph read and checked, with all that it needs. What is wrong is told.
struct OpenGraph {
    OpenGraph(const CommandOptions& options, bool reportTakesOutput)
        : file(GraphFile::Read(options.graph, mistakes)), catalogue(OpenCatalogue(options)) {
        for (const std::string& setting : options.settings) file.Set(setting, mistakes);
        graph = std::make_unique<Graph>(file, catalogue, window, mistakes);
        if (reportTakesOutput) graph->RefuseStandardOutput();
        TellProblems(catalogue, !mistakes.IsEmpty());
        if (mistakes.IsEmpty())
            TellWarnings(graph->Warnings());
        else
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
    options.interrupt = &interruptWanted;
    if (TCIsTerminal(StandardStream::Error))
        options.onProgress = [](const RunProgress& progress) {
            console::ShowProgress(WriteProgress(progress));
        };
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
    RunReport report = Runner(graph.Modules(), graph.Lines(), options).Run();
    console::ShowProgress("");
    return report;
}

bool IsOver(Verdict verdict) {
    return verdict == Verdict::Complete || verdict == Verdict::Interrupted;
}

int ExitCodeOf(Verdict verdict) {
    if (verdict == Verdict::Complete) return EXIT_COMPLETE;
    if (verdict == Verdict::Mistakes) return EXIT_WRONG_INPUT;
    return verdict == Verdict::Interrupted ? EXIT_INTERRUPTED : EXIT_INCOMPLETE;
}

bool IsGraph(const CommandOptions& options, const std::string& path) {
    std::error_code isNoFile;
    return std::filesystem::equivalent(path, options.graph, isNoFile);
}

// Answers why not; empty when it is open, or none was asked for.
std::string OpenLog(const CommandOptions& options) {
    if (IsGraph(options, options.log.pattern))
        return Bilingual("the log '%1' is the graph itself; name another file",
                         "das Protokoll '%1' ist der Graph selbst; nennen Sie eine andere Datei")
            .With({options.log.pattern});
    return runlog::Open(options.log);
}

// The file for the JSON report, open from the start: that it cannot be written is told before a long run.
class ReportFile {
 public:
    // Answers why not; empty when it is open, or none was asked for.
    std::string Open(const CommandOptions& options) {
        path = options.reportFile;
        if (path.empty()) return "";
        if (IsGraph(options, path))
            return Bilingual("the report '%1' is the graph itself; name another file",
                             "der Bericht '%1' ist der Graph selbst; nennen Sie eine andere Datei")
                .With({path});
        file = tc::ReplacedFile::Open(path.c_str());
        return file != nullptr ? "" : tc::WhyNotWritten(path, std::generic_category().message(errno));
    }

    // False, and the reason told, when it is not in place.
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

// What came of a graph that may be wrong. `outputIsTaken`: by a module, so that no report goes there.
RunReport RunLogged(const CommandOptions& options, bool& outputIsTaken) {
    RunReport report;
    const OpenGraph open(options, options.json);
    if (open.mistakes.IsEmpty()) {
        outputIsTaken = open.graph->WritesToStandardOutput();
        report = RunWithSignals(*open.graph, options.realtime);
        if (IsOver(report.verdict)) TellWarnings(FindIdleSinks(report, open.graph->Lines()));
    } else {
        report.verdict = Verdict::Mistakes;
        report.mistakes = open.mistakes.InOrder();
    }
    return report;
}

// Of what could not even begin.
RunReport RefuseRun(const std::string& option, const std::string& problem) {
    console::Error(Bilingual("%1; nothing was run", "%1; nichts wurde ausgeführt").With({problem}));
    RunReport report;
    report.verdict = Verdict::Mistakes;
    Mistakes mistakes;
    mistakes.Add({option}, problem);
    report.mistakes = mistakes.InOrder();
    return report;
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
    const std::string text = WriteTable(report) + WriteWarnings(report, Warnings::All) + verdict + "\n";
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

int RunGraph(const CommandOptions& options) {
    ReportFile file;
    bool outputIsTaken = false;
    RunReport report;
    if (const std::string problem = file.Open(options); !problem.empty())
        report = RefuseRun("--report-file " + options.reportFile, problem);
    else if (const std::string reason = OpenLog(options); !reason.empty())
        report = RefuseRun("--log " + options.log.pattern, reason);
    else
        report = RunLogged(options, outputIsTaken);
    if (report.verdict != Verdict::Mistakes) runlog::StateOf("", WriteVerdict(report, options.graph));
    runlog::Close();
    AddMessages(report);
    const bool printed = Deliver(report, options, outputIsTaken);
    const bool kept = file.Write(WriteJson(report, options.graph));
    const int code = StrictCode(options, ExitCodeOf(report.verdict), CountWarnings(report));
    return printed && kept ? code : std::max<int>(code, EXIT_INCOMPLETE);
}

int CheckGraph(const CommandOptions& options) {
    const OpenGraph open(options, false);
    if (!open.mistakes.IsEmpty()) return EXIT_WRONG_INPUT;
    RunReport report;
    AddMessages(report);
    console::Tell(WriteWarnings(report, Warnings::NotTold));
    const std::string told = Bilingual("%1: no mistakes; modules: %2, lines: %3\n",
                                       "%1: keine Fehler; Module: %2, Verbindungen: %3\n")
                                 .With({options.graph, std::to_string(open.graph->Modules().size()),
                                        std::to_string(open.graph->Lines().size())});
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
