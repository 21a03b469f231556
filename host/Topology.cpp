#include "host/Topology.h"

#include <algorithm>
#include <cstddef>

namespace host {
namespace {

enum class Mark : char { Unseen, OnPath, Finished };

struct Visit {
    int node;
    std::size_t nextEdge = 0;
};

// Depth first with a path of its own, so that a long chain needs no deep stack.
class Sorter {
 public:
    Sorter(int nodes, const std::vector<std::pair<int, int>>& edges)
        : targets(static_cast<std::size_t>(nodes)), marks(targets.size(), Mark::Unseen) {
        for (const auto& [from, to] : edges) targets[Index(from)].push_back(to);
        // Later nodes are visited first: the reversed order of leaving then keeps the order of the input.
        for (auto& list : targets) std::sort(list.rbegin(), list.rend());
    }

    Topology Sort() {
        for (int node = static_cast<int>(targets.size()) - 1; node >= 0; --node) VisitFrom(node);
        std::reverse(result.order.begin(), result.order.end());
        return std::move(result);
    }

 private:
    static std::size_t Index(int node) { return static_cast<std::size_t>(node); }

    void VisitFrom(int start) {
        if (marks[Index(start)] != Mark::Unseen) return;
        Enter(start);
        while (!path.empty()) {
            Visit& visit = path.back();
            const auto& edges = targets[Index(visit.node)];
            if (visit.nextEdge == edges.size())
                Leave();
            else
                Follow(edges[visit.nextEdge++]);
        }
    }

    void Follow(int node) {
        const Mark mark = marks[Index(node)];
        if (mark == Mark::Unseen) Enter(node);
        if (mark == Mark::OnPath) AddCycle(node);
    }

    void Enter(int node) {
        marks[Index(node)] = Mark::OnPath;
        path.push_back({node});
    }

    void Leave() {
        const int node = path.back().node;
        marks[Index(node)] = Mark::Finished;
        result.order.push_back(node);
        path.pop_back();
    }

    void AddCycle(int first) {
        std::vector<int> cycle;
        const auto begin =
            std::find_if(path.begin(), path.end(), [&](const Visit& visit) { return visit.node == first; });
        for (auto visit = begin; visit != path.end(); ++visit) cycle.push_back(visit->node);
        std::rotate(cycle.begin(), std::min_element(cycle.begin(), cycle.end()), cycle.end());
        result.cycles.push_back(std::move(cycle));
    }

    std::vector<std::vector<int>> targets;
    std::vector<Mark> marks;
    std::vector<Visit> path;
    Topology result;
};

}  // namespace

Topology SortTopologically(int nodes, const std::vector<std::pair<int, int>>& edges) {
    return Sorter(nodes, edges).Sort();
}

}  // namespace host
