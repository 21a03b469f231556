#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/Mistakes.h"

namespace host {

struct RunLine;
struct RunModule;

// A live parameter's new value while a graph runs.
struct LiveChange {
    std::string instance;
    std::string parameter;
    std::string value;  // as a setting is written
    // The instance's block from which it holds, counted from 1: of those that the instance takes, over all
    // of its inputs, or that a source makes. 0: its next one.
    std::int64_t block = 0;
    Place place = {};  // where it was written; empty for one that came in the run
};

// What became of a change. Of one that holds `block` is the number from which it does.
struct ChangeOutcome {
    LiveChange change;
    std::string refusal;  // empty: it holds
};

// Changes of parameters for a run that goes on: other threads add them, the run makes each between two steps,
// when its instance has not yet begun with the block in question. A run that is given the same changes at the
// same blocks again makes the same.
class LiveChanges {
 public:
    // --- Any thread

    // For the present run or, before it, for the next. Changes of one instance are made in the order of their
    // blocks, those for one block in the order in which they were added.
    void Add(LiveChange change);
    // Whether changes of that instance wait.
    bool Concern(const std::string& instance);
    // What became of changes since the last call.
    std::vector<ChangeOutcome> TakeOutcomes();

    // --- The thread of the run

    bool IsAny() const { return waiting.load(std::memory_order_relaxed) > 0; }
    // Makes the changes of that instance that are due when its next block is this one. `change` answers why
    // not, empty for done; `outcome` hears what became of it.
    void Make(const std::string& instance, std::int64_t block,
              const std::function<std::string(const LiveChange&)>& change,
              const std::function<void(const ChangeOutcome&)>& outcome);
    // Those that are left when the run is over; they are forgotten.
    std::vector<LiveChange> TakeRest();

 private:
    bool TakeNext(const std::string& instance, std::int64_t block, LiveChange& change);

    std::mutex mutex;
    std::atomic<int> waiting{0};
    std::map<std::string, std::deque<LiveChange>> changes;  // by instance; in order
    std::vector<ChangeOutcome> outcomes;
};

// The file of changes: a line `BLOCK INSTANCE.PARAMETER=VALUE` for each, and comments that begin with #
// (docs/settings.md). Adds a mistake for every line that is none.
std::vector<LiveChange> ReadChanges(const std::string& path, Mistakes& mistakes);
std::vector<LiveChange> ParseChanges(const std::string& path, const std::string& text, Mistakes& mistakes);
// Those that hold.
std::string WriteChanges(const std::vector<LiveChange>& changes);
// A mistake for each change that no module of the graph would allow: no such instance or parameter, one that
// is not live or that a line drives, or a wrong value.
void CheckChanges(const std::vector<LiveChange>& changes, const std::vector<RunModule>& modules,
                  const std::vector<RunLine>& lines, Mistakes& mistakes);

}  // namespace host
