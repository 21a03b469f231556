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

// sensor -> filter -> reader, where the filter's output is linked to its input; the inputs 1 and 2 have no
// line, and 2 no metadata.
struct Chain {
    Chain() {
        filter.SetPort(INPUT, 0, "In", SIGNAL);
        filter.SetPort(INPUT, 1, "Loose", SIGNAL);
        filter.SetPort(INPUT, 2, "Plain", Helper::TYPE_DOUBLEARRAY);
        filter.SetPort(OUTPUT, 0, "Filtered", SIGNAL);
        filter.UseTypeInfoFromInput(0, 0);
        Wire(sensor.writer, 0, filter, 0);
        Wire(filter, 0, reader.reader, 0);
    }
    void Sense(TCBLOCKSTATUS state) {
        const double range[] = {-5.0, 5.0}, timestamp = 500.0, samplerate = 100.0;
        TCSI_Unit volt;
        volt.FromString("V");
        sensor.writer.SetTypeInfo(0, &timestamp, &state, "Speed", range, &samplerate, &volt);
        sensor.writer.WriteDblVal(0, 1.0);
        filter.TakeBlock(0);
    }
    // Gives fields of the next block, or a whole record with a name or without.
    void Give(char field) {
        TCTypeInfo record;
        record.SetTimestamp(9.0);
        record.SetState(STOP);
        record.SetSignalname(field == 'q' ? "Other" : "");
        if (field == 't') filter.SetTI_Timestamp(0, 7.0);
        if (field == 'n') filter.SetTI_SignalName(0, "Own"), filter.SetTI_SignalName(0, nullptr);
        if (field == 'r') filter.SetTI_Range(0, -1.0, 1.0);
        if (field == 'y') filter.SetTI_Samplerate(0, 50.0);
        if (field == 'u') filter.SetTI_Unit(0, "m", 0.001), filter.SetTI_Unit(0, "no unit", 2.0);
        if (field == 'q' || field == 'e') filter.SetTypeInfo(0, record);
    }
    // Plays a script and answers the metadata of the blocks that the filter writes, in lines:
    //   SBPC  the sensor sends a block of that state     w 0  the filter writes a block, or no values
    //   a...  its automatic fields, in the order of the arguments, as six digits     others as for Give
    std::string Play(const char* script) {
        std::string log;
        for (; *script != '\0'; ++script) {
            Give(*script);
            if (StateOf(*script) != INVALID) Sense(StateOf(*script));
            if (*script == '0') filter.WriteDblData(0, 0, nullptr);
            if (*script == 'a') {
                const auto on = [script](int i) { return script[i] == '1'; };
                filter.UseAutoTypeInfo(0, on(1), on(2), on(3), on(4), on(5), on(6));
                script += 6;
            }
            if (*script != 'w') continue;
            EXPECT_EQ(filter.WriteDblVal(0, 2.0), 0);
            log += (log.empty() ? "" : "\n") + std::string(Text(reader.Receive(), filter.SyncTime()));
        }
        return log;
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

TEST(TCPortHelperMetadata, FieldsAreGivenMadeOrPassedOn) {
    const std::pair<const char*, const char*> rows[] = {
        {"Stryuww", "7 'Speed' 50/s -1..1 0.001 m S\n500 'Speed' 100/s -5..5 1 V S"},
        {"Snww", "500 'Own' 100/s -5..5 1 V S\n500 'Own' 100/s -5..5 1 V S"},  // a name stays
        {"Snew", "9 'Speed' 1/s 0..1 1 P"},                                    // an empty one takes it back
        {"Sqww", "9 'Other' 1/s 0..1 1 P\n500 'Other' 100/s -5..5 1 V S"},
        // Each automatic field by itself is not copied. The unit is given before the samplerate.
        {"Sa100000w", "sync 'Speed' 100/s -5..5 1 V S"},
        {"Sa010000w", "500 'Speed' 100/s -5..5 1 V C"},
        {"Sa001000w", "500 'Filtered' 100/s -5..5 1 V S"},
        {"Sa000100w", "500 'Speed' 100/s 0..1 1 V S"},
        {"Sa000010w", "500 'Speed' 100/s -5..5 1 S"},
        {"Sa000001w", "500 'Speed' 1/s -5..5 1 V S"},
        {"P0a010000w", "500 'Speed' 100/s -5..5 1 V S"},  // goes on from the STOP that was copied
        // What is given goes before what is made; a timestamp is used up by a write without values.
        {"Sa100000tw", "7 'Speed' 100/s -5..5 1 V S"},
        {"Sa100000t0w", "sync 'Speed' 100/s -5..5 1 V S"},
        {"Sa001000nww", "500 'Own' 100/s -5..5 1 V S\n500 'Own' 100/s -5..5 1 V S"},
        {"Sa001000new", "9 'Filtered' 1/s 0..1 1 P"}};
    for (const auto& [script, written] : rows) EXPECT_EQ(Chain().Play(script), written) << script;
}

TEST(TCPortHelperMetadata, FirstConnectedInputOfAListIsLinked) {
    Chain chain;
    const auto name = [&chain] {
        chain.filter.WriteDblVal(0, 2.0);
        return TCString(chain.reader.Receive().GetSignalname());
    };
    chain.Play("a110111S");
    using Row = std::pair<std::vector<unsigned>, const char*>;
    for (const auto& [inputs, expected] :
         {Row({1, 0}, "Speed"), Row({9, 0, 1}, "Speed"), Row({1}, ""), Row({2}, "")}) {
        chain.filter.UseTypeInfoFromInputs(0, inputs.data(), static_cast<unsigned>(inputs.size()));
        EXPECT_STREQ(name(), expected) << inputs[0];
    }
    chain.filter.UseTypeInfoFromInput(0, 0);
    EXPECT_STREQ(name(), "Speed");
    chain.Play("a111111");
    chain.filter.UseTypeInfoFromInput(0, 2);
    EXPECT_STREQ(name(), "Speed") << "no metadata there: nothing is done";
    chain.filter.UseTypeInfoFromInputs(0, nullptr, 2);
    EXPECT_STREQ(name(), "Filtered") << "linked to nothing";
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
