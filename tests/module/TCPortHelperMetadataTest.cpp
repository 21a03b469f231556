#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "sigweave/services/SystemTime.h"
#include "tests/module/PortBench.h"

using namespace bench;
using Helper = TCPortHelper;

namespace {

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr double LARGEST = std::numeric_limits<double>::max();

// "timestamp 'name' samplerate/s minimum..maximum factor unit state", where a timestamp may be that of the
// run or the present.
TCString Text(const TCTypeInfo& ti, double sync = -1.0) {
    TCString unit;
    TCSI_Unit symbols = ti.GetUnit();
    symbols.SetFactor(1.0);
    symbols.ToString(unit);
    const double time = ti.GetTimestamp();
    const bool now = std::fabs(time - TCSystemTime()) < 60000.0;
    TCString text = time == sync ? TCString("sync") : now ? TCString("now") : TCString::FormatS("%g", time);
    text.FormatAppend(" '%s' %g/s %g..%g %g", ti.GetSignalname(), ti.GetSamplerate(), ti.GetRangeMin(),
                      ti.GetRangeMax(), ti.GetUnit().GetFactor());
    if (!unit.IsEmpty()) text += " " + unit;
    text.FormatAppend(" %c", LetterOf(ti.GetState()));
    return text;
}

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

// An output whose receiver can be made to refuse its blocks.
struct Refusable : Line {
    Refusable() {
        rival.SetPort(OUTPUT, 0, "Rival", SIGNAL);
        rival.AddOutputStream(0, reader.SetInputStream(0, 0, 3));
    }
    // Writes a block, of which the receiver cannot take the state.
    int WriteRefused() {
        const TCBLOCKSTATUS complete = COMPLETE;
        rival.SetTypeInfo(0, nullptr, &complete, nullptr, nullptr, nullptr, nullptr);
        rival.WriteDblVal(0, 1.0);
        const int result = writer.WriteDblVal(0, 1.0);
        EXPECT_EQ(reader.RemoveContents(0, true), 1);
        return result;
    }
    TCPortHelper rival{nullptr};
};

// Plays a script on an output and answers the states of the blocks that went out:
//   SBPC  the state START, BUSY, STOP or COMPLETE is given     -  the state INVALID is given
//   w     a block is written     x  one is refused     0  no values are written     t  metadata alone
std::string States(const char* script) {
    Refusable line;
    line.writer.UseAutoTypeInfo(0, false, true, false, false, false, false);
    std::string states;
    for (; *script != '\0'; ++script) {
        const TCBLOCKSTATUS given = StateOf(*script);
        if (*script == 'x')
            line.WriteRefused();
        else if (*script == '0')
            line.writer.WriteDblData(0, 0, nullptr);
        else if (*script == 't')
            EXPECT_EQ(line.writer.WriteTypeInfo(0), 0);
        else if (*script == 'w') {
            EXPECT_EQ(line.writer.WriteDblVal(0, 1.0), 0);
            states += LetterOf(line.Receive().GetState());
        } else
            line.writer.SetTypeInfo(0, nullptr, &given, nullptr, nullptr, nullptr, nullptr);
    }
    return states;
}

}  // namespace

TEST(TCPortHelperMetadata, AutomaticStatesMakeOneSignal) {
    for (const auto& [script, states] :
         Rows("www:CCC SwwwPwwww:SBBPSBB BwwCwBw:BBCB S-w:C SwPBw:SB "  // what is given last counts, - is
                                                                        // nothing
              "S0w:C Pw0w:PB Sw0w:SB Stw:B tw:C "  // each preparation uses up and goes on
              "Sxw:B Pwxw:PB SwPxw:SS"))           // a refused block counts all the same
        EXPECT_EQ(States(script.c_str()), states) << script;
}

TEST(TCPortHelperMetadata, AutomaticTimestampAndName) {
    Line line;
    TCTypeInfo record;
    line.writer.UseAutoTypeInfo(0, true, true, true, false, false, false);
    const auto write = [&line] {
        line.writer.WriteDblVal(0, 1.0);
        return line.Receive();
    };
    line.writer.SetTI_Timestamp(0, 1000.0);
    EXPECT_EQ(write().GetTimestamp(), 1000.0);
    EXPECT_EQ(write().GetTimestamp(), line.writer.SyncTime());
    line.writer.SetTI_Timestamp(0, 1000.0);
    line.writer.WriteDblData(0, 0, nullptr);
    EXPECT_EQ(write().GetTimestamp(), line.writer.SyncTime()) << "used up by a write without values";
    line.writer.SetTI_SignalName(0, nullptr);
    EXPECT_STREQ(write().GetSignalname(), "Signal 1");
    line.writer.SetTI_SignalName(0, "Own");
    for (int i = 0; i < 2; ++i) EXPECT_STREQ(write().GetSignalname(), "Own") << "a name stays";
    for (const char* name : {"Other", ""}) {
        record.SetSignalname(name);
        line.writer.SetTypeInfo(0, record);
        EXPECT_STREQ(write().GetSignalname(), *name != '\0' ? name : "Signal 1") << "no name is none";
    }
    line.writer.UseAutoTypeInfo(0, true, true, false, false, false, false);
    line.writer.SetTypeInfo(0, record);
    EXPECT_STREQ(write().GetSignalname(), "");
}

TEST(TCPortHelperMetadata, NothingIsGivenForNobody) {
    Line plain(Helper::TYPE_DOUBLEARRAY);
    TCPortHelper alone(nullptr);
    alone.SetPort(OUTPUT, 0, "Out", SIGNAL);
    for (Helper* helper : {&plain.writer, &alone}) {
        for (const unsigned port : {0u, 9u}) {
            helper->SetTI_Timestamp(port, 7.0);
            helper->SetTI_SignalName(port, "x");
            helper->SetTI_Samplerate(port, 7.0);
            helper->SetTI_Range(port, 6.0, 7.0);
            helper->SetTI_Unit(port, "V", 7.0);
            EXPECT_EQ(helper->WriteTypeInfo(port), 0);
        }
    }
    Line reader;
    alone.AddOutputStream(0, reader.reader.SetInputStream(0, 0, 3));
    alone.WriteDblVal(0, 1.0);
    EXPECT_STREQ(Text(reader.Receive()), "now '' 1/s 0..1 1 C");
}

TEST(TCPortHelperMetadata, FieldsAreGivenForOneBlockElsePassedOn) {
    Chain chain;
    chain.Sense("Speed", 500.0, START);
    chain.filter.SetTI_Range(0, 0.0, 1.0);
    chain.filter.SetTI_Samplerate(0, 50.0);
    chain.filter.SetTI_Unit(0, "m", 0.001);
    chain.filter.SetTI_Unit(0, "no unit", 2.0);
    chain.filter.SetTI_Timestamp(0, 7.0);
    EXPECT_STREQ(Text(chain.Filter()), "7 'Speed' 50/s 0..1 0.001 m S");
    EXPECT_STREQ(Text(chain.Filter()), "500 'Speed' 100/s -5..5 1 V S");
    chain.filter.SetTI_SignalName(0, "Own");
    for (int i = 0; i < 2; ++i) EXPECT_STREQ(Text(chain.Filter()), "500 'Own' 100/s -5..5 1 V S");
    TCTypeInfo record = chain.filter.LastTypeInfo(0)[0];
    record.SetSignalname("");
    record.SetState(STOP);
    record.SetRangeMin(-1.0);
    chain.filter.SetTypeInfo(0, record);
    EXPECT_STREQ(Text(chain.Filter()), "500 'Speed' 100/s -1..5 1 V P");
}

TEST(TCPortHelperMetadata, AutomaticFieldsAreNotCopied) {
    // The arguments of UseAutoTypeInfo are in another order than the fields: the unit is before the
    // samplerate.
    const char* written[] = {"sync 'Speed' 100/s -5..5 1 V S",   "500 'Speed' 100/s -5..5 1 V C",
                             "500 'Filtered' 100/s -5..5 1 V S", "500 'Speed' 100/s 0..1 1 V S",
                             "500 'Speed' 100/s -5..5 1 S",      "500 'Speed' 1/s -5..5 1 V S"};
    for (int field = 0; field < 6; ++field) {
        Chain chain;
        chain.filter.UseAutoTypeInfo(0, field == 0, field == 1, field == 2, field == 3, field == 4,
                                     field == 5);
        chain.Sense("Speed", 500.0, START);
        EXPECT_STREQ(Text(chain.Filter(), chain.filter.SyncTime()), written[field]);
    }
    Chain chain;
    chain.Sense("Speed", 500.0, STOP);
    chain.filter.WriteDblData(0, 0, nullptr);
    chain.filter.UseAutoTypeInfo(0, false, true, false, false, false, false);
    EXPECT_EQ(chain.Filter().GetState(), START) << "goes on from the STOP that was copied";
}

TEST(TCPortHelperMetadata, FirstConnectedInputOfAListIsLinked) {
    Chain chain;
    chain.filter.SetPort(INPUT, 1, "Loose", SIGNAL);
    chain.filter.SetPort(INPUT, 2, "Plain", Helper::TYPE_DOUBLEARRAY);
    chain.filter.UseAutoTypeInfo(0, true, true, false, true, true, true);
    chain.Sense("Speed", 500.0, START);
    using Row = std::pair<std::vector<unsigned>, const char*>;
    for (const auto& [inputs, name] :
         {Row({1, 0}, "Speed"), Row({9, 0, 1}, "Speed"), Row({1}, ""), Row({2}, "")}) {
        chain.filter.UseTypeInfoFromInputs(0, inputs.data(), static_cast<unsigned>(inputs.size()));
        EXPECT_STREQ(chain.Filter().GetSignalname(), name) << inputs[0];
    }
    chain.filter.UseTypeInfoFromInput(0, 0);
    chain.Filter();
    chain.filter.UseAutoTypeInfo(0, true, true, true, true, true, true);
    chain.filter.UseTypeInfoFromInput(0, 2);
    EXPECT_STREQ(chain.Filter().GetSignalname(), "Speed") << "no metadata there: nothing is done";
    chain.filter.UseTypeInfoFromInputs(0, nullptr, 2);
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
    Refusable line;
    TCIOStream* receiver = line.reader.SetInputStream(0, 0, 3);
    EXPECT_EQ(line.WriteRefused(), -4);
    EXPECT_EQ(line.WriteRefused(), -18);
    const TCPortError& error = line.writer.GetErrorRecord();
    EXPECT_EQ(error.code, -18);
    EXPECT_EQ(error.otherIndex, 0);
    EXPECT_EQ(error.otherStream, receiver);
    EXPECT_STREQ(
        line.writer.GetErrorText(),
        "Output \"Signal 1\", receiver 1: again the block's state does not follow that of a block that "
        "waits (-18)");
    line.Send(0, START);
    line.reader.RemoveContents(0, true);
    line.writer.Init();
    EXPECT_EQ(line.WriteRefused(), -4) << "another run";
    Refusable other;
    other.Send(0, START);
    other.reader.RemoveContents(0, true);
    EXPECT_EQ(other.WriteRefused(), -18) << "the first hand-over decides";
}
