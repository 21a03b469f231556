#include "host/Mistakes.h"

#include <algorithm>

namespace host {
namespace {

constexpr std::size_t MOST_TOLD = 2000;

}  // namespace

std::string ToText(const Place& place) {
    return place.line > 0 ? place.source + ":" + std::to_string(place.line) : place.source;
}

// A text that quotes a line of megabytes keeps its begin and its end.
void Mistakes::Add(const Place& place, std::string text) {
    if (text.size() > MOST_TOLD) text.replace(MOST_TOLD / 2, text.size() - MOST_TOLD, " ... ");
    mistakes.push_back({place, std::move(text)});
}

bool Mistakes::HasAny(const std::string& source) const {
    return std::ranges::any_of(mistakes, [&](const Mistake& each) { return each.place.source == source; });
}

std::vector<Mistake> Mistakes::InOrder(std::size_t most) const {
    const auto isBefore = [](const Mistake* a, const Mistake* b) { return a->place.line < b->place.line; };
    std::vector<const Mistake*> sorted;
    sorted.reserve(mistakes.size());
    for (const Mistake& mistake : mistakes) sorted.push_back(&mistake);
    if (!std::ranges::is_sorted(sorted, isBefore)) std::ranges::stable_sort(sorted, isBefore);
    std::vector<Mistake> first;
    first.reserve(std::min(most, sorted.size()));
    for (std::size_t i = 0; i < std::min(most, sorted.size()); ++i) first.push_back(*sorted[i]);
    return first;
}

}  // namespace host
