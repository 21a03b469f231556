#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/OpenGraph.h"
#include "python/src/Samples.h"
#include "sigweave/platform/Thread.h"

namespace python {

struct Request {
    host::GraphSource source;
    std::vector<std::string> outputs;  // INSTANCE.OUTPUT that are kept or handed on
    bool realtime = false;
    bool checkOnly = false;
    int threads = 1;   // at most; 0: as the first blocks show
    int capacity = 0;  // blocks that may wait for Next; 0: none is handed on, all are kept
};

// One block that was handed on, in memory of its own.
struct LiveBlock {
    std::string output;
    Track track;
    std::int64_t number = 0;  // in its output, counted from 0
};

// Memory for blocks, used again when nobody holds them any more. Any thread.
class BlockPool : public std::enable_shared_from_this<BlockPool> {
 public:
    std::shared_ptr<LiveBlock> Take();
    // Blocks that somebody holds.
    std::int64_t Held() const;

 private:
    mutable std::mutex mutex;
    std::vector<std::unique_ptr<LiveBlock>> free;
    std::int64_t held = 0;
};

// A graph that is opened and run on a thread of its own, from Start until it is over. The other operations
// are for any thread; none of them needs Python.
class Session {
 public:
    explicit Session(Request what);
    // Interrupts the run and waits for its end.
    ~Session();

    void Start();
    // Waits so long at most; whether the run is over.
    bool Wait(int milliseconds);
    // Interrupts the run and waits for its end.
    void Close();
    // Sources end their signals, and what is on its way is processed.
    void Interrupt();
    // The next block; null at the end of the run, with `isOver`, and when none came in that time.
    std::shared_ptr<LiveBlock> Next(int milliseconds, bool& isOver);
    host::RunProgress Progress();
    std::int64_t Held() const { return pool->Held(); }

    // Once the run is over.
    const host::RunReport& Report() const { return report; }
    std::vector<Track>& Kept() { return kept; }
    int Modules() const { return modules; }
    int Lines() const { return lines; }
    // What kept the run from being what it should be, beside what the report says; empty: nothing.
    const std::string& Trouble() const { return trouble; }
    // Of the instance in the graph file; 0: not known.
    int LineOf(const std::string& instance) const;

 private:
    void Work();
    void OpenAndRun();
    void Check(host::OpenGraph& open);
    host::RunOptions OptionsFor(host::OpenGraph& open, std::vector<host::OutputWatch> watches);
    void Take(std::size_t output, const TCIOStream::Block& block);
    void HandOn(std::size_t output, const TCIOStream::Block& block);

    const Request request;
    host::Interruption interruption;
    std::shared_ptr<BlockPool> pool = std::make_shared<BlockPool>();

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::shared_ptr<LiveBlock>> waiting;
    host::RunProgress progress;
    bool isOver = false;
    bool isClosed = false;  // nobody takes blocks any more

    host::RunReport report;
    std::vector<Track> kept;
    std::vector<std::int64_t> counts;
    std::vector<std::pair<std::string, int>> places;
    std::string trouble;
    bool isOutOfMemory = false;
    int modules = 0;
    int lines = 0;
    std::unique_ptr<tc::Thread> thread;  // the last member: it ends first
};

}  // namespace python
