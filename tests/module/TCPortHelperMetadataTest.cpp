#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "tests/module/PortBench.h"

using namespace bench;
using Helper = TCPortHelper;

namespace {

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr double LARGEST = std::numeric_limits<double>::max();

// sensor -> filter -> reader, where the filter's output is linked to its input.
struct Chain {
    Chain() {
        filter.SetPort(INPUT, 0, "In", SIGNAL);
        filter.SetPort(OUTPUT, 0, "Filtered", SIGNAL);
        filter.UseTypeInfoFromInput(0, 0);
        Wire(sensor.writer, 0, filter, 0);
        Wire(filter, 0, reader.reader, 0);
    }
    void Sense(const char* name, double timestamp, TCBLOCKSTATUS state) {
        const double range[] = {-5.0, 5.0};
        const double samplerate = 100.0;
        TCSI_Unit volt;
        volt.FromString("V");
        sensor.writer.SetTypeInfo(0, &timestamp, &state, name, range, &samplerate, &volt);
        sensor.writer.WriteDblVal(0, 1.0);
        filter.TakeBlock(0);
    }
    TCTypeInfo Filter() {
        EXPECT_EQ(filter.WriteDblVal(0, 2.0), 0);
        return reader.Receive();
    }
    Line reader;
    TCPortHelper filter{nullptr};
    Line sensor;
};

std::vector<TCBLOCKSTATUS> StatesOf(Line& line, int blocks) {
    std::vector<TCBLOCKSTATUS> states;
    for (int i = 0; i < blocks; ++i) {
        line.writer.WriteDblVal(0, 1.0);
        states.push_back(line.Receive().GetState());
    }
    return states;
}

}  // namespace

TEST(TCPortHelperMetadata, AutomaticStatesMakeOneSignal) {
    Line line;
    line.writer.UseAutoTypeInfo(0, false, true, false, false, false, false);
    EXPECT_EQ(StatesOf(line, 2), (std::vector{COMPLETE, COMPLETE}));
    line.Send(0, START);
    EXPECT_EQ(line.Receive().GetState(), START);
    EXPECT_EQ(StatesOf(line, 2), (std::vector{BUSY, BUSY}));
    line.Send(0, STOP);
    EXPECT_EQ(line.Receive().GetState(), STOP);
    EXPECT_EQ(StatesOf(line, 2), (std::vector{START, BUSY}));
}

TEST(TCPortHelperMetadata, GivenStateWaitsForTheBlockThatIsWritten) {
    Line line;
    line.writer.UseAutoTypeInfo(0, false, true, false, false, false, false);
    EXPECT_EQ(line.Send(0, START, 0) + line.writer.WriteTypeInfo(0), 0) << "no values, no block";
    EXPECT_EQ(StatesOf(line, 2), (std::vector{START, BUSY}));
    line.Send(0, STOP, 0);
    line.Send(0, INVALID, 0);
    EXPECT_EQ(StatesOf(line, 1), (std::vector{BUSY})) << "INVALID takes back the state before it";
}

TEST(TCPortHelperMetadata, AutomaticTimestampAndName) {
    Line line;
    line.writer.UseAutoTypeInfo(0, true, true, true, false, false, false);
    line.writer.SetTI_Timestamp(0, 1000.0);
    line.writer.WriteDblVal(0, 1.0);
    TCTypeInfo ti = line.Receive();
    EXPECT_EQ(ti.GetTimestamp(), 1000.0);
    EXPECT_STREQ(ti.GetSignalname(), "Signal 1");
    line.writer.SetTI_SignalName(0, "Own");
    for (int i = 0; i < 2; ++i) {
        line.writer.WriteDblVal(0, 1.0);
        ti = line.Receive();
        EXPECT_EQ(ti.GetTimestamp(), line.writer.SyncTime());
        EXPECT_STREQ(ti.GetSignalname(), "Own") << "a name stays";
    }
}

TEST(TCPortHelperMetadata, FieldsAreGivenForOneBlockElsePassedOn) {
    Chain chain;
    TCString unit;
    chain.Sense("Speed", 500.0, START);
    chain.filter.SetTI_Range(0, 0.0, 1.0);
    chain.filter.SetTI_Samplerate(0, 50.0);
    chain.filter.SetTI_Unit(0, "m", 0.001);
    chain.filter.SetTI_Timestamp(0, 7.0);
    TCTypeInfo ti = chain.Filter();
    EXPECT_EQ(ti.GetRangeMax(), 1.0);
    EXPECT_EQ(ti.GetSamplerate(), 50.0);
    EXPECT_EQ(ti.GetUnit().GetFactor(), 0.001);
    EXPECT_EQ(ti.GetTimestamp(), 7.0);
    EXPECT_STREQ(ti.GetSignalname(), "Speed");
    ti = chain.Filter();
    EXPECT_EQ(ti.GetRangeMin(), -5.0);
    EXPECT_EQ(ti.GetRangeMax(), 5.0);
    EXPECT_EQ(ti.GetSamplerate(), 100.0);
    EXPECT_STREQ(ti.GetUnit().GetString(unit), "V");
    EXPECT_EQ(ti.GetTimestamp(), 500.0);
    EXPECT_EQ(ti.GetState(), START);
}

TEST(TCPortHelperMetadata, AutomaticFieldsAreNotCopied) {
    Chain chain;
    // The order of the arguments is not that of the fields: the unit comes before the samplerate.
    chain.filter.UseAutoTypeInfo(0, false, false, true, true, true, false);
    chain.Sense("Speed", 500.0, START);
    const TCTypeInfo ti = chain.Filter();
    EXPECT_STREQ(ti.GetSignalname(), "Filtered");
    EXPECT_EQ(ti.GetRangeMax(), 1.0);
    EXPECT_EQ(ti.GetUnit(), TCSI_Unit());
    EXPECT_EQ(ti.GetSamplerate(), 100.0);
}

TEST(TCPortHelperMetadata, FirstConnectedInputOfAListIsLinked) {
    Chain chain;
    chain.filter.SetPort(INPUT, 1, "Loose", SIGNAL);
    chain.filter.SetPort(INPUT, 2, "Plain", Helper::TYPE_DOUBLEARRAY);
    const unsigned looseFirst[] = {1, 0};
    chain.filter.UseTypeInfoFromInputs(0, looseFirst, 2);
    chain.Sense("Speed", 500.0, START);
    EXPECT_STREQ(chain.Filter().GetSignalname(), "Speed");
    chain.filter.UseAutoTypeInfo(0, true, true, true, true, true, true);
    chain.filter.UseTypeInfoFromInput(0, 2);
    EXPECT_STREQ(chain.Filter().GetSignalname(), "Speed")
        << "linked to an input without metadata: nothing is done";
    chain.filter.UseTypeInfoFromInput(0, 9);
    EXPECT_STREQ(chain.Filter().GetSignalname(), "Filtered") << "linked to nothing";
}

TEST(TCPortHelperMetadata, InvalidValuesAreRepaired) {
    struct {
        double timestamp, samplerate, factor, minimum, maximum;
        TCBLOCKSTATUS state;
        double wantedMinimum, wantedMaximum;
    } const rows[] = {
        {0.0, 0.0, 0.0, 5.0, 1.0, INVALID, 1.0, 5.0},
        {-1.0, -3.0, -2.0, NOT_A_NUMBER, INFINITE, static_cast<TCBLOCKSTATUS>(4), -LARGEST, LARGEST},
        {NOT_A_NUMBER, INFINITE, INFINITE, -INFINITE, -7.0, COMPLETE, -LARGEST, -7.0},
    };
    for (const auto& row : rows) {
        Line line;
        TCSI_Unit unit;
        unit.SetFactor(row.factor);
        const double range[] = {row.minimum, row.maximum};
        line.writer.SetTypeInfo(0, &row.timestamp, &row.state, "x", range, &row.samplerate, &unit);
        line.writer.WriteDblVal(0, 1.0);
        const TCTypeInfo ti = line.Receive();
        EXPECT_GT(ti.GetTimestamp(), 1.6e12) << "now";
        EXPECT_EQ(ti.GetState(), COMPLETE);
        EXPECT_EQ(ti.GetSamplerate(), 1.0);
        EXPECT_EQ(ti.GetUnit().GetFactor(), 1.0);
        EXPECT_EQ(ti.GetRangeMin(), row.wantedMinimum);
        EXPECT_EQ(ti.GetRangeMax(), row.wantedMaximum);
    }
}

TEST(TCPortHelperMetadata, LaterStateConflictsHaveTheirOwnCode) {
    Line line;
    TCPortHelper rival(nullptr);
    rival.SetPort(OUTPUT, 0, "Rival", SIGNAL);
    TCIOStream* receiver = line.reader.SetInputStream(0, 0, 3);
    rival.AddOutputStream(0, receiver);
    line.Send(0, COMPLETE);
    const TCBLOCKSTATUS start = START;
    rival.SetTypeInfo(0, nullptr, &start, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(rival.WriteDblVal(0, 1.0), -4);
    EXPECT_EQ(rival.WriteDblVal(0, 1.0), -18);
    const TCPortError& error = rival.GetErrorRecord();
    EXPECT_EQ(error.code, -18);
    EXPECT_EQ(error.otherStream, receiver);
    EXPECT_EQ(rival.GetErrorText().Find("Output \"Rival\", receiver 1: "), 0);
    EXPECT_EQ(line.reader.BlocksOnStream(INPUT, 0), 1);
    line.Receive();
    EXPECT_EQ(rival.WriteDblVal(0, 1.0), 0);
    EXPECT_EQ(line.Receive().GetState(), START) << "the state was still to be written";
    line.Send(0, COMPLETE);
    EXPECT_EQ(line.Send(0, COMPLETE), -18) << "the first hand-over decides";
}
