#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "modules/live/SampleFormat.h"

// What an instrument answers to a query, as SCPI has it: numbers between commas or semicolons up to the end
// of the line, or a block of bytes: its length is given (#42000 and 2000 bytes), or it ends with a line feed
// after which nothing comes (#0 and the bytes). It comes in pieces. No port, no clock.
class ScpiAnswer {
 public:
    // `blockFormat`: that of the samples in a block; null: the answer is numbers, `count` of them.
    ScpiAnswer(const live::SampleFormat* blockFormat, std::size_t valueCount)
        : format(blockFormat), count(valueCount) {}

    // PERHAPS: complete if nothing follows.
    enum State { INCOMPLETE, PERHAPS, COMPLETE, WRONG };
    void Give(std::span<const std::byte> bytes);
    // Takes an answer off what was given: COMPLETE with its values, of which those that the instrument could
    // not measure are NaN, and those beyond its range infinite. WRONG with the reason: the rest is forgotten.
    // `isAll`: nothing follows.
    State Take(std::vector<double>& values, std::string& error, bool isAll = false);
    void Forget() { held.clear(); }

 private:
    State TakeNumbers(std::vector<double>& values, std::string& error);
    State TakeBlock(std::vector<double>& values, std::string& error, bool isAll);
    State TakeEndless(std::vector<double>& values, std::string& error, bool isAll);
    State TakeSamples(std::size_t header, std::size_t size, std::size_t end, std::vector<double>& values,
                      std::string& error);
    State Refuse(const std::string& reason, std::string& error);

    const live::SampleFormat* format;
    std::size_t count;
    std::string held;
};
