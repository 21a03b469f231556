#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/ParameterGate.h"

namespace host {

struct RunModule {
    std::string instance;
    TCBaseModule* module;           // not owned; its settings are made and its ports declared
    ParameterGate* gate = nullptr;  // of the run's own; see InsertGates
};

struct RunLine {
    int from;  // indexes of modules
    int output;
    int to;
    int input;
    int parameter = -1;  // that the line drives, by its index; -1: it leads to the input
    int gatePort = -1;   // of the run's own; see InsertGates
};

// What one run steps: the modules and lines of a graph, behind them the gates of driven parameters with the
// lines through them, and the order of the steps. One thread.
struct SteppedGraph {
    std::vector<RunModule> modules;
    std::vector<RunLine> lines;
    int modulesOfGraph;  // those before the gates
    int linesOfGraph;
    std::vector<std::unique_ptr<ParameterGate>> gates;
    std::vector<int> order;  // indexes of modules by their places in it

    // Every input has at most one line and there is no cycle.
    SteppedGraph(std::vector<RunModule> graphModules, std::vector<RunLine> graphLines);

    const RunModule& Entry(int module) const { return modules[static_cast<std::size_t>(module)]; }
    TCBaseModule& Module(int module) const { return *Entry(module).module; }
    const std::string& Name(int module) const { return Entry(module).instance; }
    bool IsOfGraph(int module) const { return module < modulesOfGraph; }
    const RunLine& Line(int line) const { return lines[static_cast<std::size_t>(line)]; }
    int LineCount() const { return static_cast<int>(lines.size()); }
    // What the line leads to: the module, or the gate before it.
    TCBaseModule& Receiver(const RunLine& line) const;
    // The type string of the port from which it comes; null when it has none.
    const char* TypeOf(const RunLine& line) const;
    // instance.Port
    std::string PortText(int module, int kind, int port) const;
};

}  // namespace host
