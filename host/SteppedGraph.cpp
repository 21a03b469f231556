#include "host/SteppedGraph.h"

#include "host/Guard.h"
#include "host/Topology.h"

namespace host {

SteppedGraph::SteppedGraph(std::vector<RunModule> graphModules, std::vector<RunLine> graphLines)
    : modules(std::move(graphModules)),
      lines(std::move(graphLines)),
      modulesOfGraph(static_cast<int>(modules.size())),
      linesOfGraph(static_cast<int>(lines.size())),
      gates(InsertGates(modules, lines)) {
    std::vector<std::pair<int, int>> edges;
    for (const RunLine& line : lines) edges.emplace_back(line.from, line.to);
    order = SortTopologically(static_cast<int>(modules.size()), edges).order;
}

TCBaseModule& SteppedGraph::Receiver(const RunLine& line) const {
    ParameterGate* const gate = Entry(line.to).gate;
    return line.gatePort >= 0 && gate != nullptr ? *gate : Module(line.to);
}

const char* SteppedGraph::TypeOf(const RunLine& line) const {
    const char* type = nullptr;
    int items = 0;
    Module(line.from).GetPortType(OUTPUT, line.output, type, items);
    return type;
}

std::string SteppedGraph::PortText(int module, int kind, int port) const {
    return Name(module) + "." +
           Text(kind == INPUT ? Module(module).GetInputName(port) : Module(module).GetOutputName(port));
}

}  // namespace host
