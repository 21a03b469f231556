#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <utility>

#include "sigweave/module/ModuleSignals.h"
#include "tests/module/PortBench.h"

using namespace bench;

TEST(ModuleSignals, StartsAreDatesAndTimes) {
    // The seconds are those of `date --utc +%s --date ...`.
    const std::pair<const char*, double> starts[] = {{"1970-01-02", 86400e3},
                                                     {"2026-03-01", 1772323200e3},
                                                     {"2026-03-01T12:34:56.789Z", 1772368496789.0},
                                                     {"2026-03-01 00:01", 1772323260e3},
                                                     {"2024-02-29T23:59:59.000001", 1709251199000.001},
                                                     {"1970-01-01T00:00:00.001Z", 1.0},
                                                     {"", 0.0}};
    CString error;
    for (const auto& [text, milliseconds] : starts) {
        double read = -1.0;
        EXPECT_TRUE(tc::ParseStart(text, read, error)) << error;
        EXPECT_DOUBLE_EQ(read, milliseconds);
    }
    for (const char* text :
         {"1970-01-01", "1969-12-31", "2025-02-29", "2026-13-01", "2026-3-01", "2026-03-0", "2026/03/01",
          "2026-03/01", "2026-03-01T24:00", "2026-03-01T23:60", "2026-03-01T23:59:60", "2026-03-01T12",
          "2026-03-01T12:3", "noon", "2026-03-01T12:34:5", "2026-03-01T12:34:56.", "2026-03-01T12:34ZZ"}) {
        double read = -1.0;
        error = "before";
        EXPECT_FALSE(tc::ParseStart(text, read, error)) << text;
        EXPECT_EQ(error.find(CString("before\nstart: '") + text + "' is not valid; expected a UTC date"), 0u)
            << error;
    }
}

TEST(ModuleSignals, UnitsAreSymbolsAndFactors) {
    TCSI_Unit unit;
    CString error;
    EXPECT_TRUE(tc::ParseUnit("V * 1e-003", unit, error));
    EXPECT_EQ(unit.GetFactor(), 0.001);
    EXPECT_FALSE(tc::ParseUnit("Volt", unit, error, "scale_unit"));
    EXPECT_EQ(error.find("scale_unit: 'Volt' is not valid; expected a unit"), 0u);
    EXPECT_TRUE(tc::ParseUnit("", unit, error));
    EXPECT_EQ(unit, TCSI_Unit());
}

TEST(ModuleSignals, StatesSayWhereABlockIs) {
    for (const auto& [state, begins, ends] : {std::tuple(START, true, false),
                                              {BUSY, false, false},
                                              {STOP, false, true},
                                              {COMPLETE, true, true},
                                              {INVALID, true, true}}) {
        EXPECT_EQ(tc::BlockState(begins, ends), state == INVALID ? COMPLETE : state);
        EXPECT_EQ(tc::BeginsSignal(state), begins);
        EXPECT_EQ(tc::EndsSignal(state), ends);
    }
}

TEST(ModuleSignals, SamplesAreSentWithTheirMetadata) {
    Line line;
    TCTypeInfo ti;
    const double values[] = {1.0, 2.0};
    ti.SetSignalname("Speed");
    EXPECT_EQ(tc::SignalName(line.reader, 0, ti), "Speed");
    for (const std::size_t count : {2u, 0u}) {
        ti.SetState(count > 0 ? START : STOP);
        EXPECT_EQ(tc::WriteSamples(line.writer, 0, ti, values, count), 0);
        EXPECT_EQ(line.Receive().GetState(), ti.GetState());
        int received = 0;
        line.reader.AccessDblData(0, received);
        EXPECT_EQ(received, static_cast<int>(count));
        EXPECT_STREQ(line.reader.LastTypeInfo(0)->GetSignalname(), "Speed");
    }
    ti.SetSignalname("");
    EXPECT_EQ(tc::SignalName(line.reader, 0, ti), "Signal 1");
    line.Send(0, COMPLETE);
    EXPECT_EQ(tc::WriteSamples(line.writer, 0, ti, values, 1), -18);
    EXPECT_EQ(tc::WriteSamples(line.writer, 7, ti, values, 0), 0);
}

TEST(ModuleSignals, SignalsThatDoNotFitAreNamed) {
    Lines lines(2);
    CString error;
    TCTypeInfo before, now;
    for (const auto& [rate, text] : {std::pair(1e-9, ""), {0.0, "0"}, {-1.0, "-1"}, {INFINITY, "inf"}}) {
        now.SetSamplerate(rate);
        EXPECT_EQ(tc::CheckRate(lines.reader, 1, now, error), *text == '\0');
        EXPECT_TRUE(*text == '\0' || error == CString("the input \"Signal 2\" has the samplerate ") + text +
                                                  "; allowed are numbers above 0");
    }
    TCForetoldSignal foretold[3];  // of the second nothing is known
    foretold[0].samplerate = foretold[2].samplerate = 0.0;
    TCStartCheck rates;
    rates.inputs = foretold;
    tc::CheckRates(Lines(3).reader, rates);
    EXPECT_STREQ(rates.mistakes,
                 "Signal 1: the input \"Signal 1\" has the samplerate 0; allowed are numbers above 0\n"
                 "Signal 3: the input \"Signal 3\" has the samplerate 0; allowed are numbers above 0");
    error.clear();
    now = before;
    EXPECT_TRUE(tc::CheckGoesOn(lines.reader, 1, before, now, error));
    now.GetUnit().FromString("V");
    EXPECT_FALSE(tc::CheckGoesOn(lines.reader, 1, before, now, error));
    EXPECT_EQ(error, "the input \"Signal 2\" changes its unit within a signal, from \"\" to \"V\"");
    now.SetSamplerate(2.5);
    EXPECT_FALSE(tc::CheckGoesOn(lines.reader, 1, before, now, error));
    EXPECT_EQ(error, "the input \"Signal 2\" changes its samplerate within a signal, from 1 to 2.5");
    TCPortHelper mixed(nullptr);
    mixed.SetPort(INPUT, 0, "Ints", "SWORD[]", "", false);
    mixed.SetPort(INPUT, 1, "Open", "", "", true);
    mixed.SetPort(INPUT, 2, "Bus", "STRUCT_BUS", "", false);
    for (const char* token : {"DOUBLE", "DOUBLE[1]", "DOUBLE[]"})
        mixed.SetPort(INPUT, static_cast<unsigned>(mixed.GetPortCnt(INPUT)), token, token, "", false);
    TCStartCheck check;
    tc::CheckDoubleInputs(mixed, check);
    EXPECT_STREQ(
        check.mistakes,
        "Ints: takes double values (DOUBLE[]), but is wired to SWORD[]{BIN}\nBus: takes double values "
        "(DOUBLE[]), but is wired to a bus (STRUCT_BUS{BUS}); a module BusSelect between them takes "
        "signals out of a bus");
    tc::DeclareOutputs(mixed, "FREQ_DOMAIN");
    EXPECT_EQ(mixed.GetPortCnt(OUTPUT), 6);
    EXPECT_STREQ(mixed.GetPortName(OUTPUT, 0), "Ints");
    EXPECT_STREQ(mixed.GetPortType(OUTPUT, 5, nullptr), "TYPEINFO{TypeInfo} DOUBLE[]{FREQ_DOMAIN}");
}
