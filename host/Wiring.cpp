#include "host/Wiring.h"

#include <algorithm>

namespace host {

int Wiring::AddModule(bool source) {
    modules.emplace_back().source = source;
    return static_cast<int>(modules.size()) - 1;
}

int Wiring::AddLine(int from, int to, bool first) {
    const int line = static_cast<int>(lines.size());
    lines.push_back({from, to, first});
    modules[static_cast<std::size_t>(from)].outputs.push_back(line);
    modules[static_cast<std::size_t>(to)].inputs.push_back(line);
    return line;
}

bool Wiring::Leads(int source, int position) const {
    const std::vector<int>& sources = SourcesOf(position);
    return std::binary_search(sources.begin(), sources.end(), source);
}

void Wiring::FindSources() {
    sets.assign(1, {});
    setOf.clear();
    for (int position = 0; position < static_cast<int>(modules.size()); ++position)
        setOf.push_back(SetFor(position));
}

int Wiring::SetFor(int position) {
    const Module& module = ModuleAt(position);
    std::vector<int> upstream;
    for (const int line : module.inputs)
        upstream.push_back(setOf[static_cast<std::size_t>(LineAt(line).from)]);
    std::sort(upstream.begin(), upstream.end());
    upstream.erase(std::unique(upstream.begin(), upstream.end()), upstream.end());
    if (!module.source && upstream.size() <= 1) return upstream.empty() ? 0 : upstream.front();
    std::vector<int> sources;
    if (module.source) sources.push_back(position);
    for (const int set : upstream) {
        const std::vector<int>& members = sets[static_cast<std::size_t>(set)];
        sources.insert(sources.end(), members.begin(), members.end());
    }
    std::sort(sources.begin(), sources.end());
    sources.erase(std::unique(sources.begin(), sources.end()), sources.end());
    sets.push_back(std::move(sources));
    return static_cast<int>(sets.size()) - 1;
}

}  // namespace host
