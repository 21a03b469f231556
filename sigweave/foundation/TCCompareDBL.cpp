#include "sigweave/foundation/TCCompareDBL.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

bool AnyNaN(double a, double b) {
    return std::isnan(a) || std::isnan(b);
}

bool IsNear(double a, double b) {
    if (std::isinf(a) || std::isinf(b)) return a == b;
    if ((a > 0 && b < 0) || (a < 0 && b > 0)) return false;
    const double difference = std::abs(a - b);
    return std::isfinite(difference) &&
           difference <= std::max(std::abs(a), std::abs(b)) * std::numeric_limits<double>::epsilon();
}

}  // namespace

bool TCCompareDBL::IsEqual(double a, double b, bool exact) {
    if (AnyNaN(a, b)) return false;
    return exact ? std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) : IsNear(a, b);
}

bool TCCompareDBL::IsGreater(double a, double b, bool exact) {
    return !AnyNaN(a, b) && !IsEqual(a, b, exact) && a > b;
}

bool TCCompareDBL::IsGreaterOrEqual(double a, double b, bool exact) {
    return IsEqual(a, b, exact) || IsGreater(a, b, exact);
}

bool TCCompareDBL::IsLess(double a, double b, bool exact) {
    return IsGreater(b, a, exact);
}

bool TCCompareDBL::IsLessOrEqual(double a, double b, bool exact) {
    return IsGreaterOrEqual(b, a, exact);
}

int TCCompareDBL::Compare(double a, double b, bool exact) {
    if (std::isnan(a)) return std::isnan(b) ? 0 : -1;
    if (std::isnan(b)) return 1;
    if (IsEqual(a, b, exact)) return 0;
    return a > b ? 1 : -1;
}

void TCCompareDBL::MakeUnequal(double& a, double& b) {
    constexpr double STEP = std::numeric_limits<float>::epsilon();
    if (!std::isfinite(a) || !std::isfinite(b) || !IsNear(a, b)) return;
    a += STEP;
    b -= STEP;
}
