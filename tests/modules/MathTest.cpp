#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
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

// Each line of `expressions`, with inputs of all kinds of values, by NumPy. Integer powers are of doubles.
constexpr const char* NUMPY = R"(
import sys, numpy
numpy.seterr(all='ignore')
inf, nan = numpy.inf, numpy.nan
values = [0.0, -0.0, 1.0, -1.0, 0.5, 2.5, -3.5, 1e-300, 1e300, 5e-324, inf, -inf, nan, 0.1, 7.0, -0.3]
a = numpy.array([x for x in values for y in values])
b = numpy.array([y for x in values for y in values])
c = numpy.roll(a, 5)
names = {name: getattr(numpy, name) for name in dir(numpy)}
print(len(a), *(repr(float(v)) for v in numpy.concatenate([a, b, c])))
for line in open('expressions.txt'):
    result = eval(line, dict(names, a=a, b=b, c=c, x1=a, x2=b, x3=c)) + 0.0 * len(a)
    result = numpy.broadcast_to(result, len(a)).astype(float)
    print(*(repr(float(v)) for v in result))
)";

constexpr const char* EXPRESSIONS[] = {"a*b - 0.5*abs(c)",
                                       "-a**2 + 2**-1",
                                       "2**3**2 - a",
                                       "(a + b)*(a - b)/c",
                                       "+a - -b",
                                       "a - b - c",
                                       "a/b/c",
                                       "a < b",
                                       "a >= b",
                                       "(a == b)*1 + 2*(a != b) + 4*(a > b) + 8*(a <= c)",
                                       "where(a > 0, b, -c)",
                                       "where(a, b, c)",
                                       "minimum(a, b)",
                                       "maximum(a, b)",
                                       "sign(a)",
                                       "floor(a) + ceil(b)",
                                       "round(a)",
                                       "sqrt(a)",
                                       "square(a)",
                                       "abs(a)",
                                       "exp(a)",
                                       "expm1(a)",
                                       "log(a)",
                                       "log2(a)",
                                       "log10(a)",
                                       "log1p(a)",
                                       "sin(a)",
                                       "cos(a)",
                                       "tan(a)",
                                       "arcsin(a)",
                                       "arccos(a)",
                                       "arctan(a)",
                                       "sinh(a)",
                                       "cosh(a)",
                                       "tanh(a)",
                                       "hypot(a, b)",
                                       "arctan2(a, b)",
                                       "a**b",
                                       "a**0.5",
                                       "2*pi*e + a*1.5e-3",
                                       "x3 - x1*.5 + maximum(minimum(x1, 1.), -1)",
                                       "sqrt(a*a + b*b)/(1 + exp(-c))"};

TEST_F(Math, ComputesExpressionsAsNumPyDoes) {
    std::ofstream script("numpy_values.py"), lines("expressions.txt");
    for (const char* const each : EXPRESSIONS) lines << each << "\n";
    script << NUMPY;
    script.close(), lines.close();
    if (std::system("/usr/bin/python3 numpy_values.py >numpy.txt 2>numpy.err") != 0)
        GTEST_SKIP() << "python3 with NumPy is not there: " << ReadText("numpy.err");
    std::ifstream file("numpy.txt");
    const auto next = [&] {
        std::string word;
        file >> word;
        return std::strtod(word.c_str(), nullptr);
    };
    const auto count = static_cast<std::size_t>(next());
    std::vector<double> inputs[3];
    for (std::vector<double>& input : inputs)
        while (input.size() < count) input.push_back(next());
    Wire(3);
    for (const char* const each : EXPRESSIONS) {
        SCOPED_TRACE(each);
        ASSERT_TRUE(bench.Set("expression=" + std::string(each)) && bench.Start()) << bench.Error();
        for (int i = 0; i < 3; ++i) ASSERT_TRUE(bench.Feed(i, inputs[i], {}, 100)) << bench.Error();
        ASSERT_EQ(bench.Samples(0).size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            const double expected = next(), found = bench.Samples(0)[i];
            const bool isSame = std::isnan(expected) ? std::isnan(found)
                                                     : expected == found || std::fabs(found - expected) <=
                                                                                1e-15 * std::fabs(expected);
            ASSERT_TRUE(isSame) << inputs[0][i] << " " << inputs[1][i] << " " << inputs[2][i] << ": " << found
                                << " and not " << expected;
        }
        EXPECT_TRUE(bench.Finish());
    }
}

TEST_F(Math, FollowsTheUnitsOfAnExpression) {
    const struct {
        const char *expression, *unitA, *unitB;
        double value;  // of 6 and 2
        const char* unit;
    } rows[] = {
        {"a + b", "V", "V * 1e-003", 6.002, "V"},
        {"a - 0.5[V]", "V * 1e-003", "", -494, "V * 1e-003"},
        {"a*b", "V", "A", 12, "W"},
        {"a/b", "m", "s", 3, "m s^-1"},
        {"sqrt(a*b)", "V", "V", std::sqrt(12.0), "V"},
        {"sqrt(square(a))", "V * 1e-003", "", 0.006, "V"},
        {"a**-2", "s", "", 1 / 36.0, "s^-2"},
        {"b**(1/2)", "", "m^4", std::sqrt(2.0), "m^2"},
        {"maximum(a, 0)", "V", "", 6, "V"},
        {"where(a > b, a, 0)", "V", "V", 6, "V"},
        {"a > b", "V * 1e-003", "V", 0, ""},
        {"sin(a/b)", "V * 1e-003", "V", std::sin(0.003), ""},
        {"hypot(a, b)", "V", "V", std::hypot(6.0, 2.0), "V"},
        {"arctan2(a, b)", "V", "V", std::atan2(6.0, 2.0), ""},
        {"10*log10(a/20e-6[V])", "V", "", 10 * std::log10(300000.0), ""},
    };
    Wire(2);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expression);
        ASSERT_TRUE(bench.Set("expression=\"" + std::string(row.expression) + "\"") && bench.Start())
            << bench.Error();
        ASSERT_TRUE(bench.Feed(0, {6.0}, In(row.unitA)) && bench.Feed(1, {2.0}, In(row.unitB)))
            << bench.Error();
        bench.Finish();
        TCString unit;
        EXPECT_STREQ(bench.Blocks(0)[0].GetUnit().ToString(unit), row.unit);
        EXPECT_THAT(bench.Samples(0), testing::ElementsAre(testing::DoubleEq(row.value)));
        EXPECT_STREQ(bench.Blocks(0)[0].GetSignalname(), row.expression);
    }
    ASSERT_TRUE(bench.Set("expression=a\nscale=2\nscale_unit=A\noffset=1") && bench.Start());
    ASSERT_TRUE(bench.Feed(0, {6.0}, In("V")) && bench.Feed(1, {2.0}));
    EXPECT_EQ(bench.Samples(0), std::vector<double>{13.0});
}

TEST_F(Math, SaysWhereAnExpressionIsWrong) {
    const std::string operand = "expected a number, an input (a, b, c, d or x1, x2 ...), a function or '('";
    const struct {
        std::string expression, message;
    } rows[] = {
        {"a +", "expression: 'a +' is not valid at position 4; " + operand},
        {"a * * b", "at position 5; " + operand},
        {"f", "at position 1; " + operand},
        {"x0", "at position 1; " + operand},
        {"(a", "at position 3; expected ')'"},
        {"a b", "at position 3; expected an operator or the end"},
        {"a < b < c", "at position 7; expected an operator or the end"},
        {"sqr(a)", "at position 1; expected a function; did you mean 'sqrt'"},
        {"hypot(a)", "at position 8; expected ',', for hypot takes 2 values"},
        {"sin(a, b)", "at position 6; expected ')', for sin takes 1 values"},
        {"1[furlong]", "at position 2; expected a unit in brackets"},
        {"1e", "at position 2; expected an operator"},
        {std::string(200, '('), "at position 101; expected no more than 100 brackets"},
        {std::string(5000, 'a'), "more than 4096 characters"},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(bench.Set("expression=\"" + row.expression + "\"")) << row.expression;
        EXPECT_THAT(bench.Error(), HasSubstr(row.message));
    }
    const struct {
        const char *expression, *message;
    } units[] = {
        {"b + a",
         "expression: 'b + a' is not valid at position 3; expected values of one dimension, not A and V"},
        {"a + 1", "at position 3; expected values of one dimension, not V and no unit"},
        {"2*sin(a)", "at position 3; expected a number without a unit, not V; divide by 1[V]"},
        {"sqrt(a)", "at position 1; expected a power that leaves whole powers of the base units"},
        {"a**b", "at position 2; expected a number without a unit, not A"},
        {"a**(b/b)", "at position 2; expected a constant power for values in V"},
        {"a**200", "at position 2; expected a power that leaves whole"},
        {"a*c", "at position 3; expected one of the wired inputs, which are 2"},
    };
    Wire(2);
    for (const auto& row : units) {
        ASSERT_TRUE(bench.Set("expression=" + std::string(row.expression)));
        EXPECT_FALSE(bench.Start() && bench.Feed(0, {1.0}, In("V")) && bench.Feed(1, {1.0}, In("A")))
            << row.expression;
        EXPECT_THAT(bench.Error(), HasSubstr(row.message));
        bench.Finish();
    }
}

}  // namespace
