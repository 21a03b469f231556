#include "host/FairTurns.h"

#include <algorithm>

namespace host {
namespace {

constexpr int MOST_IN_A_ROW = 16;

std::size_t Index(int number) {
    return static_cast<std::size_t>(number);
}

}  // namespace

FairTurns::FairTurns(const Wiring& runWiring, int roomOfLines)
    : wiring(runWiring),
      room(roomOfLines),
      ready(static_cast<int>(runWiring.Modules().size())),
      far(runWiring.Modules().size()),
      letGo(runWiring.Modules().size()),
      lines(runWiring.Lines().size(), LineState{.room = roomOfLines}) {
    for (const Wiring::Module& module : wiring.Modules()) sources.push_back(module.source ? 1 : 0);
    for (int module = 0; module < static_cast<int>(far.size()); ++module) MayHaveWork(module);
    visited.reserve(live.size());
    full.reserve(lines.size());
}

void FairTurns::Revive(int source) {
    const auto place = std::lower_bound(live.begin(), live.end(), source);
    if (place == live.end() || *place != source) live.insert(place, source);
}

void FairTurns::End(int source) {
    std::erase(live, source);
}

void FairTurns::MarkFull(int line) {
    LineState& state = lines[Index(line)];
    state.full = !state.full;
    if (state.full)
        full.push_back(line);
    else
        std::erase(full, line);
}

// -1: no source.
int FairTurns::LessFar(int a, int b) const {
    if (a < 0 || b < 0) return std::max(a, b);
    return far[Index(b)] < far[Index(a)] ? b : a;
}

int FairTurns::ChooseSource() {
    int turn = -1;
    for (const int source : live)
        if (full.empty() || !IsPaused(source)) turn = LessFar(turn, source);
    if (turn < 0) return -1;
    return full.empty() ? TakeTurn(turn) : GiveTurn(turn);
}

bool FairTurns::Lacks(int line) const {
    if (lines[Index(line)].full) return false;
    const std::vector<int>& inputs = wiring.ModuleAt(wiring.LineAt(line).to).inputs;
    return std::ranges::any_of(inputs,
                               [&](int other) { return other != line && lines[Index(other)].depth > 0; });
}

// Whether a source still gives what the module may wait for.
bool FairTurns::CanGetBlocks(int module) const {
    return std::ranges::any_of(wiring.ModuleAt(module).inputs, [&](int line) {
        const int from = wiring.LineAt(line).from;
        return Lacks(line) &&
               std::ranges::any_of(live, [&](int source) { return wiring.Leads(source, from); });
    });
}

bool FairTurns::IsHeldUp() const {
    return std::ranges::any_of(full, [&](int line) {
        return std::ranges::none_of(wiring.ModuleAt(wiring.LineAt(line).to).inputs,
                                    [&](int input) { return Lacks(input); });
    });
}

bool FairTurns::IsPaused(int source) const {
    const bool stuck = std::ranges::any_of(full, [&](int line) {
        return wiring.Leads(source, wiring.LineAt(line).from) && !CanGetBlocks(wiring.LineAt(line).to);
    });
    if (!stuck) return false;
    for (int line = 0; line < static_cast<int>(lines.size()); ++line)
        if (Lacks(line) && wiring.Leads(source, wiring.LineAt(line).from)) return false;
    return true;
}

// Of the live sources that lead to what the module lacks the least far; -1 when there is none, or when the
// source itself is one of them.
int FairTurns::HelperAt(int module, int source) const {
    int helper = -1;
    for (const int line : wiring.ModuleAt(module).inputs) {
        if (!Lacks(line)) continue;
        const int from = wiring.LineAt(line).from;
        if (wiring.Leads(source, from)) return -1;
        for (const int other : live)
            if (wiring.Leads(other, from)) helper = LessFar(helper, other);
    }
    return helper;
}

// Who should go before the source; -1 when nobody need.
int FairTurns::Helper(int source) const {
    int helper = -1;
    for (const int line : full)
        if (wiring.Leads(source, wiring.LineAt(line).from))
            helper = LessFar(helper, HelperAt(wiring.LineAt(line).to, source));
    return helper;
}

// The helper may itself lead to a full line, and so on; where that leads back, nobody gains by waiting.
int FairTurns::GiveTurn(int source) {
    visited.assign(1, source);
    for (int next; (next = Helper(visited.back())) >= 0;) {
        if (std::ranges::find(visited, next) != visited.end()) return TakeTurn(source);
        visited.push_back(next);
    }
    if (visited.size() == 1) return TakeTurn(source);
    if (letGo[Index(source)]++ < MOST_IN_A_ROW) return visited.back();
    MakeRoom(source);
    return TakeTurn(source);
}

int FairTurns::TakeTurn(int source) {
    letGo[Index(source)] = 0;
    return source;
}

// What waits is not too much then, but what the modules after it hold back.
void FairTurns::MakeRoom(int source) {
    for (std::size_t index = full.size(); index-- > 0;) {
        const int line = full[index];
        if (!wiring.Leads(source, wiring.LineAt(line).from)) continue;
        LineState& state = lines[Index(line)];
        state.room += room;
        if (state.depth <= state.room) MarkFull(line);
    }
}

}  // namespace host
