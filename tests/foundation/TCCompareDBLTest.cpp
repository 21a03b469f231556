#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "sigweave/foundation/TCCompareDBL.h"

namespace {

constexpr double NAN_VALUE = std::numeric_limits<double>::quiet_NaN();
constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double EPSILON = 2.220446049250313e-16;
constexpr double LARGEST = std::numeric_limits<double>::max();

// `order` as Compare answers it, tolerantly and exactly.
const struct {
    double a;
    double b;
    int tolerant;
    int exact;
} ROWS[] = {
    {0.1 + 0.2, 0.3, 0, 1},       {0.0, 1e-300, -1, -1},
    {0.0, -0.0, 0, -1},  // neither is greater
    {-0.0, 0.0, 0, -1},           {1, 1 + EPSILON, 0, -1},
    {1, 1 + 2 * EPSILON, -1, -1}, {1e300, 1e300 * (1 + EPSILON), 0, -1},
    {-5e-324, 5e-324, -1, -1},    {INF, INF, 0, 0},
    {-INF, INF, -1, -1},          {LARGEST, -LARGEST, 1, 1},
    {INF, LARGEST, 1, 1},
};

TEST(TCCompareDBL, OrdersPairs) {
    for (const auto& [a, b, tolerant, exactly] : ROWS) {
        for (const bool exact : {false, true}) {
            const int order = exact ? exactly : tolerant;
            EXPECT_EQ(TCCompareDBL::Compare(a, b, exact), order) << a << " " << b << " " << exact;
            EXPECT_EQ(TCCompareDBL::IsEqual(a, b, exact), order == 0);
            EXPECT_EQ(TCCompareDBL::IsGreater(a, b, exact), order > 0);
            EXPECT_EQ(TCCompareDBL::IsLessOrEqual(b, a, exact), order >= 0);
        }
    }
}

TEST(TCCompareDBL, SortsNotANumberFirst) {
    EXPECT_EQ(TCCompareDBL::Compare(NAN_VALUE, NAN_VALUE, true), 0);
    EXPECT_EQ(TCCompareDBL::Compare(NAN_VALUE, -INF, false), -1);
    EXPECT_EQ(TCCompareDBL::Compare(-INF, NAN_VALUE, false), 1);
    for (const bool exact : {false, true}) {
        EXPECT_FALSE(TCCompareDBL::IsEqual(NAN_VALUE, NAN_VALUE, exact));
        EXPECT_FALSE(TCCompareDBL::IsLessOrEqual(NAN_VALUE, 1, exact));
        EXPECT_FALSE(TCCompareDBL::IsGreaterOrEqual(1, NAN_VALUE, exact));
        EXPECT_FALSE(TCCompareDBL::IsLess(NAN_VALUE, 1, exact));
    }
}

TEST(TCCompareDBL, MovesEqualValuesApart) {
    const struct {
        double a, b, newA, newB;
    } rows[] = {{0, 0, 1.1920928955078125e-7, -1.1920928955078125e-7},
                {1e20, 1e20, 1e20, 1e20},
                {1, 2, 1, 2},
                {INF, INF, INF, INF}};
    for (auto [a, b, newA, newB] : rows) {
        TCCompareDBL::MakeUnequal(a, b);
        EXPECT_EQ(a, newA);
        EXPECT_EQ(b, newB);
    }
}

}  // namespace
