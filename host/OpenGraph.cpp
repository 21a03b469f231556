#include "host/OpenGraph.h"

#include <algorithm>

#include "host/Console.h"
#include "host/EngineSection.h"
#include "host/IdleSinks.h"
#include "host/RunFacts.h"
#include "host/parts/PlaceRun.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

// Texts of modules that come without a name are those of the module that the runner is calling.
class SpeakerOf {
 public:
    explicit SpeakerOf(const Runner& runner) {
        console::SetSpeaker([&runner] { return runner.Speaker(); });
    }
    ~SpeakerOf() { console::SetSpeaker(nullptr); }
    SpeakerOf(const SpeakerOf&) = delete;
    SpeakerOf& operator=(const SpeakerOf&) = delete;
};

// Only what ran here.
void KeepPlace(const PlacePlan& plan, const std::vector<RunLine>& lines, RunReport& report,
               std::vector<Message>& warnings) {
    const auto isHere = [&](int module) { return plan.partOf[static_cast<std::size_t>(module)] == plan.own; };
    std::vector<ModuleReport> modules;
    for (std::size_t module = 0; module < report.modules.size(); ++module)
        if (isHere(static_cast<int>(module))) modules.push_back(std::move(report.modules[module]));
    std::vector<LineReport> kept;
    for (std::size_t line = 0; line < report.lines.size(); ++line)
        if (isHere(lines[line].to)) kept.push_back(std::move(report.lines[line]));
    report.modules = std::move(modules);
    report.lines = std::move(kept);
    std::erase_if(warnings, [&](const Message& warning) {
        return std::ranges::find(report.modules, warning.instance, &ModuleReport::instance) ==
               report.modules.end();
    });
}

}  // namespace

OpenGraph::OpenGraph(const GraphSource& source)
    : file(Read(source)),
      catalogue(source.folders),
      graph(file, catalogue, window, mistakes, source.filesOfHost) {}

GraphFile OpenGraph::Read(const GraphSource& source) {
    GraphFile read = source.text ? GraphFile::Parse(source.path, *source.text, mistakes)
                                 : GraphFile::Read(source.path, mistakes);
    for (const std::string& setting : source.settings) read.Set(setting, mistakes);
    ReadEngineSection(read, mistakes);
    return read;
}

std::optional<OutputWatch> OpenGraph::WatchOutput(const std::string& name, const Place& place) {
    const std::size_t point = name.find('.');
    if (point == 0 || point == std::string::npos || point + 1 == name.size()) {
        mistakes.Add(place, Bilingual("'%1' must be INSTANCE.OUTPUT, for example voice.Channel 1",
                                      "'%1' muss INSTANZ.AUSGANG lauten, zum Beispiel voice.Channel 1")
                                .With({name}));
        return std::nullopt;
    }
    return graph.WatchOutput({name.substr(0, point), name.substr(point + 1)}, place);
}

RunReport OpenGraph::Run(const RunOptions& options, std::vector<Message>& warnings) const {
    graph.MakeFolders();
    RunFacts facts(file, graph.WrittenLines(), graph.Modules());
    RunOptions withFacts = options;
    withFacts.facts = &facts;
    Runner runner(graph.Modules(), graph.Lines(), withFacts);
    const SpeakerOf speaker(runner);
    RunReport report = runner.Run();
    if (report.verdict == Verdict::Complete || report.verdict == Verdict::Interrupted)
        for (Message& warning : FindIdleSinks(report, graph.Lines())) warnings.push_back(std::move(warning));
    if (options.place != nullptr) KeepPlace(options.place->Plan(), graph.Lines(), report, warnings);
    return report;
}

}  // namespace host
