#pragma once

#include <utility>
#include <vector>

namespace host {

// The order of the nodes of a directed graph.
struct Topology {
    // Every node once, each after all nodes that lead to it (as far as there are no cycles).
    std::vector<int> order;
    // Each a path of nodes, from its smallest on, whose last leads back to its first.
    std::vector<std::vector<int>> cycles;
};

// Edges are (from, to). The same input gives the same order.
Topology SortTopologically(int nodes, const std::vector<std::pair<int, int>>& edges);

}  // namespace host
