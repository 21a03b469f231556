// The parts of the check of modules: what modules are fed, what is compared, what may be a name or a value.
#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <set>
#include <tuple>

#include "host/check/BlockMaker.h"
#include "host/check/NameRules.h"
#include "host/check/OutputRecord.h"
#include "host/check/ParameterValues.h"
#include "tests/signal/StreamLines.h"

using namespace host::check;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

// "INT 2 3;" of each segment of a block; of a channel what is in its last block.
std::string ShapeOf(const TCIOStream::Block& block) {
    std::string text;
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        const TCIOStream::DataSegment& segment = *block.Segment(i);
        text += TCIOStream::DataTypeToString(segment.GetType());
        for (int k = 0; k < segment.GetDimensionCount(); ++k)
            text += " " + std::to_string(segment.GetExtent(k));
        if (segment.GetBlocks() != nullptr) text += " " + ShapeOf(*segment.GetBlocks()[0]);
        text += ";";
    }
    return text;
}

// The numbers of `blocks` blocks, each of `values`.
std::vector<double> NumbersOf(const LineType& type, Content content, int blocks, std::uint64_t seed = 1) {
    StreamLines lines;
    BlockMaker maker(seed);
    std::vector<double> numbers;
    for (int i = 0; i < blocks; ++i) {
        EXPECT_GE(maker.Write(lines.writer, type, {COMPLETE, 100, content}, 0), 0);
        lines.Input().StartReadSegments();
        const TCIOStream::DataSegment& segment = *lines.Input().Segment(0);
        for (int k = 0; k < segment.GetElementCount(); ++k)
            numbers.push_back(segment.GetInts() != nullptr ? segment.GetInts()[k] : segment.GetDoubles()[k]);
    }
    return numbers;
}

const LineType DOUBLES = {"TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}", 2};
const LineType INTS = {"SWORD[]{BIN}", 1};

TEST(CheckParts, BlocksOfEveryType) {
    const std::pair<const char*, const char*> shapes[] = {{"DOUBLE[]{TIME_DOMAIN}", "DOUBLE 9;"},
                                                          {"DOUBLE[]{FREQ_DOMAIN}", "DOUBLE 9;"},
                                                          {"DOUBLE[1]{TIME_DOMAIN}", "DOUBLE 1;"},
                                                          {"DOUBLE{TIME_DOMAIN}", "DOUBLE 1;"},
                                                          {"SWORD[]{BIN}", "INT 9;"},
                                                          {"SWORD[1]{BIN}", "INT 1;"},
                                                          {"SWORD{BIN}", "INT 1;"},
                                                          {"UBYTE[]{Text}", "STRING 1;"},
                                                          {"UBYTE[][]{Text}", "STRING 9;"},
                                                          {"POINTER{DOUBLE[][]}", "DOUBLE 4 2;"},
                                                          {"POINTER{SWORD[][]}", "INT 4 2;"},
                                                          {"MultiType{}", "INT 1;DOUBLE 1;STRING 1;"}};
    std::vector<LineType> expected;
    for (const auto& [text, shape] : shapes)
        expected.push_back({std::string("TYPEINFO{TypeInfo} ") + text, 2});
    expected.push_back({"STRUCT_BUS{BUS}", 1});
    for (const auto& [text, shape] : shapes) expected.push_back({text, 1});
    ASSERT_GE(LineTypes().size(), expected.size());
    for (std::size_t i = 0; i < LineTypes().size(); ++i) {
        const LineType& type = LineTypes()[i];
        const bool isKnown = i < expected.size();
        EXPECT_TRUE(CanMake(type));
        EXPECT_TRUE(!isKnown || (type.text == expected[i].text && type.items == expected[i].items)) << i;
        const std::string shape = !isKnown  ? "INT 1;DOUBLE 1;STRING 1;"
                                  : i == 12 ? "BLOCK 1 DOUBLE 9;;BLOCK 1 DOUBLE 9;;"
                                            : shapes[i % 13].second;
        StreamLines lines;
        BlockMaker maker(1);
        EXPECT_EQ(maker.Write(lines.writer, type, {BUSY, 9}, 2), 0);
        EXPECT_EQ(maker.Write(lines.writer, type, {STOP, 0}, 2), 0);
        for (const bool metadataAlone : {false, true}) {
            const TCIOStream::Block& block = *lines.Input().GetWaitingBlock(metadataAlone ? 1 : 0);
            EXPECT_EQ(ShapeOf(block), metadataAlone ? "" : shape) << type.text;
            EXPECT_EQ(block.GetTI() != nullptr, i < 12) << i;
        }
    }
    EXPECT_FALSE(CanMake({}) || CanMake({"POINTER{Image}", 1}) || CanMake({"FLOAT[]{x}", 1}));
    StreamLines refusing;
    const LineType type = DOUBLES;
    BlockMaker maker(1);
    EXPECT_EQ(maker.Write(refusing.writer, type, {COMPLETE, 2}, 0), 0);
    EXPECT_LT(maker.Write(refusing.writer, type, {COMPLETE, 2}, 0), 0);
    TCIOStream nowhere;
    for (const LineType& other : {LineType{"STRUCT_BUS{BUS}", 1}, {"MultiType{}", 1}})
        EXPECT_LT(maker.Write(nowhere, other, {COMPLETE, 2}, 0), 0);
}

TEST(CheckParts, NumbersOfEveryKind) {
    for (const auto& [type, low, high] : {std::tuple(DOUBLES, -1.0, 1.0), {INTS, -1000.0, 1000.0}}) {
        const std::vector<double> numbers = NumbersOf(type, Content::Signal, 100);
        const auto [least, most] = std::ranges::minmax(numbers);
        EXPECT_TRUE(least >= low && least < 0.99 * low && most <= high && most > 0.99 * high)
            << least << most;
        EXPECT_EQ(NumbersOf(type, Content::Signal, 2), NumbersOf(type, Content::Signal, 2));
        EXPECT_NE(NumbersOf(type, Content::Signal, 2), NumbersOf(type, Content::Signal, 2, 2));
    }
    int finite = 0, infinite = 0, none = 0;
    for (const double number : NumbersOf(DOUBLES, Content::NotFinite, 100)) {
        none += std::isnan(number) ? 1 : 0;
        infinite += std::isinf(number) ? 1 : 0;
        finite += std::fabs(number) <= 1.0 ? 1 : 0;
    }
    EXPECT_EQ(finite + infinite + none, 10000);
    EXPECT_TRUE(finite > 1000 && infinite > 1000 && none > 1000) << finite << " " << infinite << " " << none;
    using Limits = std::numeric_limits<double>;
    const std::vector<double> extremes = NumbersOf(DOUBLES, Content::Extreme, 10);
    EXPECT_EQ(std::set(extremes.begin(), extremes.end()),
              (std::set{Limits::max(), -Limits::max(), Limits::min(), Limits::denorm_min(), -0.0}));
    EXPECT_GT(std::ranges::max(NumbersOf(INTS, Content::Extreme, 10)), 1e9);
}

TEST(CheckParts, MetadataGoOnOrMakeNoSense) {
    StreamLines lines;
    BlockMaker maker(1);
    const auto receive = [&](const BlockPlan& plan) {
        maker.Write(lines.writer, DOUBLES, plan, 2);
        maker.Advance(plan);
        lines.Input().StartReadSegments();
        return *lines.Input().GetTI();
    };
    const TCTypeInfo first = receive({START, 480}), second = receive({BUSY, 5});
    EXPECT_STREQ(first.GetSignalname(), "signal 3");
    EXPECT_EQ(first.GetState() * 10 + second.GetState(), START * 10 + BUSY);
    EXPECT_NEAR(second.GetTimestamp() - first.GetTimestamp(), 480e3 / first.GetSamplerate(), 1e-3);
    EXPECT_EQ(std::pair(first.GetRangeMin(), first.GetRangeMax()), std::pair(-1.0, 1.0));
    TCString unit;
    first.GetUnit().ToString(unit);
    EXPECT_STREQ(unit, "V");
    int times = 0, rates = 0, ranges = 0, named = 0;
    for (int i = 0; i < 200; ++i) {
        const TCTypeInfo wild = receive({BUSY, 1, Content::Signal, true});
        EXPECT_EQ(wild.GetState(), BUSY);
        times += wild.GetTimestamp() > 0 ? 0 : 1;
        rates += wild.GetSamplerate() > 0 ? 0 : 1;
        ranges += wild.GetRangeMin() < wild.GetRangeMax() ? 0 : 1;
        named += *wild.GetSignalname() != '\0' ? 1 : 0;
    }
    for (const int count : {times, rates, ranges, named}) EXPECT_TRUE(count > 50 && count < 180) << count;
    const LineType bus = {"STRUCT_BUS{BUS}", 1};
    maker.Write(lines.writer, bus, {STOP, 7}, 0);
    lines.Input().StartReadSegments();
    for (const char* name : {"signal 1", "signal 2"}) {
        TCTypeInfo info;
        const int channel = lines.Input().FindBusSegment(name, 0);
        ASSERT_NE(lines.Input().ReadBusSegment(channel, &info), nullptr) << name;
        EXPECT_STREQ(info.GetSignalname(), name);
        EXPECT_EQ(info.GetState(), STOP);
    }
}

// A record of one output: each row a block with the state, the number and the metadata.
struct Row {
    TCBLOCKSTATUS state;
    double value;
    double time;
    const char* name = "x";
    const char* unit = "V";
    double rate = 1.0;
};

OutputRecord Recorded(const std::vector<Row>& rows, std::size_t output = 0) {
    StreamLines lines;
    OutputRecord record;
    for (const Row& row : rows) {
        TCTypeInfo info = State(row.state, row.name);
        info.SetTimestamp(row.time);
        info.SetSamplerate(row.rate);
        info.GetUnit().FromString(row.unit);
        lines.writer.SetTI(&info, false);
        lines.writer.WriteDblVec(&row.value, 1);
        if (lines.Input().GetBlockCnt(nullptr) == 0) lines.writer.EndWriteSegments();  // a state out of order
        record.Take(output, lines.Input());
    }
    return record;
}

TEST(CheckParts, RecordsNameTheFirstDifference) {
    const double none = std::nan("");
    const std::vector<Row> first = {{START, 0.5, 1000.0}, {STOP, 1.0, 1001.0}};
    const std::tuple<std::vector<Row>, const char*> rows[] = {
        {first, ""},
        {{{START, 0.5, 5000.0}, {STOP, 1.0, 5001.005}}, ""},  // times count from the first block
        {{{START, 0.5, 1000.0}, {STOP, 1.0, 1002.0}},
         "output 0, block 2, timestamp: first '1 ms', then '2 ms'"},
        {{{START, 0.5, 1000.0}, {STOP, 2.0, 1001.0}}, "output 0, block 2, '' 1: first '1', then '2'"},
        {{{START, none, 1000.0}, {STOP, 1.0, 1001.0}}, "output 0, block 1, '' 1: first '0.5', then 'nan'"},
        {{{START, 0.5, 1000.0}, {BUSY, 1.0, 1001.0}}, "output 0, block 2, state: first 'STOP', then 'BUSY'"},
        {{{START, 0.5, 1000.0, "y"}, first[1]}, "output 0, block 1, name: first 'x', then 'y'"},
        {{{START, 0.5, 1000.0, "x", "A"}, first[1]}, "output 0, block 1, unit: first 'V', then 'A'"},
        {{{START, 0.5, 1000.0, "x", "V", 2.0}, first[1]},
         "output 0, block 1, samplerate: first '1', then '2'"},
        {{first[0]}, "output 0, block 2, state: only the first run has it"},
        {{first[0], first[1], {START, 1.0, 1002.0}}, "output 0, block 3, state: only the later run has it"}};
    for (const auto& [later, difference] : rows)
        EXPECT_EQ(Recorded(first).DifferenceTo(Recorded(later)), difference);
    EXPECT_EQ(Recorded(first).DifferenceTo(Recorded(first, 1)),
              "output 0, block 1, state: only the first run has it");
    EXPECT_EQ(OutputRecord().DifferenceTo(Recorded(first, 1)),
              "output 1, block 1, state: only the later run has it");
}

TEST(CheckParts, RecordsKnowTheOrderOfStates) {
    const std::tuple<const char*, bool, const char*> rows[] = {
        {"CSBES", false, ""},
        {"CSBES", true, "output 1, block 5: the signal does not end"},
        {"SB", true, "output 1, block 2: the signal does not end"},
        {"SEC", true, ""},
        {"B", false, "output 1, block 1: BUSY follows nothing"},
        {"CE", false, "output 1, block 2: STOP follows COMPLETE"},
        {"SS", false, "output 1, block 2: START follows START"},
        {"SBC", false, "output 1, block 3: COMPLETE follows BUSY"}};
    for (const auto& [states, whole, wrong] : rows) {
        std::vector<Row> blocks;
        for (const char* state = states; *state != '\0'; ++state)
            blocks.push_back({static_cast<TCBLOCKSTATUS>(std::string("SBEC").find(*state)), 1.0, 1.0});
        EXPECT_EQ(Recorded(blocks, 1).WrongStates(whole), wrong) << states;
    }
    const std::tuple<const char*, const char*, bool, bool> names[] = {
        {"x", "V", false, false}, {"x", "", false, false}, {"", "V", true, false}, {"", "", true, true}};
    for (const auto& [name, unit, nameless, unitToo] : names) {
        const auto found = Recorded({{COMPLETE, 1.0, 1.0, name, unit}}, 1).FirstNameless();
        ASSERT_EQ(found.has_value(), nameless);
        EXPECT_TRUE(!nameless || (found->output == 1 && found->unitToo == unitToo));
    }
    EXPECT_FALSE(Recorded({{START, 1.0, 1.0, ""}, {STOP, 1.0, 1.0, "x"}}).FirstNameless().has_value());
}

TEST(CheckParts, NamesThatALineCanName) {
    const std::tuple<const char*, const char*, const char*, const char*> rows[] = {
        // the name; what is wrong with it as an id, as an output's and as a parameter's
        {"Speed 2", "", "", ""},
        {"", "is empty", "is empty", "is empty"},
        {" x", "begins or ends with a blank", "begins or ends with a blank", "begins or ends with a blank"},
        {"x ", "begins or ends with a blank", "begins or ends with a blank", "begins or ends with a blank"},
        {"a\x1F"
         "b",
         "holds a control character", "holds a control character", "holds a control character"},
        {"a\x7F"
         "b",
         "holds a control character", "holds a control character", "holds a control character"},
        {"caf\xC3\xA9", "", "", ""},
        {"a=b", "", "holds a '='", "holds a '='"},
        {"#a", "", "", "begins with '#'"},
        {"a#", "", "", ""},
        {"'a", "begins with '''", "", "begins with '''"},
        {"[a", "", "", "begins with '['"}};
    for (const auto& [name, id, output, parameter] : rows) {
        EXPECT_EQ(WhyNoId(name), id);
        EXPECT_EQ(WhyNoPortName(name, true), output);
        EXPECT_EQ(WhyNoParameterName(name), parameter);
    }
    EXPECT_EQ(WhyNoPortName("a=b", false), "") << "an input's name ends at the line's end";
}

TEST(CheckParts, ValuesAtTheLimitsAndBeyond) {
    using Parameter = TCModuleParameter;
    const Parameter count = {
        .name = "n", .kind = Parameter::INTEGER, .defaultValue = nullptr, .minimum = 3, .maximum = 5};
    EXPECT_THAT(AllowedValues(count), ElementsAre("3", "5", "3", "5"));
    EXPECT_THAT(ForbiddenValues(count), testing::IsSupersetOf({"", "x", "2", "6", "nan"}));
    const Parameter any = {.name = "x", .kind = Parameter::NUMBER, .defaultValue = "2.5", .minimum = -1.5};
    EXPECT_THAT(AllowedValues(any), testing::IsSupersetOf({"2.5", "-1.5", "0", "7"}));
    EXPECT_THAT(ForbiddenValues(any), Contains("-2"));
    const Parameter choice = {
        .name = "c", .kind = Parameter::CHOICE, .defaultValue = nullptr, .choices = "a|bc|d"};
    EXPECT_THAT(AllowedValues(choice), ElementsAre("a", "bc", "d"));
    const Parameter turn = {.name = "s", .kind = Parameter::SWITCH, .defaultValue = "no"};
    EXPECT_THAT(AllowedValues(turn), ElementsAre("no", "no", "yes"));
    const Parameter text = {.name = "t", .kind = Parameter::TEXT, .defaultValue = nullptr};
    EXPECT_THAT(AllowedValues(text), testing::IsSupersetOf({"", " blanks ", "line\nfeed\ttab"}));
    const Parameter file = {.name = "f", .kind = Parameter::OUTPUT_FILE, .defaultValue = nullptr};
    EXPECT_THAT(AllowedValues(file), testing::SizeIs(2));
    for (const Parameter& parameter : {count, any, choice, turn, text, file}) {
        for (const std::string& value : AllowedValues(parameter))
            EXPECT_TRUE(parameter.Allows(value.c_str())) << parameter.name << "=" << value;
        for (const std::string& value : ForbiddenValues(parameter))
            EXPECT_FALSE(parameter.Allows(value.c_str())) << parameter.name << "=" << value;
        const bool isText = parameter.kind == Parameter::TEXT || parameter.kind == Parameter::OUTPUT_FILE;
        EXPECT_EQ(ForbiddenValues(parameter).empty(), isText) << parameter.name;
    }
}

}  // namespace
