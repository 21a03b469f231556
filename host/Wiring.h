#pragma once

#include <vector>

namespace host {

// Who is joined to whom in a run. It does not change while the run goes. Modules are known by their position
// in the order of the steps, in which every line leads to a larger position.
class Wiring {
 public:
    struct Line {
        int from;  // positions
        int to;
        bool first;  // the first line of its output
    };

    struct Module {
        bool source = false;
        std::vector<int> inputs;  // lines
        std::vector<int> outputs;
    };

    // Answers its position.
    int AddModule(bool source);
    // Answers its number.
    int AddLine(int from, int to, bool first);

    const std::vector<Module>& Modules() const { return modules; }
    const std::vector<Line>& Lines() const { return lines; }
    const Module& ModuleAt(int position) const { return modules[static_cast<std::size_t>(position)]; }
    const Line& LineAt(int line) const { return lines[static_cast<std::size_t>(line)]; }

    // The sources from which a way leads to the module, in their order; a source leads to itself. Modules
    // that have the same ones share the list.
    const std::vector<int>& SourcesOf(int position) const {
        return sets[static_cast<std::size_t>(setOf[static_cast<std::size_t>(position)])];
    }
    bool Leads(int source, int position) const;

    // To be called once, when all lines are there.
    void FindSources();

 private:
    int SetFor(int position);

    std::vector<Module> modules;
    std::vector<Line> lines;
    std::vector<std::vector<int>> sets;
    std::vector<int> setOf;  // of each module
};

}  // namespace host
