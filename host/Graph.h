#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/FileClashes.h"
#include "host/GraphFile.h"
#include "host/HostWindow.h"
#include "host/Messages.h"
#include "host/Mistakes.h"
#include "host/ModuleCatalogue.h"
#include "host/ModuleSettings.h"
#include "host/Runner.h"
#include "sigweave/module/TCStartCheck.h"

class TCBaseModuleEx;

namespace host {

// The modules of a graph file, created, set, wired and checked. Everything that is wrong goes to `mistakes`;
// a graph with mistakes must not be run. Owns the modules; the catalogue and the window must outlive it.
class Graph {
 public:
    // `filesOfHost` are those that the program itself will read and write besides the graph file, as a log.
    Graph(const GraphFile& graphFile, const ModuleCatalogue& moduleCatalogue, HostWindow& hostWindow,
          Mistakes& allMistakes, const std::vector<FileUse>& filesOfHost = {});

    // In the order of the file.
    std::vector<RunModule> Modules() const;
    const std::vector<RunLine>& Lines() const { return lines; }
    // Where a line is written, by its index among them.
    const Place& PlaceOfLine(int line) const { return lineEntries[static_cast<std::size_t>(line)]->place; }
    // The lines of the file with those that have wildcards replaced by what they stand for.
    const std::vector<LineEntry>& WrittenLines() const { return entries; }
    // The folders that file settings want to be made (CSIDL_FLAG_CREATE): for a run, not for a check.
    void MakeFolders() const;
    // What works otherwise than its author may think, with its place; of a graph without mistakes.
    const std::vector<Message>& Warnings() const { return warnings; }
    // A mistake for each module that writes to standard output.
    void RefuseStandardOutput();
    // An output for a watch of a run; none, with a mistake at `place`, when there is no such output.
    std::optional<OutputWatch> WatchOutput(const PortName& name, const Place& place);
    bool WritesToStandardOutput() const;

 private:
    struct Ports {
        std::vector<std::string> names;
        std::map<std::string, int> indexes;
    };

    struct Instance {
        const InstanceEntry* entry = nullptr;
        ModulePointer module;
        TCBaseModuleEx* extended = nullptr;  // the same module, when it has declared parameters
        std::unique_ptr<ModuleSettings> settings;
        bool settled = false;  // its ports are those that it will have in the run
        Ports inputs;
        Ports outputs;
    };

    void CreateModules();
    void Create(Instance& instance, std::map<std::string, int>& used);
    bool TellMisnamedModule(const InstanceEntry& entry);
    void Greet(Instance& instance, const CatalogueEntry& entry);
    void ApplySettings(Instance& instance);
    static const Place& PlaceOf(const InstanceEntry& entry, const std::string& parameter);
    void CheckFiles(const std::vector<FileUse>& ofHost);
    void PrepareDynamicPorts();
    void PreparePorts(int index, const std::vector<std::size_t>& linesTo);
    void ExpandLine(std::size_t line);
    static std::vector<std::string> MatchingOutputs(Instance& instance, const std::string& pattern);
    void AssignInputs(int index, const std::vector<std::size_t>& linesTo);
    int IndexOf(const std::string& instance) const;
    static Ports ReadPorts(TCBaseModule& module, PORTTYPE kind);
    static int FindPort(const Ports& ports, const std::string& name);
    void ResolveLines();
    bool IsReversed(const LineEntry& entry, const RunLine& line);
    bool ResolveLine(const LineEntry& entry, RunLine& line);
    int FindInstance(const PortName& name, const Place& place);
    int FindPort(PORTTYPE kind, const PortName& name, int instance, const Place& place);
    bool LeadsToParameter(Instance& instance, const std::string& port);
    bool ResolveDriver(const LineEntry& entry, RunLine& line);
    void ValidateDriver(const LineEntry& entry, const char* type, int count);
    void CheckDriver(std::size_t index, const TCForetoldSignal& signal);
    bool CheckInputFree(const RunLine& line, const LineEntry& entry);
    std::vector<int> Sort();
    void ValidateTypes(const std::vector<int>& order);
    void ValidateType(std::size_t line);
    void CheckInputs();
    void CheckInputs(int at, const std::set<std::pair<int, int>>& wired, bool anyWired);
    void CheckStarts(const std::vector<int>& order);
    void CheckStart(Instance& instance, const std::vector<TCForetoldSignal>& known,
                    const std::map<std::string, Place>& places);
    static std::vector<TCForetoldSignal> Foretell(Instance& instance,
                                                  const std::vector<TCForetoldSignal>& known);
    void WarnOfIdleSources();
    void WarnOfComments();
    std::string HintFor(const std::string& written) const;
    void Warn(const std::string& instance, const Place& place, const std::string& text);
    template <class Use>
    void ForEachStandardOutput(Use use) const;

    Instance& At(int index) { return instances[static_cast<std::size_t>(index)]; }
    TCBaseModule& ModuleAt(int index) { return *At(index).module; }

    const GraphFile& file;
    const ModuleCatalogue& catalogue;
    HostWindow& window;
    Mistakes& mistakes;
    std::vector<Instance> instances;
    std::map<std::string, int> indexes;            // of the instances, by name
    std::vector<std::vector<LineEntry>> expanded;  // by line of the file: what it stands for
    std::vector<LineEntry> entries;                // all of that
    std::size_t allExpanded = 0;                   // lines that wildcards stood for
    std::set<std::string> meant;  // instances that a line was meant for which stands for nothing
    std::vector<RunLine> lines;
    std::vector<Message> warnings;
    std::vector<const LineEntry*> lineEntries;       // one for each of `lines`
    std::map<std::pair<int, int>, int> lineOfInput;  // (instance, input) -> line of the file
    bool hasCycles = false;
};

}  // namespace host
