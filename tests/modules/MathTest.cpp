#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "tests/support/ModuleBench.h"

namespace {

using testing::HasSubstr;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NONE = std::numeric_limits<double>::quiet_NaN();

struct Math : testing::Test {
    void Wire(std::size_t count) {
        bench.WireInputs(std::vector<const char*>(count, ModuleBench::TIME_DOMAIN));
        bench.WireOutput(0);
    }
    // The first input comes whole before the second.
    bool Run(const std::string& settings, const TestSignal& a, const TestSignal& b) {
        EXPECT_TRUE(bench.Set(settings)) << bench.Error();
        const bool well =
            bench.Start() && bench.Feed(0, {6.0, -3.0, 0.0}, a) && bench.Feed(1, {2.0, 0.0, 0.0}, b);
        bench.Finish();
        return well;
    }
    ModuleBench bench{"math", "Math"};
};

TestSignal In(const std::string& unit) {
    TestSignal signal;
    signal.unit = unit;
    return signal;
}

TEST_F(Math, ComputesValuesAndUnits) {
    const struct {
        const char *settings, *unitA, *unitB;
        std::vector<double> values;
        const char* unit;
    } rows[] = {
        {"", "V", "V", {8.0, -3.0, 0.0}, "V"},
        {"", "V", "V * 1e-003", {6.002, -3.0, 0.0}, "V"},
        {"", "V * 1e-003", "V", {2006.0, -3.0, 0.0}, "V * 1e-003"},
        {"operation=difference", "", "", {4.0, -3.0, 0.0}, ""},
        {"operation=product", "V", "A", {12.0, 0.0, 0.0}, "W"},
        {"operation=product", "V * 1e-003", "A * 1e-003", {12.0, 0.0, 0.0}, "W * 1e-006"},
        {"operation=quotient", "V", "A", {3.0, -INF, NONE}, "Ohm"},
        {"operation=quotient", "m", "m", {3.0, -INF, NONE}, ""},
        {"scale=0.5\nscale_unit=\"m s^-2 V^-1\"\noffset=-1", "V", "V", {3.0, -2.5, -1.0}, "m s^-2"},
    };
    Wire(2);
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.settings) + " of " + row.unitA + " and " + row.unitB);
        ASSERT_TRUE(Run(row.settings, In(row.unitA), In(row.unitB))) << bench.Error();
        TCString unit;
        EXPECT_STREQ(bench.Blocks(0)[0].GetUnit().ToString(unit), row.unit);
        EXPECT_THAT(bench.Samples(0), testing::Pointwise(testing::NanSensitiveDoubleEq(), row.values));
    }
}

TEST_F(Math, RefusesWhatDoesNotBelongTogether) {
    TestSignal fast = In("V");
    fast.rate = 2000.0;
    TestSignal late = In("V");
    late.timestamp += 0.75;
    const struct {
        TestSignal b;
        const char* message;
    } rows[] = {
        {In("m s^-2"), "the input \"Signal 1\" (V) and the input \"Signal 2\" (m s^-2) have different"},
        {In(""), "the input \"Signal 2\" (no unit) have different units; a sum needs"},
        {fast,
         "\"Signal 2\" have different samplerates, 1000 and 2000; allowed is one for all, as for the module "
         "Align"},
        {late, "\"Signal 2\" begin 0.75 ms apart; a module Align"}};
    Wire(2);
    for (const auto& row : rows) {
        EXPECT_FALSE(Run("", In("V"), row.b));
        EXPECT_THAT(bench.Error(), HasSubstr(row.message));
    }
    late.timestamp -= 0.25;
    EXPECT_TRUE(Run("", In("V"), late)) << "half a sample is the same time";
    late.rate = 0.0;
    EXPECT_FALSE(Run("", late, In("V")));
    EXPECT_THAT(bench.Error(), HasSubstr("the input \"Signal 1\" has the samplerate 0"));
}

TEST_F(Math, RefusesAUnitThatChangesWithinASignal) {
    Wire(1);
    ASSERT_TRUE(bench.Start());
    EXPECT_TRUE(bench.Feed(0, {1.0}, In("V"), 1, true, false));
    EXPECT_FALSE(bench.Feed(0, {1.0}, In("V * 1e-003"), 1, false, true));
    EXPECT_THAT(bench.Error(), HasSubstr("changes its unit within a signal, from \"V\" to \"V * 1e-003\""));
}

TEST_F(Math, CountsItsInputs) {
    Wire(3);
    ASSERT_TRUE(bench.Set("operation=quotient"));
    EXPECT_FALSE(bench.Start());
    EXPECT_THAT(
        bench.Error(),
        HasSubstr("operation: 'quotient' is not valid for 3 inputs; expected two inputs, or sum or product"));
    ASSERT_TRUE(bench.Set("operation=product"));
    ASSERT_TRUE(bench.Start());
    for (int input = 0; input < 2; ++input) ASSERT_TRUE(bench.Feed(input, {2.0}, In("kg^10")));
    EXPECT_TRUE(bench.Feed(2, {3.0}, In("kg^-10"))) << bench.Error();
    EXPECT_EQ(bench.Samples(0), std::vector<double>{12.0});
}

TEST_F(Math, RefusesUnitsThatNoUnitCanHold) {
    Wire(13);
    ASSERT_TRUE(bench.Set("operation=product"));
    ASSERT_TRUE(bench.Start());
    for (int input = 0; input < 12; ++input) ASSERT_TRUE(bench.Feed(input, {1.0}, In("m^10")));
    EXPECT_FALSE(bench.Feed(12, {1.0}, In("m^10")));
    EXPECT_THAT(bench.Error(), HasSubstr("no unit can hold the product of the input \"Signal 13\" (m^10)"));
    EXPECT_FALSE(bench.Set("scale_unit=furlong"));
    EXPECT_THAT(bench.Error(), HasSubstr("scale_unit: 'furlong' is not valid; expected a unit"));
}

// The first input is far ahead, beyond what waits in memory.
TEST_F(Math, JoinsBlocksOfAnySize) {
    std::vector<double> a(200000), b(200000), sum(200000);
    for (std::size_t i = 0; i < a.size(); ++i) {
        a[i] = static_cast<double>(i);
        b[i] = 1e6 * static_cast<double>(i % 7);
        sum[i] = a[i] + b[i];
    }
    Wire(2);
    ASSERT_TRUE(bench.Set("name=total"));
    ASSERT_TRUE(bench.Start());
    ASSERT_TRUE(bench.Feed(0, a, {}, 1000)) << bench.Error();
    ASSERT_TRUE(bench.Feed(1, b, {}, 777)) << bench.Error();
    EXPECT_EQ(bench.Samples(0), sum);
    EXPECT_THAT(bench.States(0), testing::MatchesRegex("START( BUSY)+ STOP"));
    EXPECT_STREQ(bench.Blocks(0)[0].GetSignalname(), "total");
    EXPECT_EQ(bench.Blocks(0)[0].GetRangeMax(), 2.0);
    EXPECT_EQ(bench.Blocks(0)[2].GetTimestamp(), 1e12 + 2 * 777);
    EXPECT_TRUE(bench.Finish());
    EXPECT_EQ(ModuleBench::TakeWarnings(), "");
}

TEST_F(Math, EndsWhereAnInputEndsWithoutSamples) {
    Wire(2);
    ASSERT_TRUE(bench.Start() && bench.Feed(0, {1.0, 2.0}, {}, 2, true, false));
    ASSERT_TRUE(bench.Feed(1, {3.0, 4.0}, {}, 2, true, false));
    TCTypeInfo ti;
    ti.SetSamplerate(1000.0);
    ti.SetState(STOP);
    ASSERT_TRUE(bench.Send(0, ti, {}) && bench.Send(1, ti, {})) << bench.Error();
    EXPECT_EQ(bench.States(0), "START STOP");
    EXPECT_EQ(bench.Blocks(0)[1].GetTimestamp(), 1e12 + 2);
    EXPECT_TRUE(bench.Feed(0, {1.0}) && bench.Feed(1, {1.0}) && bench.Finish());
    EXPECT_EQ(bench.States(0), "START STOP COMPLETE");
    EXPECT_EQ(ModuleBench::TakeWarnings(), "");
}

TEST_F(Math, EndsWithTheShortestSignalAndSaysSo) {
    Wire(2);
    ASSERT_TRUE(bench.Start());
    ASSERT_TRUE(bench.Feed(1, std::vector<double>(5, 1.0), {}, 2));
    ASSERT_TRUE(bench.Feed(1, {2.0, 2.0}));
    ASSERT_TRUE(bench.Feed(0, std::vector<double>(3, 10.0), {}, 2));
    EXPECT_THAT(
        ModuleBench::TakeWarnings(),
        HasSubstr(
            "the input \"Signal 2\" goes on where the input \"Signal 1\" has no more; samples left out: 2"));
    ASSERT_TRUE(bench.Feed(0, std::vector<double>(9, 20.0), {}, 4));
    EXPECT_EQ(bench.Samples(0), (std::vector<double>{11, 11, 11, 22, 22}));
    EXPECT_EQ(bench.States(0), "START STOP COMPLETE");
    EXPECT_THAT(
        ModuleBench::TakeWarnings(),
        HasSubstr("\"Signal 1\" goes on where the input \"Signal 2\" has no more; samples left out: 7"));
    ASSERT_TRUE(bench.Feed(0, {1.0}));
    EXPECT_TRUE(bench.Finish());
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("samples left out: 1\n"));
}

}  // namespace
