#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "modules/instrument/ScpiAnswer.h"
#include "modules/live/RateMeter.h"
#include "sigweave/platform/ByteInput.h"
#include "sigweave/platform/Clock.h"
#include "sigweave/platform/Event.h"
#include "sigweave/platform/Thread.h"

struct InquirerPlan {
    std::string name = {};      // of the instrument, for messages
    std::string commands = {};  // sent once, before the first query; may be empty
    std::string query = {};
    double interval = 1000.0;                         // ms
    double patience = 1000.0;                         // ms, with an answer
    const live::SampleFormat* blockFormat = nullptr;  // null: answers are numbers
    std::size_t values = 1;                           // in an answer
    tc::Clock* clock = nullptr;                       // null: the machine's
    std::function<double()> wallClock = tc::WallClockMilliseconds;
    bool hasThread = true;  // else somebody calls Turn
};

// Asks an instrument again and again, and keeps what it answers: at most as much as fits into memory of a
// fixed size. Its thread does nothing but that; a test does it by hand instead, with `Turn` and a clock of
// its own.
class Inquirer {
 public:
    // The instrument is connected.
    Inquirer(std::unique_ptr<tc::ByteInput> connected, const InquirerPlan& inquirerPlan);
    // Ends it.
    ~Inquirer();

    struct Reading {
        double arrived = 0.0;  // milliseconds since 1970-01-01 00:00 UTC
        long long lost = 0;    // readings before it that found no room, or for which there was no time
        std::vector<double> values;
    };
    // For waits: signalled while there is a reading, or nothing more comes.
    void* Handle() const { return hasSome.GetHandle(); }
    bool HasSome() const;
    // False when there is none now; `failure`: nothing more comes, and why.
    bool Take(Reading& reading, std::string& failure);
    // Answers per second by the clock; 0 before a second has passed.
    double MeasuredRate() const;

    // Does what is to be done now. Answers until when only the instrument can bring something new, by the
    // clock; negative: nothing more comes. On the thread that asks.
    double Turn();

 private:
    enum class Phase { BEGINNING, RESTING, AWAITING };

    void Run();
    bool Ask(double now);
    bool Listen();
    bool TakeAnswer(bool isAll);
    bool CheckTimes(double now);
    bool Send(const std::string& line);
    void Keep(std::vector<double> values);
    bool Fail(const std::string& reason);

    const InquirerPlan plan;
    tc::Clock& clock;
    std::unique_ptr<tc::ByteInput> instrument;
    ScpiAnswer answer;
    Phase phase = Phase::BEGINNING;
    double due = 0.0;       // the next query
    double deadline = 0.0;  // for its answer
    double settled = 0.0;   // when an answer that may be complete is; 0: there is none
    mutable std::mutex mutex;
    std::deque<Reading> readings;
    std::size_t heldValues = 0;
    long long lost = 0;
    long long answered = 0;
    live::RateMeter meter;
    std::string broken;
    bool isOver = false;
    tc::Event hasSome;
    tc::Event stop;
    std::unique_ptr<tc::Thread> thread;
};
