#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/RunReport.h"
#include "host/SourcePace.h"

class TCBaseModule;
class TCIOStream;

namespace host {

// A set of small numbers whose largest is found fast.
class PositionSet {
 public:
    explicit PositionSet(int size) : words(static_cast<std::size_t>(size + 63) / 64) {}
    void Add(int position) { Word(position) |= Bit(position); }
    void Remove(int position) { Word(position) &= ~Bit(position); }
    // -1 when the set is empty.
    int Largest() const;
    bool Contains(int position) const {
        return (words[static_cast<std::size_t>(position >> 6)] & Bit(position)) != 0;
    }

 private:
    static std::uint64_t Bit(int position) { return std::uint64_t{1} << (position & 63); }
    std::uint64_t& Word(int position) { return words[static_cast<std::size_t>(position >> 6)]; }

    std::vector<std::uint64_t> words;
};

struct RunOptions {
    // A source is not stepped while a queue anywhere behind it holds more blocks than this.
    int queueLimit = 16;
    // How long a source may say that it has work without making a block.
    std::chrono::milliseconds patience{10000};
    // Whether sources make their blocks no faster than their sample rate tells.
    bool realtime = false;
    // Set from a signal handler to end the run early; may be null.
    const std::atomic<bool>* interrupt = nullptr;
    // Called some times a second.
    std::function<void(const RunProgress&)> onProgress;
};

// The step loop of a run. Of the modules that have work it always steps the one furthest downstream, so
// queues stay short, the order depends on nothing but the graph, and memory stays flat. Which modules may
// have work is known without asking all: after a step these are the module itself and those that it wrote to.
//
// The modules are wired and initialised; their order is such that every line leads to a larger position. One
// thread.
class Scheduler {
 public:
    struct Line {
        int from;  // positions
        int to;
        TCIOStream* receiver;  // the input's own stream
        bool first;            // the first line of its output
        int elementSize;       // bytes, for the throughput
        int depth = 0;
        int deepest = 0;
        bool full = false;
        std::int64_t blocks = 0;
        std::int64_t measured = 0;  // blocks whose signal is counted
        double signal = 0.0;        // ms, behind a source
    };

    struct Node {
        TCBaseModule* module;
        bool source;
        std::vector<int> inputs;  // lines
        std::vector<int> outputs;
        std::vector<int> sources;  // positions of the sources upstream, or itself
        std::int64_t queued = 0;   // blocks that wait at the inputs
        std::int64_t taken = 0;
        std::int64_t made = 0;
        int fullBehind = 0;   // full lines anywhere behind a source
        bool ended = false;   // a source that has nothing more to give
        bool silent = false;  // a source that says it has work and makes nothing
        int stepsLeft = -1;   // after an interrupt; -1: no bound
        double firstTimestamp = 0.0;
        std::chrono::steady_clock::time_point
            lastSign{};  // of the last block, or of the first step without one
        bool waiting = false;
        std::unique_ptr<SourcePace> pace;  // of a source in a run in real time
    };

    enum class End { NothingToDo, Failed };

    Scheduler(std::vector<Node> allNodes, std::vector<Line> allLines, const RunOptions& runOptions);

    // Steps modules until none has work.
    End Run();

    // After the run.
    const std::vector<Node>& Nodes() const { return nodes; }
    const std::vector<Line>& Lines() const { return lines; }
    // Whether an interrupt came while a source had more to give.
    bool WasInterrupted() const { return interrupted; }
    double SignalSeconds() const { return signalSeconds; }
    // The module that is being stepped; after End::Failed the one that failed, with its code or what it
    // threw.
    int Position() const { return position; }
    int FailedCode() const { return code; }
    const std::string& Thrown() const { return thrown; }

 private:
    Node& At(int index) { return nodes[static_cast<std::size_t>(index)]; }
    Line& LineAt(int index) { return lines[static_cast<std::size_t>(index)]; }

    void FindSources();
    int Choose() const;
    bool Step(Node& node);
    bool HasWork(Node& node);
    int CountTaken(Node& node);
    int CountMade(Node& node);
    void MarkFull(Line& line, bool full);
    void AfterSourceStep(Node& node, int made);
    void MeasureSignal(Node& node);
    void Interrupt();
    void EndSource(Node& node);
    void TellProgress();

    std::vector<Node> nodes;
    std::vector<Line> lines;
    const RunOptions& options;
    PositionSet ready;
    int position = -1;
    int code = 0;
    std::string thrown;
    bool interruptSeen = false;
    bool interrupted = false;
    double signalSeconds = -1.0;
    double bytes = 0.0;
    std::chrono::steady_clock::time_point begin;
    std::chrono::steady_clock::time_point nextProgress;
};

}  // namespace host
