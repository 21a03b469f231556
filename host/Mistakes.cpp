#include "host/Mistakes.h"

#include <algorithm>

namespace host {

std::string ToText(const Place& place) {
    return place.line > 0 ? place.source + ":" + std::to_string(place.line) : place.source;
}

void Mistakes::Add(const Place& place, std::string text) {
    mistakes.push_back({place, std::move(text)});
}

std::vector<Mistake> Mistakes::InOrder() const {
    std::vector<Mistake> sorted = mistakes;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Mistake& a, const Mistake& b) { return a.place.line < b.place.line; });
    return sorted;
}

}  // namespace host
