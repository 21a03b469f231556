#include "host/CommentCursor.h"

#include <algorithm>
#include <limits>

namespace host {
namespace {

std::vector<int> LinesOfEntries(const GraphFile& graph) {
    std::vector<int> lines;
    const auto add = [&](const InstanceEntry& instance) {
        lines.insert(lines.end(), {instance.place.line, instance.modulePlace.line});
        for (const Setting& setting : instance.settings) lines.push_back(setting.place.line);
    };
    for (const InstanceEntry& instance : graph.GetInstances()) add(instance);
    if (graph.GetEngine()) add(*graph.GetEngine());
    for (const LineEntry& line : graph.GetLines()) lines.push_back(line.place.line);
    for (const ViewEntry& entry : graph.GetView()) lines.push_back(entry.place.line);
    std::sort(lines.begin(), lines.end());
    return lines;
}

}  // namespace

CommentCursor::CommentCursor(const GraphFile& graph)
    : comments(graph.GetComments()), taken(comments.size()), entryLines(LinesOfEntries(graph)) {
    std::stable_sort(comments.begin(), comments.end(),
                     [](const Comment& a, const Comment& b) { return a.place.line < b.place.line; });
}

std::vector<std::string> CommentCursor::Before(const Place& entry) {
    const auto above = std::lower_bound(entryLines.begin(), entryLines.end(), entry.line);
    return Take(above != entryLines.begin() ? *(above - 1) : 0, entry.line);
}

std::vector<std::string> CommentCursor::Rest() {
    return Take(0, std::numeric_limits<int>::max());
}

std::vector<std::string> CommentCursor::Take(int afterLine, int line) {
    std::vector<std::string> texts;
    auto comment = std::upper_bound(comments.begin(), comments.end(), afterLine,
                                    [](int from, const Comment& each) { return from < each.place.line; });
    for (; comment != comments.end() && comment->place.line <= line; ++comment) {
        const auto index = static_cast<std::size_t>(comment - comments.begin());
        if (!taken[index]) texts.push_back(comment->text);
        taken[index] = true;
    }
    return texts;
}

}  // namespace host
