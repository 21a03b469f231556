#include "modules/statistics/Statistics.h"

#include <algorithm>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

Statistics::Statistics(int instance) : TCBaseModuleEx(instance, {}) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

int Statistics::Init() {
    ClearResults();
    signals.assign(static_cast<std::size_t>(GetNoInput()), Figures{});
    return TCBaseModuleEx::Init();
}

int Statistics::Execute() {
    for (unsigned input = 0; input < signals.size(); ++input) {
        const int taken = portHelper->TakeBlock(input);
        if (taken < 0) return taken;
        if (taken == 0) continue;
        Figures& figures = signals[input];
        const TCTypeInfo* metadata = portHelper->LastTypeInfo(input);
        if (!figures.begun && metadata != nullptr) figures.metadata = *metadata;
        figures.begun = true;
        int count = 0;
        const double* values = portHelper->AccessDblData(input, count);
        figures.Add(values, count);
    }
    return 0;
}

int Statistics::Done() {
    ClearResults();
    for (unsigned input = 0; input < signals.size(); ++input) {
        if (signals[input].begun) Report(input, signals[input]);
    }
    return TCBaseModuleEx::Done();
}

void Statistics::Report(unsigned input, const Figures& figures) {
    const std::string name = tc::SignalName(*portHelper, input, figures.metadata);
    const TCSI_Unit& unit = figures.metadata.GetUnit();
    const auto count = static_cast<double>(figures.samples);
    AddResult(name.c_str(), "samples", count, TCSI_Unit());
    if (figures.samples > 0) {
        AddResult(name.c_str(), "min", figures.minimum, unit);
        AddResult(name.c_str(), "max", figures.maximum, unit);
        AddResult(name.c_str(), "mean", figures.sum.Total().Value() / count, unit);
        AddResult(name.c_str(), "rms", std::sqrt(figures.squares.Total().Value() / count), unit);
        AddResult(name.c_str(), "stddev", figures.StandardDeviation(), unit);
    }
    if (figures.nans > 0) AddResult(name.c_str(), "nan", static_cast<double>(figures.nans), TCSI_Unit());
    if (figures.infinite > 0) {
        AddResult(name.c_str(), "infinite", static_cast<double>(figures.infinite), TCSI_Unit());
    }
    if (figures.nans + figures.infinite == 0) return;
    Warn(tc::Bilingual("%1: values left out: not a number %2, infinite %3",
                       "%1: ausgelassene Werte: keine Zahl %2, unendlich %3"),
         {name, std::to_string(figures.nans), std::to_string(figures.infinite)});
}

void Statistics::Figures::Add(const double* values, int count) {
    for (int i = 0; i < count; ++i) {
        const double value = values[i];
        if (!std::isfinite(value)) {
            ++(std::isnan(value) ? nans : infinite);
            continue;
        }
        ++samples;
        minimum = std::min(minimum, value);
        maximum = std::max(maximum, value);
        sum.Add(value);
        squares.AddSquare(value);
    }
}

// n * sum of squares - square of the sum, the difference taken in double precision twice over: with a large
// offset nearly all digits cancel. Computed with values scaled to about 1, whose products cannot overflow.
double Statistics::Figures::StandardDeviation() const {
    const tc::Wide squareTotal = squares.Total();
    if (std::isinf(squareTotal.high)) return squareTotal.high;
    const double largest = std::max(std::fabs(minimum), std::fabs(maximum));
    const int exponent = largest > 0.0 ? std::ilogb(largest) : 0;
    const auto count = static_cast<double>(samples);
    const tc::Wide scaled = sum.Total().Scaled(-exponent);
    const tc::Wide spread = tc::Difference(tc::Product(squareTotal.Scaled(-2 * exponent), {count, 0.0}),
                                           tc::Product(scaled, scaled));
    return std::ldexp(std::sqrt(std::max(0.0, spread.Value())) / count, exponent);
}

TC_MODULE_LIBRARY(Statistics);
