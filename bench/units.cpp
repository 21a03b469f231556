// How much faster are unit texts read than by udunits2?
#include <benchmark/benchmark.h>
#include <udunits2.h>

#include "sigweave/signal/TCSI_Unit.h"

namespace {

void BM_Units_Sigweave(benchmark::State& state, const char* text) {
    TCSI_Unit unit;
    if (!unit.FromString(text)) state.SkipWithError("not read");
    for (auto _ : state) benchmark::DoNotOptimize(unit.FromString(text));
}

void BM_Units_Udunits(benchmark::State& state, const char* text) {
    ut_set_error_message_handler(ut_ignore);
    static ut_system* const system = ut_read_xml(nullptr);
    ut_unit* first = ut_parse(system, text, UT_UTF8);
    if (first == nullptr) state.SkipWithError("not read");
    ut_free(first);
    for (auto _ : state) {
        ut_unit* unit = ut_parse(system, text, UT_UTF8);
        benchmark::DoNotOptimize(unit);
        ut_free(unit);
    }
}

#define UNIT_TEXT(name, text)                         \
    BENCHMARK_CAPTURE(BM_Units_Sigweave, name, text); \
    BENCHMARK_CAPTURE(BM_Units_Udunits, name, text)

UNIT_TEXT(volt, "V");
UNIT_TEXT(acceleration, "m s^-2");
UNIT_TEXT(base_units, "kg m^2 s^-3");

}  // namespace
