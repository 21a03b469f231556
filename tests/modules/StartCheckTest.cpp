// What is said of settings before a run, as docs/modules.md has it.
#include <gmock/gmock.h>

#include "tests/support/ModuleBench.h"

namespace {

using testing::HasSubstr;

TEST(Parameters, AreHeldWithinTheirLimits) {
    const struct {
        const char *library, *id, *settings, *expected;
    } rows[] = {{"align", "Align", "most_padding=-1",
                 "most_padding: '-1' is not valid; expected an integer from 0 to 2147483647"},
                {"bus-select", "BusSelect", "signals=257", "an integer from 0 to 256"},
                {"filter", "Filter", "corner=1\norder=13", "an integer from 1 to 12"},
                {"generator", "Generator", "frequency=-1", "a number of at least 0 (in Hz)"},
                {"generator", "Generator", "end_frequency=-1", "a number of at least 0 (in Hz)"},
                {"generator", "Generator", "rate=0", "a number of at least 1e-06 (in Hz)"},
                {"generator", "Generator", "duration=-1", "a number of at least 0 (in s)"},
                {"generator", "Generator", "seed=-1", "an integer from 0 to 2147483647"},
                {"generator", "Generator", "block=0", "an integer from 1 to 1048576"},
                {"plot", "Plot", "file=a.svg\nwidth=199", "an integer from 200 to 20000"},
                {"plot", "Plot", "file=a.svg\nheight=-1", "an integer from 0 to 20000"},
                {"plot", "Plot", "file=a.svg\ndecibels=9", "a number from 10 to 400"},
                {"reblock", "Reblock", "size=0", "an integer from 1 to 16777216"},
                {"sound-file", "SoundFile", "file=a\nblock=0", "an integer from 1 to 1048576"},
                {"spectrum", "Spectrum", "length=1", "an integer from 2 to 16777216"},
                {"spectrum", "Spectrum", "overlap=1", "a number from 0 to 0.99"},
                {"xml-player", "XmlPlayer", "file=a\ndocuments=-1", "an integer from 0 to 65536"}};
    for (const auto& row : rows) {
        ModuleBench bench(row.library, row.id);
        EXPECT_FALSE(bench.Set(row.settings)) << row.id;
        EXPECT_THAT(bench.Error(), HasSubstr(row.expected)) << row.id;
    }
}

TCSI_Unit Unit(const char* symbols) {
    TCSI_Unit unit;
    unit.FromString(symbols);
    return unit;
}

// A name, a samplerate and a unit are known, or nothing.
TCForetoldSignal Known(const char* name, double samplerate, const char* unit) {
    return {TCString(name), samplerate, Unit(unit)};
}

// Each row: what is known of the inputs, and what is refused and warned of then.
TEST(StartCheck, RefusesAndWarnsOfWhatTheInputsBring) {
    const std::string rates =
        "the input \"Signal 2\" have different samplerates, 8 and 9; allowed is one for all, as for the "
        "module Align";
    const struct {
        const char *library, *id, *settings;
        std::vector<TCForetoldSignal> inputs;
        std::string mistakes, warnings;
    } rows[] = {
        {"trigger",
         "Trigger",
         "before=1e6",
         {Known("a", 48000, "V")},
         "before: '1e6' is not valid at 48000 samples per second; expected at most a billion samples",
         ""},
        {"align", "Align", "", {Known("a", 8, ""), Known("b", 8, "")}, "", ""},
        {"math",
         "Math",
         "operation=product\nexpression=a - b",
         {Known("a", 8, "V"), Known("b", 8, "A")},
         "expression: 'a - b' is not valid at position 3; expected values of one dimension, not V and A",
         "operation: has no effect beside an expression"},
        {"align",
         "Align",
         "fill=1\nmost_padding=9",
         {{}, Known("b", 8, ""), Known("c", 9, "")},
         "Signal 3: the input \"Signal 3\" has the samplerate 9 and the input \"Signal 2\" 8; only signals "
         "of one samplerate can be aligned",
         "fill: has no effect with mode=drop, only with pad\n"
         "most_padding: has no effect with mode=drop, only with pad"},
        {"filter",
         "Filter",
         "type=bandpass\ncorner=3\nupper_corner=5",
         {Known("a", 8, ""), Known("", 12, ""), {}},
         "upper_corner: '5' is not valid for 'a' at 8 samples per second; expected more than 3 Hz and less "
         "than 4 Hz",
         ""},
        {"filter",
         "Filter",
         "corner=4\nupper_corner=5",
         {Known("", 8, "")},
         "corner: '4' is not valid for 'Signal' at 8 samples per second; expected more than 0 Hz and less "
         "than 4 Hz",
         "upper_corner: has no effect with type=lowpass, only with bandpass, bandstop"},
        {"filter",
         "Filter",
         "type=notch\ncorner=1\ndesign=bessel\norder=2\nripple=2\nzero_phase=yes\ninitial=settled",
         {Known("", 8, "")},
         "",
         "order: has no effect with type=notch, only with lowpass, highpass, bandpass, bandstop\n"
         "design: has no effect with type=notch, only with lowpass, highpass, bandpass, bandstop\n"
         "ripple: has no effect with design=bessel, only with chebyshev1\n"
         "initial: has no effect with zero_phase=yes, only with no"},
        {"math", "Math", "", {Known("a", 8, "V"), Known("b", 8, "V * 1e-003")}, "", ""},
        {"math",
         "Math",
         "",
         {Known("a", 8, "V"), Known("b", 9, "V"), Known("c", 10, "V")},
         "Signal 2: the input \"Signal 1\" and " + rates,
         ""},
        {"math",
         "Math",
         "",
         {Known("a", 8, "V"), {}, Known("c", 8, "A")},
         "Signal 3: the input \"Signal 1\" (V) and the input \"Signal 3\" (A) have different units; a sum "
         "needs the same, or one that differs by a factor",
         ""},
        {"math", "Math", "operation=product\nscale_unit=m^10",
         std::vector<TCForetoldSignal>(12, Known("a", 8, "m^10")),
         "scale_unit: no unit can hold the product of m^10 and the inputs'", ""},
        {"math",
         "Math",
         "operation=quotient",
         {Known("a", 8, "m")},
         "operation: 'quotient' is not valid for 1 inputs; expected two inputs, or sum or product",
         ""},
        {"level",
         "Level",
         "reference=1 V",
         {Known("a", 8, "A")},
         "reference: '1 V' is not valid; expected A, as the signal has",
         ""},
        {"octave",
         "Octave",
         "scale=rms\nreference=1 V",
         {Known("a", 8, "V")},
         "lowest: '20' is not valid for 'a' at 8 samples per second; expected a band that ends below 3.84 "
         "Hz, 0.48 "
         "of the samplerate",
         "reference: has no effect with scale=rms, only with level"},
        {"peaks",
         "Peaks",
         "height=1 V",
         {Known("a", 8, "A")},
         "height: '1 V' is not valid; expected A, as the signal has",
         ""},
        {"trigger",
         "Trigger",
         "mode=slope\nlevel=1 V\nslope=1 V/s",
         {Known("a", 8, "A")},
         "slope: '1 V/s' is not valid; expected A/s, as the signal has",
         "level: has no effect with mode=slope, only with rising, falling, both, above, below, enter, leave"},
        {"resample",
         "Resample",
         "rate=3000",
         {Known("a", 8, "A")},
         "rate: '3000' is not valid for 'a' at 8 samples per second; expected 0.001953125 to 2048 Hz, a "
         "4096th to 256 "
         "times as much",
         ""},
        {"spectrum",
         "Spectrum",
         "overlap=0.5\naverage=first",
         {{}},
         "",
         "overlap: has no effect with average=first, only with power"},
        {"generator",
         "Generator",
         "form=noise\nfrequency=1\nphase=1",
         {},
         "",
         "frequency: has no effect with form=noise, only with sine, square, sweep\n"
         "phase: has no effect with form=noise, only with sine, square, sweep"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.id) + " " + row.settings);
        ModuleBench bench(row.library, row.id);
        ASSERT_TRUE(bench.Set(row.settings)) << bench.Error();
        if (!row.inputs.empty())
            bench.WireInputs(std::vector<const char*>(row.inputs.size(), ModuleBench::TIME_DOMAIN));
        TCStartCheck check;
        check.inputs = row.inputs;
        bench.Module().CheckStart(check);
        EXPECT_EQ(std::string(check.mistakes), row.mistakes);
        EXPECT_EQ(std::string(check.warnings), row.warnings);
    }
}

// Of two inputs, the second of which has no name, to the last output.
TEST(StartCheck, ForetellsWhatComesOut) {
    const struct {
        const char *library, *id, *settings, *name;
        double samplerate;
        const char* unit;
    } rows[] = {{"align", "Align", "", "", 8, "A"},
                {"filter", "Filter", "corner=1", "", 8, "A"},
                {"reblock", "Reblock", "size=5", "", 8, "A"},
                {"integrate", "Integrate", "times=2", "", 8, "s^2 A"},
                {"level", "Level", "interval=0.5", "", 2, ""},
                {"peaks", "Peaks", "", "", 8, "A"},
                {"resample", "Resample", "rate=2 kHz", "", 2000, "A"},
                {"spectrum", "Spectrum", "length=100", "Signal 2", 12.5, "A"},  // bins for each hertz
                {"spectrum", "Spectrum", "length=100\nscale=density", "Signal 2", 12.5, "A^2 s"},
                {"transfer", "Transfer", "length=64", "Signal 2", 8, ""},
                {"trigger", "Trigger", "", "", 8, "A"},
                {"weighting", "Weighting", "", "", 8, "A"},
                {"math", "Math", "operation=product", nullptr, 4, "W"},
                {"math", "Math", "operation=quotient\nscale_unit=m", nullptr, 4, "Ohm m"}};
    const TCForetoldSignal inputs[] = {Known("a", 4, "V"), Known("", 8, "A")};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.id);
        ModuleBench bench(row.library, row.id);
        ASSERT_TRUE(bench.Set(row.settings)) << bench.Error();
        bench.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
        const TCForetoldSignal signal =
            bench.Module().ForetellOutput(bench.Module().GetNoOutput() - 1, inputs);
        EXPECT_STREQ(signal.name ? static_cast<const char*>(*signal.name) : nullptr, row.name);
        EXPECT_EQ(signal.samplerate.value_or(0.0), row.samplerate);
        EXPECT_EQ(signal.unit.value_or(TCSI_Unit()), Unit(row.unit));
    }
}

}  // namespace
