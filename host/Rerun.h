#pragma once

#include <string>

#include "host/GraphFile.h"

namespace host {

// The graph that runs a recording again, as parameter text.
struct RerunGraph {
    std::string text;
    std::string error;    // empty unless it cannot be made
    std::string ranAnew;  // the sources whose signals were not recorded, separated by commas
};

// Of `graph`, which `recorder` recorded to `recording` (an absolute path), what leads to the recorder.
// Sources whose signals are all in the recording are played from it; the recorder writes to `target`. Nothing
// else of the graph is run, so no file of the first run is written.
RerunGraph MakeRerunGraph(const GraphFile& graph, const std::string& recorder, const std::string& recording,
                          const std::string& target);

}  // namespace host
