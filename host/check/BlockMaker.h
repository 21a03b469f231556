#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/signal/TCIOStream.h"

namespace host::check {

// A type that a line may bring, for which blocks can be made. Without a text: no line.
struct LineType {
    std::string text;
    int items = 0;

    TCPortHelper::TYPE Code() const { return TCPortHelper::Datatype(items, text.c_str()); }
    bool HasTypeInfo() const { return (Code() & TCPortHelper::TYPE_TYPEINFO) != 0; }
    bool IsBus() const { return text.find("STRUCT_BUS{") != std::string::npos; }
};

// All of them, those with metadata first.
const std::vector<LineType>& LineTypes();
// Whether blocks of a module's own type can be made: not of addresses of who knows what.
bool CanMake(const LineType& type);

enum class Content {
    Signal,     // numbers between -1 and 1
    NotFinite,  // among them not-a-number and the infinities
    Extreme     // the largest and smallest numbers
};

struct BlockPlan {
    TCBLOCKSTATUS state = COMPLETE;
    int values = 64;  // 0: metadata alone
    Content content = Content::Signal;
    bool wildMetadata = false;  // rates, ranges, times and units that are none
};

// Makes blocks of a signal that follow one another. The same seed makes the same blocks.
class BlockMaker {
 public:
    explicit BlockMaker(std::uint64_t seed) : random(seed) {}

    // Writes one block of the type. The stream's answer: 0 or more when it was written.
    int Write(TCIOStream& stream, const LineType& type, const BlockPlan& plan, unsigned input);
    // To be called when every input has its block.
    void Advance(const BlockPlan& plan) { position += plan.values; }

 private:
    double Number(const BlockPlan& plan);
    void MakeNumbers(const BlockPlan& plan);
    void MakeIntegers(const BlockPlan& plan);
    TCTypeInfo Metadata(const BlockPlan& plan, unsigned input);
    int WriteBus(TCIOStream& stream, const BlockPlan& plan, unsigned input);
    int WriteParts(TCIOStream& stream, const BlockPlan& plan);
    int WriteValues(TCIOStream& stream, TCPortHelper::TYPE code, const BlockPlan& plan);

    std::mt19937_64 random;
    std::int64_t position = 0;  // samples since the first block
    std::vector<double> numbers;
    std::vector<int> integers;
};

}  // namespace host::check
