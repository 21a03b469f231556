#include <gtest/gtest.h>

#include "sigweave/module/TCExtPar.h"
#include "tests/signal/Allocations.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "low",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "1 kHz",
     .unit = "Hz",
     .minimum = 10,
     .maximum = 1e6,
     .live = true},
    {.name = "high", .kind = TCModuleParameter::NUMBER, .defaultValue = "2000", .unit = "Hz", .live = true},
    {.name = "on", .kind = TCModuleParameter::SWITCH, .defaultValue = "yes", .live = true},
    {.name = "count", .kind = TCModuleParameter::INTEGER, .defaultValue = "3", .live = true},
    {.name = "title", .kind = TCModuleParameter::TEXT, .defaultValue = "a", .live = true},
    {.name = "heat", .kind = TCModuleParameter::NUMBER, .defaultValue = "0", .unit = "°C", .live = true},
    {.name = "order", .kind = TCModuleParameter::INTEGER, .defaultValue = "4"},
};
enum Index { LOW, HIGH, ON, COUNT, TITLE, HEAT, ORDER };

// A band whose lower end must be below its upper one.
class Band final : public TCBaseModuleEx {
 public:
    Band() : TCBaseModuleEx(0, PARAMETERS) {}
    const char* GetModuleId() const override { return "Band"; }
    const char* GetDescription() const override { return "Has live parameters"; }
    int Execute() override { return 0; }
    bool OnLiveChanged(TCString& error) override {
        ++changes;
        if (low >= ParamDbl("high")) error = "low: is not below high";
        return low < ParamDbl("high");
    }

    const double& low = LiveDbl("low");
    const int& on = LiveInt("on");
    int changes = 0;
};

TCSI_Unit Unit(const char* text) {
    TCSI_Unit unit;
    EXPECT_TRUE(unit.FromString(text)) << text;
    return unit;
}

TEST(TCBaseModuleEx, LiveValuesAreCheckedLikeSettingsAndEndWithTheRun) {
    Band module;
    TCString error;
    ASSERT_TRUE(module.SetSettings("low=1.5 kHz\norder=2", error)) << error;
    const TCString before = module.GetSettings();
    ASSERT_EQ(module.Init(), 0);
    EXPECT_EQ(module.low, 1500.0) << "it follows all settings";
    const struct {
        const char* name;
        const char* value;
        const char* error;
    } refused[] = {
        {"low", "3 V",
         "low: '3 V' is not valid; expected a number from 10 to 1000000 (in Hz); the unit V does not fit; "
         "expected Hz"},
        {"low", "3 kHz", "low: is not below high"},
        {"order", "3", "order: cannot change in a run; low, high, on, count, title, heat can"},
        {"lo", "3", "lo: there is no such parameter; did you mean 'low'?"},
    };
    for (const auto& row : refused) {
        EXPECT_FALSE(module.SetLive(row.name, row.value, error));
        EXPECT_STREQ(error, row.error);
        EXPECT_STREQ(module.GetSettings(), before);
    }
    for (const auto& [name, value] :
         {std::pair("low", "0.5 kHz"), {"on", "no"}, {"title", "b"}, {"count", "7"}})
        EXPECT_TRUE(module.SetLive(name, value, error)) << error;
    EXPECT_EQ(module.low + module.on + module.GetNumber(COUNT), 507.0);
    EXPECT_STREQ(module.GetParameter("low") + module.GetParameter("title"), "0.5 kHzb");
    module.Done();
    EXPECT_STREQ(module.GetSettings(), before);
    EXPECT_EQ(module.low + module.on, 1501.0);
}

TEST(TCExtPar, TakesValuesInTheirUnitAndRefusesOthers) {
    Band module;
    module.Init();
    const struct {
        Index parameter;
        double value;
        const char* unit;
        const char* text;  // of the parameter afterwards
        const char* refusal;
    } rows[] = {
        {LOW, 50.5, "", "50.5", ""},
        {LOW, 0.25, "s^-1 * 1e+003", "250", ""},
        {LOW, 40000, "s^-1 * 1e-003", "40", ""},
        {LOW, 9.5, "", "1 kHz", "low: '9.5' is not valid; expected a number from 10 to 1000000 (in Hz)"},
        {LOW, 50.0, "V * 1e-003", "1 kHz",
         "low: '50 mV' is not valid; expected a number from 10 to 1000000 (in Hz); the unit mV does not fit; "
         "expected Hz"},
        {LOW, std::numeric_limits<double>::quiet_NaN(), "", "1 kHz",
         "low: 'nan' is not valid; expected a number from 10 to 1000000 (in Hz)"},
        {LOW, 2000.0, "", "1 kHz", "low: is not below high"},
        {HEAT, 300.0, "K", "26.850000000000023", ""},
        {ON, 0.0, "", "no", ""},
        {ON, 0.5, "", "yes", "on: '0.5' is not valid; expected yes or no"},
        {COUNT, -8.0, "", "-8", ""},
        {COUNT, 2.5, "", "3",
         "count: '2.5' is not valid; expected an integer from -2147483648 to 2147483647"},
        {COUNT, 3e9, "", "3",
         "count: '3000000000' is not valid; expected an integer from -2147483648 to 2147483647"},
    };
    for (const auto& row : rows) {
        Band band;
        band.Init();
        TCExtPar driven(band, row.parameter, "lfo.Signal");
        const bool isUnitless = *row.unit == '\0';
        driven.Take(row.value, isUnitless ? TCSI_Unit() : Unit(row.unit));
        TCExtPar::Apply(std::span(&driven, 1));
        EXPECT_STREQ(band.GetParameter(driven.GetName()), row.text) << row.value;
        EXPECT_EQ(driven.GetFirstRefusal(), row.refusal);
        EXPECT_EQ(driven.GetRefused(), *row.refusal != '\0' ? 1 : 0);
        EXPECT_EQ(driven.GetTaken(), 1);
    }
    EXPECT_TRUE(module.GetInfoExtern(COUNT).isDrivable && module.GetInfoExtern(ON).isDrivable);
    EXPECT_FALSE(module.GetInfoExtern(TITLE).isDrivable || module.GetInfoExtern(ORDER).isDrivable);
}

TEST(TCExtPar, ValuesHoldTogetherAndCostNoMemory) {
    Band module;
    module.Init();
    TCExtPar driven[] = {{module, LOW, "a.Signal"}, {module, HIGH, "b.Signal"}};
    double before = module.low;
    const auto drive = [&](double low, double high) {
        driven[0].Take(low, {});
        driven[1].Take(high, {});
        EXPECT_EQ(module.GetNumber(LOW), before);
        TCExtPar::Apply(driven);
        before = module.low;
    };
    drive(5000.0, 6000.0);  // one after the other, the first would be refused
    EXPECT_EQ(module.GetNumber(LOW) + module.GetNumber(HIGH), 11000.0);
    drive(7000.0, 5500.0);  // not together, nor the first alone
    EXPECT_EQ(module.GetNumber(LOW) + module.GetNumber(HIGH), 10500.0);
    EXPECT_EQ(driven[0].GetRefused() + 10 * driven[1].GetRefused(), 1);
    driven[0].Take(5, {});
    const int allocated = allocations::Count();
    for (int i = 0; i < 100; ++i) drive(20.0 + i, 3000.0 + i);
    EXPECT_EQ(allocations::Count() - allocated, 0);
    const int changes = module.changes;
    TCExtPar::Apply(driven);
    EXPECT_EQ(module.changes, changes) << "nothing new came";
}

}  // namespace
