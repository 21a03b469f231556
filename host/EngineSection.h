#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "host/GraphFile.h"
#include "host/Mistakes.h"

namespace host {

// What the section [engine] of a graph says about the server that joins its places (docs/machines.md).
struct EngineSection {
    std::string url;   // empty: not said
    std::string name;  // of the run; by default the graph file's, without folder and ending
    std::int64_t keep = std::int64_t{10} << 30;  // bytes of the run's stream
    std::chrono::milliseconds patience{10000};
    int replicas = 1;                   // copies of the run's frames, on servers of a cluster
    bool acknowledgesRecorded = false;  // only what recordings have on disk; else what was taken
};

// Adds a mistake for everything that cannot be used, also for names of places.
EngineSection ReadEngineSection(const GraphFile& graph, Mistakes& mistakes);

}  // namespace host
