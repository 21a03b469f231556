#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "modules/instrument/ScpiAnswer.h"
#include "sigweave/platform/ByteInput.h"
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
};

// Asks an instrument again and again, on a thread of its own, and keeps what it answers: at most as much as
// fits into memory of a fixed size.
class Inquirer {
 public:
    // The instrument is connected.
    Inquirer(std::unique_ptr<tc::ByteInput> connected, const InquirerPlan& inquirerPlan);
    // Ends it.
    ~Inquirer();

    struct Reading {
        double arrived = 0.0;  // milliseconds since 1970-01-01 00:00 UTC
        long long lost = 0;    // readings before it that found no room
        std::vector<double> values;
    };
    // For waits: signalled while there is a reading, or nothing more comes.
    void* Handle() const { return hasSome.GetHandle(); }
    bool HasSome() const;
    // False when there is none now; `failure`: nothing more comes, and why.
    bool Take(Reading& reading, std::string& failure);

 private:
    void Run();
    bool Ask();
    bool Await(std::vector<double>& values);
    void Keep(std::vector<double> values);
    bool Fail(const std::string& reason);

    const InquirerPlan plan;
    std::unique_ptr<tc::ByteInput> instrument;
    ScpiAnswer answer;
    mutable std::mutex mutex;
    std::deque<Reading> readings;
    std::size_t heldValues = 0;
    long long lost = 0;
    std::string broken;
    bool isOver = false;
    tc::Event hasSome;
    tc::Event stop;
    std::unique_ptr<tc::Thread> thread;
};
