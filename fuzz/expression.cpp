// An expression of Math: it is refused with a position, or it can be computed whatever the units are.
#include "modules/math/Expression.h"

#include <array>
#include <cmath>

#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Expression expression;
    std::string error;
    if (!expression.Parse(text, error)) {
        fuzz::Require(error.starts_with("expression: "),
                      "an expression is refused as the parameter that it is");
        fuzz::Require(expression.IsEmpty(), "and nothing of it is left");
        return 0;
    }
    if (!expression.CheckInputs(4, error)) return 0;
    TCSI_Unit volt;
    volt.FromString("V * 1e-003");
    const std::array<double, 600> values{};
    std::array<double, 600> result{};
    const double* const inputs[] = {values.data(), values.data(), values.data(), values.data()};
    for (const bool hasUnit : {false, true}) {
        const std::vector<std::optional<TCSI_Unit>> units(4, hasUnit ? volt : TCSI_Unit());
        TCSI_Unit unit;
        if (!expression.Prepare(units, unit, error)) {
            fuzz::Require(error.starts_with("expression: "), "units are refused at their place");
            continue;
        }
        expression.Compute(inputs, result.data(), result.size());
        for (const double value : result)
            fuzz::Require(value == result[0] || std::isnan(value), "equal samples give equal results");
    }
    return 0;
}
