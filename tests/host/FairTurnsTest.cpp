// The policy stepped by hand: modules are rows, a block is a number, and no time passes.
#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <string>

#include "host/FairTurns.h"

namespace {

using host::FairTurns;
using host::Wiring;

constexpr int ROOM = 16;

// A graph of counters. Sources are given the length of a block in ms; other modules take one block of each
// input that is part of a group once all of the group have one, and write one to each output of the group.
class Model {
 public:
    struct Group {
        std::vector<int> inputs;  // lines
        std::vector<int> outputs;
        int heldBack = 0;  // as many of its blocks come late
        int taken = 0;
    };

    int Source(double milliseconds, int blocks) {
        lengths.push_back(milliseconds);
        left.push_back(blocks);
        groups.emplace_back();
        return wiring.AddModule(true);
    }
    int Module() {
        lengths.push_back(0.0);
        left.push_back(0);
        groups.emplace_back();
        return wiring.AddModule(false);
    }
    int Line(int from, int to) { return wiring.AddLine(from, to, true); }
    void Join(int module, const std::vector<int>& inputs, const std::vector<int>& outputs = {},
              int heldBack = 0) {
        groups[static_cast<std::size_t>(module)].push_back({inputs, outputs, heldBack});
    }

    // Until nobody has anything to do, or the steps are used up; answers the sources that stepped.
    std::string Run(int mostSteps = 1 << 20) {
        wiring.FindSources();
        FairTurns turns(wiring, ROOM);
        depths.assign(wiring.Lines().size(), 0);
        deepest.assign(wiring.Lines().size(), 0);
        made.assign(lengths.size(), 0.0);
        std::string sources;
        for (int module; mostSteps-- > 0 && (module = turns.Choose()) >= 0;) {
            if (!wiring.ModuleAt(module).source) {
                if (!Work(module, turns)) turns.HasNoWork(module);
                continue;
            }
            sources += static_cast<char>('a' + module);
            Give(module, turns);
            WatchSpread();
        }
        return sources;
    }

    int Waiting() const { return std::accumulate(depths.begin(), depths.end(), 0); }
    int Deepest() const { return *std::max_element(deepest.begin(), deepest.end()); }
    double Spread() const { return spread; }
    int Left(int source) const { return left[static_cast<std::size_t>(source)]; }

 private:
    void Give(int source, FairTurns& turns) {
        const auto index = static_cast<std::size_t>(source);
        for (const int line : wiring.ModuleAt(source).outputs) Change(line, 1, turns);
        turns.HasMade(source, lengths[index]);
        made[index] += lengths[index];
        if (--left[index] == 0) turns.HasNoWork(source);
    }

    bool Work(int module, FairTurns& turns) {
        bool worked = false;
        for (Group& group : groups[static_cast<std::size_t>(module)]) {
            const auto waits = [&](int line) { return depths[static_cast<std::size_t>(line)] > 0; };
            if (!std::ranges::all_of(group.inputs, waits)) continue;
            for (const int line : group.inputs) Change(line, -1, turns);
            const int kept = std::min(group.taken++, group.heldBack);
            const int given = HasAll(group, module) ? kept + 1 : group.taken > group.heldBack ? 1 : 0;
            for (const int line : group.outputs) Change(line, given, turns);
            worked = true;
        }
        return worked;
    }

    // Whether the signals have ended, so that what is held back comes too.
    bool HasAll(const Group& group, int module) const {
        const auto isOver = [&](int source) { return left[static_cast<std::size_t>(source)] == 0; };
        const auto isEmpty = [&](int line) { return depths[static_cast<std::size_t>(line)] == 0; };
        return std::ranges::all_of(wiring.SourcesOf(module), isOver) &&
               std::ranges::all_of(group.inputs, isEmpty);
    }

    void Change(int line, int by, FairTurns& turns) {
        const auto index = static_cast<std::size_t>(line);
        depths[index] += by;
        deepest[index] = std::max(deepest[index], depths[index]);
        turns.HasDepth(line, depths[index]);
        if (by > 0) turns.MayHaveWork(wiring.LineAt(line).to);
    }

    void WatchSpread() {
        double least = -1.0;
        double most = 0.0;
        for (std::size_t i = 0; i < lengths.size(); ++i) {
            if (lengths[i] == 0.0) continue;
            least = least < 0.0 ? made[i] : std::min(least, made[i]);
            most = std::max(most, made[i]);
        }
        spread = std::max(spread, most - least);
    }

    Wiring wiring;
    std::vector<double> lengths;
    std::vector<int> left;
    std::vector<std::vector<Group>> groups;  // of each module
    std::vector<int> depths;                 // of the lines
    std::vector<int> deepest;
    std::vector<double> made;
    double spread = 0.0;
};

TEST(FairTurns, SourcesTakeTurnsBySignalTime) {
    Model model;
    const int a = model.Source(10, 6);
    const int b = model.Source(30, 2);
    const int sink = model.Module();
    model.Join(sink, {model.Line(a, sink)});
    model.Join(sink, {model.Line(b, sink)});
    EXPECT_EQ(model.Run(), "abaaabaa");
}

// Each row makes a graph; what is left over at its end, and how much may wait in a line and lie between the
// sources at most.
struct Row {
    const char* name;
    std::function<void(Model&)> make;
    int waiting;
    int deepest;
    double spread;  // ms
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

// a and b through one module with two ways into a join of both.
void ThroughOneModule(Model& model, double lengthOfB, int blocksOfB) {
    const int a = model.Source(10, 1000);
    const int b = model.Source(lengthOfB, blocksOfB);
    const int filter = model.Module();
    const int join = model.Module();
    const int toFilter[] = {model.Line(a, filter), model.Line(b, filter)};
    const int toJoin[] = {model.Line(filter, join), model.Line(filter, join)};
    for (int i = 0; i < 2; ++i) model.Join(filter, {toFilter[i]}, {toJoin[i]});
    model.Join(join, {toJoin[0], toJoin[1]});
}

void Joined(Model& model, double lengthOfB, int blocksOfB) {
    const int a = model.Source(10, 1000);
    const int b = model.Source(lengthOfB, blocksOfB);
    const int join = model.Module();
    model.Join(join, {model.Line(a, join), model.Line(b, join)});
}

// What comes from a also goes a way on which 200 blocks are held back; the third source is joined with it out
// of sight, as by a module that takes all at once.
void HeldBack(Model& model, bool fromItself) {
    const int a = model.Source(10, 1000);
    const int b = model.Source(10, 1000);
    const int c = model.Source(10, 1000);
    const int slow = model.Module();
    const int join = model.Module();
    const int hidden = model.Module();
    const int toSlow = model.Line(fromItself ? a : b, slow);
    const int slowed = model.Line(slow, join);
    model.Join(slow, {toSlow}, {slowed}, 200);
    model.Join(join, {model.Line(a, join), slowed});
    for (const int source : {a, b, c}) model.Join(hidden, {model.Line(source, hidden)});
}

// Two joins, each of which waits for the source that the other one has too much of.
void AtCrossPurposes(Model& model) {
    const int a = model.Source(10, 1000);
    const int b = model.Source(10, 1000);
    const int slow[] = {model.Module(), model.Module()};
    const int join[] = {model.Module(), model.Module()};
    const int sources[] = {a, b};
    for (int i = 0; i < 2; ++i) {
        const int toSlow = model.Line(sources[1 - i], slow[i]);
        const int slowed = model.Line(slow[i], join[i]);
        model.Join(slow[i], {toSlow}, {slowed}, 100);
        model.Join(join[i], {model.Line(sources[i], join[i]), slowed});
    }
}

class FairTurnsTable : public testing::TestWithParam<Row> {};

TEST_P(FairTurnsTable, CompletesWithinBounds) {
    const Row& row = GetParam();
    Model model;
    row.make(model);
    model.Run();
    EXPECT_EQ(model.Waiting(), row.waiting);
    EXPECT_LE(model.Deepest(), row.deepest);
    EXPECT_LE(model.Spread(), row.spread);
}

INSTANTIATE_TEST_SUITE_P(
    Graphs, FairTurnsTable,
    testing::Values(
        Row{"TwoThroughOneModule", [](Model& m) { ThroughOneModule(m, 10, 1000); }, 0, 2, 10},
        // As many blocks, but twice as long: the host cannot know which way leads to which input.
        Row{"UnequalThroughOneModule", [](Model& m) { ThroughOneModule(m, 20, 1000); }, 0, 500, 10000},
        Row{"EquallyLong", [](Model& m) { Joined(m, 10, 1000); }, 0, 1, 10},
        // The lines decide where the signal times mislead.
        Row{"AsManyLongerBlocks", [](Model& m) { Joined(m, 20, 1000); }, 0, ROOM + 1, 10000},
        // One ends early: the other one pauses for good, with what had room.
        Row{"OneEndsEarly", [](Model& m) { Joined(m, 10, 7); }, ROOM + 1, ROOM + 1, 10.0 * (ROOM + 1)},
        // A full line that is no sign of too much must not keep anybody back for long.
        Row{"HeldBack", [](Model& m) { HeldBack(m, false); }, 0, 200 + ROOM, 2010},
        Row{"HeldBackFromItself", [](Model& m) { HeldBack(m, true); }, 0, 201, 10},
        Row{"AtCrossPurposes", [](Model& m) { AtCrossPurposes(m); }, 0, 101, 10.0 * ROOM}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(FairTurns, ASourceThatFeedsAStarvedInputIsNeverPaused) {
    Model model;
    const int a = model.Source(10, 1000);
    const int shortOne = model.Source(10, 5);
    const int partner = model.Source(10, 1000);
    const int stuck = model.Module();
    const int join = model.Module();
    model.Join(stuck, {model.Line(a, stuck), model.Line(shortOne, stuck)});
    model.Join(join, {model.Line(a, join), model.Line(partner, join)});
    model.Run();
    EXPECT_EQ(model.Left(a), 0);
    EXPECT_EQ(model.Waiting(), 995);
}

TEST(PositionSet, FindsTheLargest) {
    host::PositionSet set(200);
    EXPECT_EQ(set.Largest(), -1);
    for (const int position : {0, 63, 64, 199}) set.Add(position);
    for (const int position : {199, 64, 63, 0}) {
        EXPECT_EQ(set.Largest(), position);
        set.Remove(position);
    }
    EXPECT_EQ(set.Largest(), -1);
}

// How many steps a source of blocks of 10 ms makes beside one that has nothing now.
int StepsBesideAnIdleOne(bool joined, int depthAtJoin, bool alsoElsewhere = false) {
    Wiring wiring;
    const int live = wiring.AddModule(true);
    const int other = wiring.AddModule(true);
    const int sink = wiring.AddModule(false);
    const int join = wiring.AddModule(false);
    const int line = wiring.AddLine(other, joined ? join : sink, true);
    wiring.AddLine(live, join, true);
    if (alsoElsewhere) {
        const int third = wiring.AddModule(true);
        const int second = wiring.AddModule(false);
        wiring.AddLine(other, second, false);
        wiring.AddLine(third, second, true);
    }
    wiring.FindSources();
    FairTurns turns(wiring, ROOM);
    turns.HasNothingNow(live);
    if (alsoElsewhere) turns.HasDepth(3, 1), turns.HasNothingNow(4);
    int steps = 0;
    for (int module; steps < 5000 && (module = turns.Choose()) >= 0;) {
        if (module != other) {
            turns.HasNoWork(module);
            continue;
        }
        turns.HasMade(other, 10.0);
        turns.HasDepth(line, std::min(++steps, depthAtJoin));
    }
    return steps;
}

TEST(FairTurns, ASourceThatHasNothingNowHoldsUpOnlyThoseThatItMeets) {
    EXPECT_EQ(StepsBesideAnIdleOne(false, 0), 5000) << "nothing to do with it";
    EXPECT_EQ(StepsBesideAnIdleOne(true, 5000), 17) << "a full line";
    EXPECT_EQ(StepsBesideAnIdleOne(true, 0), 1001) << "what the join keeps itself: 10 s";
    EXPECT_EQ(StepsBesideAnIdleOne(true, 5000, true), 1001)
        << "a full line, and blocks wait for it elsewhere";
}

}  // namespace
