#include "modules/trigger/Detector.h"

#include <algorithm>

namespace tc {

namespace {

// In pieces that the compiler looks at several samples at once in.
template <class Test>
int FindFirst(int from, int count, Test test) {
    constexpr int PIECE = 64;
    while (from + PIECE <= count) {
        int found = 0;
        for (int i = from; i < from + PIECE; ++i) found |= test(i) ? 1 : 0;
        if (found != 0) break;
        from += PIECE;
    }
    while (from < count && !test(from)) ++from;
    return from;
}

// By turns the first sample that arms and the first that fires.
template <class Arms, class Fires>
int Search(bool& armed, int count, int first, Arms arms, Fires fires) {
    for (int at = 0; at < count;) {
        at = armed ? FindFirst(at, count, fires) : FindFirst(at, count, arms);
        if (at == count) break;
        armed = !armed;
        if (armed) continue;  // the sample that arms may fire too
        if (at >= first) return at;
        ++at;
    }
    return -1;
}

}  // namespace

Detector::Detector(const TriggerCondition& wanted) : condition(wanted) {
    Reset();
}

void Detector::Reset() {
    edge = Edge{condition.mode == TriggerMode::BOTH ? TriggerMode::RISING : condition.mode};
    other = Edge{TriggerMode::FALLING};
}

int Detector::Find(const double* values, int count, int first) {
    if (condition.mode == TriggerMode::ABOVE || condition.mode == TriggerMode::BELOW)
        return FindState(values, count, first);
    if (condition.mode != TriggerMode::BOTH) return FindEdge(edge, values, count, first);
    // Neither may see what lies after the other's hit.
    Edge trial = edge;
    const int rising = FindEdge(trial, values, count, first);
    const int until = rising < 0 ? count : rising + 1;
    const int falling = FindEdge(other, values, until, first);
    if (falling < 0) {
        edge = trial;
        return rising;
    }
    FindEdge(edge, values, falling + 1, falling + 1);
    return falling;
}

int Detector::FindState(const double* values, int count, int first) const {
    const double level = condition.level;
    const int at = condition.mode == TriggerMode::ABOVE
                       ? FindFirst(first, count, [&](int i) { return values[i] >= level; })
                       : FindFirst(first, count, [&](int i) { return values[i] <= level; });
    return at < count ? at : -1;
}

int Detector::FindEdge(Edge& seen, const double* values, int count, int first) const {
    if (count == 0) return -1;
    const double level = condition.level;
    const double upper = condition.upper;
    const double hysteresis = condition.hysteresis;
    const double slope = condition.slope;
    const double before = seen.before;
    const auto search = [&](auto arms, auto fires) { return Search(seen.armed, count, first, arms, fires); };
    const auto rise = [&](int i) { return values[i] - (i > 0 ? values[i - 1] : before); };
    int found = -1;
    switch (seen.mode) {
        case TriggerMode::FALLING:
            found = search([&](int i) { return values[i] > level + hysteresis; },
                           [&](int i) { return values[i] <= level; });
            break;
        case TriggerMode::SLOPE:
            found =
                slope > 0.0
                    ? search([&](int i) { return rise(i) < slope; }, [&](int i) { return rise(i) >= slope; })
                    : search([&](int i) { return rise(i) > slope; }, [&](int i) { return rise(i) <= slope; });
            break;
        case TriggerMode::ENTER:
            found = search(
                [&](int i) { return (values[i] < level - hysteresis) | (values[i] > upper + hysteresis); },
                [&](int i) { return (values[i] >= level) & (values[i] <= upper); });
            break;
        case TriggerMode::LEAVE:
            found = search(
                [&](int i) { return (values[i] >= level + hysteresis) & (values[i] <= upper - hysteresis); },
                [&](int i) { return (values[i] < level) | (values[i] > upper); });
            break;
        default:
            found = search([&](int i) { return values[i] < level - hysteresis; },
                           [&](int i) { return values[i] >= level; });
            break;
    }
    seen.before = values[found < 0 ? count - 1 : found];
    return found;
}

}  // namespace tc
