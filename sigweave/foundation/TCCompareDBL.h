#pragma once

#include "sigweave/platform/Export.h"

// Compares doubles, tolerantly or exactly. Tolerant: equal when they differ by no more than the machine
// epsilon of the larger magnitude. The tolerance is purely relative, so 0 equals only 0. Exact: equal when
// all bits are, so that 0.0 and -0.0 differ. Not-a-number equals nothing. Any thread.
class TC_API TCCompareDBL {
 public:
    TCCompareDBL() = delete;

    static bool IsEqual(double a, double b, bool exact);
    // Greater or less, and not equal in the sense above.
    static bool IsGreater(double a, double b, bool exact);
    static bool IsGreaterOrEqual(double a, double b, bool exact);
    static bool IsLess(double a, double b, bool exact);
    static bool IsLessOrEqual(double a, double b, bool exact);
    // -1, 0 or 1, for sorting: not-a-number comes before every number, and ties with itself.
    static int Compare(double a, double b, bool exact);
    // Moves two finite values that are equal (tolerantly) apart, `a` up and `b` down, by the epsilon of
    // single precision. The step is absolute, deliberately, for callers that rely on it: far from 0 it is
    // too small to part them.
    static void MakeUnequal(double& a, double& b);
};
