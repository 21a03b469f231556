#pragma once

#include <cstdint>
#include <string>

// A graph that must run to its end: 2 to 5 sources, 2 to about 20 modules, with lines that split and join.
// The same seed makes the same graph. Modules that join block by block get signals of equally many blocks.
struct RandomGraph {
    std::string text;
    int modules = 0;
    // How many blocks may wait in a line, so that memory does not depend on the length of the signals.
    int deepest = 0;
};

RandomGraph MakeRandomGraph(std::uint64_t seed);
// Others: of 1 to 5 sources, shorter signals and up to 40 modules, some of which write files into the folder.
RandomGraph MakeRandomGraphWithFiles(std::uint64_t seed, const std::string& folder);
