#include "host/parts/PartPlan.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <set>

#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

std::size_t Index(int number) {
    return static_cast<std::size_t>(number);
}

class Planner {
 public:
    Planner(const std::vector<PlannedModule>& plannedModules, const std::vector<PlannedLine>& plannedLines)
        : modules(plannedModules), lines(plannedLines), weights(modules.size(), 1) {
        for (const PlannedLine& line : lines) weights[Index(line.to)] += 1;
        std::ranges::stable_sort(ordered, std::greater<>(), &PlannedLine::from);
        FindSources();
        joinsMayMove = MayJoinsMove();
        Group();
        for (const PlannedModule& module : modules) reasons.push_back(WhyPinned(module, joinsMayMove));
    }

    std::vector<MisplacedPart> FindMisplaced(const std::vector<int>& parts, int joining) const {
        std::vector<MisplacedPart> found;
        for (int place = 0; place < static_cast<int>(parts.size()); ++place) {
            const int part = parts[Index(place)];
            const std::string reason = part < joining   ? WhyNotInStem(place)
                                       : part > joining ? reasons[Index(place)]
                                                        : "";
            if (!reason.empty()) found.push_back({place, -1, reason});
        }
        for (int number = 0; number < static_cast<int>(lines.size()); ++number) {
            const PlannedLine& line = lines[Index(number)];
            const int from = parts[Index(line.from)], to = parts[Index(line.to)];
            const std::string reason = from == to ? "" : WhyNotBetween(line, from, to, joining);
            if (!reason.empty()) found.push_back({-1, number, reason});
        }
        return found;
    }

    PartPlan Plan(int most) {
        PartPlan best;
        best.partOf.assign(modules.size(), 0);
        int least = Largest(best.partOf);
        const int total = least;
        for (int limit = (total + most - 1) / most; most > 1 && limit < total; limit += Stride(total)) {
            const std::vector<int> parts = Legal(Fill(limit, most));
            const int largest = Largest(parts);
            if (largest >= least) continue;
            least = largest;
            best.partOf = parts;
        }
        best.count = Number(best.partOf);
        if (most > 1) best.uncut = Uncut();
        return best;
    }

 private:
    static int Stride(int total) { return std::max(1, total / 256); }

    static std::string WhyPinned(const PlannedModule& module, bool mayJoin) {
        if (!module.pinned.empty()) return module.pinned;
        if (module.isSource) return Bilingual("it is a source", "es ist eine Quelle").Text();
        if (module.placement == TCBaseModuleEx::FIRST_THREAD)
            return Bilingual("its module does not declare that it may run on any thread",
                             "das Modul erklärt nicht, dass es auf jedem Thread laufen darf")
                .Text();
        if (module.placement == TCBaseModuleEx::ANY_THREAD_JOINS && !mayJoin)
            return Bilingual("what it leaves waiting decides which source goes next",
                             "was bei ihm wartet, entscheidet, welche Quelle an der Reihe ist")
                .Text();
        return "";
    }

    // Away from where the signals of sources meet.
    std::string WhyNotInStem(int place) const {
        const PlannedModule& module = modules[Index(place)];
        if (module.isDriven) return module.pinned;
        if (module.isSource) return "";
        const std::size_t count = sources[Index(place)].size();
        if (count > 1)
            return Bilingual("signals of several sources come together in it",
                             "Signale mehrerer Quellen kommen in ihm zusammen")
                .Text();
        if (count == 0) return Bilingual("no source leads to it", "keine Quelle führt zu ihm").Text();
        return module.placement == TCBaseModuleEx::ANY_THREAD ? "" : WhyPinned(module, false);
    }

    std::string WhyNotBetween(const PlannedLine& line, int from, int to, int joining) const {
        if (to < joining)
            return Bilingual(
                       "only its sources give signals to a place before the one where signals of several "
                       "sources come together",
                       "ein Ort vor dem, an dem Signale mehrerer Quellen zusammenkommen, bekommt Signale "
                       "nur von seinen Quellen")
                .Text();
        if (from > to)
            return Bilingual("it leads back to an earlier place", "sie führt zu einem früheren Ort zurück")
                .Text();
        const bool mayWait = modules[Index(line.to)].placement != TCBaseModuleEx::ANY_THREAD;
        if (from < joining && mayWait && !line.holdsAddresses)
            return Bilingual("%1 may leave its blocks waiting, unlike a Reblock between them at its place",
                             "%1 lässt seine Blöcke womöglich warten, anders als ein Reblock dazwischen an "
                             "seinem Ort")
                .With({modules[Index(line.to)].name});
        return WhyNotCut(line);
    }

    // See the header: all have declared themselves, and each join gets everything from the same sources.
    bool MayJoinsMove() const {
        const auto isUndeclared = [](const PlannedModule& module) {
            return !module.isSource && module.placement == TCBaseModuleEx::FIRST_THREAD;
        };
        const auto isToSource = [this](const PlannedLine& line) { return modules[Index(line.to)].isSource; };
        if (std::ranges::any_of(modules, isUndeclared) || std::ranges::any_of(ordered, isToSource))
            return false;
        return std::ranges::all_of(ordered, [&](const PlannedLine& line) {
            return modules[Index(line.to)].placement != TCBaseModuleEx::ANY_THREAD_JOINS ||
                   sources[Index(line.to)] == sources[Index(line.from)];
        });
    }

    void FindSources() {
        sources.resize(modules.size());
        for (int place = 0; place < static_cast<int>(modules.size()); ++place)
            if (modules[Index(place)].isSource) sources[Index(place)].insert(place);
        for (auto each = ordered.rbegin(); each != ordered.rend(); ++each)
            sources[Index(each->to)].insert(sources[Index(each->from)].begin(),
                                            sources[Index(each->from)].end());
    }

    // Modules between which no line may be cut are one group, known by the first of them.
    void Group() {
        groups.resize(modules.size());
        std::iota(groups.begin(), groups.end(), 0);
        const auto first = [this](int place) {
            while (groups[Index(place)] != place) place = groups[Index(place)];
            return place;
        };
        for (const PlannedLine& line : lines) {
            if (MayCut(line)) continue;
            const auto [a, b] = std::minmax({first(line.from), first(line.to)});
            groups[Index(b)] = a;
        }
        groupWeights.assign(modules.size(), 0);
        for (int place = 0; place < static_cast<int>(groups.size()); ++place) {
            groups[Index(place)] = first(place);
            groupWeights[Index(groups[Index(place)])] += weights[Index(place)];
        }
    }

    // What must be in the first part, with all that leads there; the other groups in the order of their
    // places, a new part when one has that weight.
    std::vector<int> Fill(int limit, int most) const {
        std::vector<int> parts(modules.size(), 1);
        for (std::size_t place = 0; place < parts.size(); ++place)
            if (!reasons[place].empty()) parts[place] = 0;
        parts = Legal(parts);
        int part = 0;
        int weight = 0;
        for (std::size_t place = 0; place < parts.size(); ++place)
            if (parts[place] == 0) weight += weights[place];
        for (std::size_t place = 0; place < parts.size(); ++place) {
            if (parts[place] == 0) continue;
            if (groups[place] != static_cast<int>(place)) {
                parts[place] = parts[Index(groups[place])];
                continue;
            }
            if (weight + groupWeights[place] > limit && part + 1 < most) {
                ++part;
                weight = 0;
            }
            parts[place] = part;
            weight += groupWeights[place];
        }
        return parts;
    }

    bool MayCut(const PlannedLine& line) const {
        return !line.holdsAddresses && modules[Index(line.to)].placement == TCBaseModuleEx::ANY_THREAD;
    }

    // No line leads back: the last lines first, so that once is enough.
    void Lower(std::vector<int>& parts) const {
        for (const PlannedLine& line : ordered)
            parts[Index(line.from)] = std::min(parts[Index(line.from)], parts[Index(line.to)]);
    }

    // A group goes to the earliest of its parts.
    std::vector<int> Legal(std::vector<int> parts) const {
        for (bool changed = true; changed;) {
            changed = false;
            Lower(parts);
            std::vector<int> least(parts.size(), static_cast<int>(parts.size()));
            for (std::size_t place = 0; place < parts.size(); ++place)
                least[Index(groups[place])] = std::min(least[Index(groups[place])], parts[place]);
            for (std::size_t place = 0; place < parts.size(); ++place) {
                if (parts[place] == least[Index(groups[place])]) continue;
                parts[place] = least[Index(groups[place])];
                changed = true;
            }
        }
        return parts;
    }

    int Largest(const std::vector<int>& parts) const {
        std::vector<int> sums(modules.size() + 1);
        for (std::size_t place = 0; place < parts.size(); ++place)
            sums[Index(parts[place])] += weights[place];
        return *std::ranges::max_element(sums);
    }

    // Leaves no number out; the first part has the sources, always.
    static int Number(std::vector<int>& parts) {
        std::set<int> used(parts.begin(), parts.end());
        for (int& part : parts) part = static_cast<int>(std::distance(used.begin(), used.find(part)));
        return std::max(1, static_cast<int>(used.size()));
    }

    // Each line that no number of parts could cut.
    std::vector<UncutLine> Uncut() const {
        std::vector<int> pinning(modules.size(),
                                 -1);  // the first module downstream that must be in the first part
        for (std::size_t place = 0; place < pinning.size(); ++place)
            if (!reasons[place].empty() && !modules[place].isSource) pinning[place] = static_cast<int>(place);
        for (const PlannedLine& line : ordered)
            if (pinning[Index(line.from)] < 0) pinning[Index(line.from)] = pinning[Index(line.to)];
        std::vector<UncutLine> uncut;
        for (int line = 0; line < static_cast<int>(lines.size()); ++line)
            if (const std::string reason = WhyUncut(lines[Index(line)], pinning); !reason.empty())
                uncut.push_back({line, reason});
        return uncut;
    }

    std::string WhyUncut(const PlannedLine& line, const std::vector<int>& pinning) const {
        if (const int pin = pinning[Index(line.to)]; pin >= 0)
            return Bilingual("%1 runs with the sources: %2", "%1 läuft bei den Quellen: %2")
                .With({modules[Index(pin)].name, reasons[Index(pin)]});
        return WhyNotCut(line);
    }

    std::string WhyNotCut(const PlannedLine& line) const {
        if (line.holdsAddresses)
            return Bilingual("its blocks hold addresses", "seine Blöcke enthalten Adressen").Text();
        if (modules[Index(line.to)].placement == TCBaseModuleEx::ANY_THREAD_JOINS)
            return Bilingual("%1 may leave its blocks waiting", "%1 lässt seine Blöcke womöglich warten")
                .With({modules[Index(line.to)].name});
        return "";
    }

    const std::vector<PlannedModule>& modules;
    const std::vector<PlannedLine>& lines;
    std::vector<PlannedLine> ordered = lines;  // the last first, by their beginnings
    std::vector<int> weights;
    std::vector<int> groups;             // of each module, the first one of its group
    std::vector<int> groupWeights;       // of that one
    std::vector<std::set<int>> sources;  // that lead to each module
    std::vector<std::string> reasons;    // why in the first part; empty: it need not be
    bool joinsMayMove = false;
};

}  // namespace

PartPlan MakePartPlan(const std::vector<PlannedModule>& modules, const std::vector<PlannedLine>& lines,
                      int most) {
    return Planner(modules, lines).Plan(std::max(most, 1));
}

std::vector<MisplacedPart> FindMisplaced(const std::vector<PlannedModule>& modules,
                                         const std::vector<PlannedLine>& lines, const std::vector<int>& parts,
                                         int joining) {
    return Planner(modules, lines).FindMisplaced(parts, joining);
}

}  // namespace host
