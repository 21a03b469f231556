#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "sigweave/platform/Event.h"

namespace host {

// How a run is going. In the order of the report: modules of the graph, lines of the graph.
struct RunFigures {
    struct Module {
        std::int64_t steps = 0;
        std::int64_t blocksIn = 0;  // taken off all inputs
        std::int64_t blocksOut = 0;
        double seconds = 0.0;  // that its steps took; counted from the first question of the run on
    };
    struct Line {
        std::int64_t blocks = 0;
        int depth = 0;       // blocks that wait
        int deepest = 0;     // so far
        double trend = 0.0;  // of the depth, in blocks a second, since the question before; 0 at first
    };

    double seconds = 0.0;  // that the run took so far
    std::vector<Module> modules;
    std::vector<Line> lines;
};

// Through this, other threads look at a run while it goes: the run answers between two steps. As long as
// nobody asks, it reads one flag and stores one number a step.
class RunGauge {
 public:
    // --- Any thread but the run's

    // False when the run did not answer in that time: it has not begun, has ended, or is busy in one module
    // (see Current).
    bool Ask(RunFigures& figures, int milliseconds);
    // The module that the run is calling, by its number in the graph; -1: none.
    int Current() const { return current.load(std::memory_order_relaxed); }

    // --- The thread of the run

    void Calls(int module) { current.store(module, std::memory_order_relaxed); }
    bool IsAsked() const { return asked.load(std::memory_order_relaxed); }
    // For waits: signalled while somebody asks.
    void* Handle() const { return asking.GetHandle(); }
    // `fill` writes the figures, which then are the answer.
    template <class Fill>
    void Answer(Fill&& fill) {
        const std::lock_guard lock(mutex);
        if (!asked) return;
        fill(answer);
        ++answers;
        asked = false;
        asking.Reset();
        answered.notify_all();
    }

 private:
    std::atomic<bool> asked{false};
    std::atomic<int> current{-1};
    std::mutex mutex;
    std::condition_variable answered;
    tc::Event asking;
    RunFigures answer;
    std::uint64_t answers = 0;
    int waiting = 0;  // threads that asked
};

}  // namespace host
