#pragma once

#include <cstdint>
#include <limits>

namespace tc {

enum class TriggerMode { RISING, FALLING, BOTH, ABOVE, BELOW, SLOPE, ENTER, LEAVE };

struct TriggerCondition {
    TriggerMode mode = TriggerMode::RISING;
    double level = 0.0;       // of a window its lower end
    double upper = 0.0;       // of a window
    double hysteresis = 0.0;  // at least 0
    double slope = 0.0;       // per sample; above 0 rising, below falling
};

// Looks for samples that fulfil a condition. An edge (all modes but ABOVE and BELOW) is found once the signal
// has been on the other side, by more than the hysteresis, before. What was seen stays from call to call: how
// samples are shared out among calls makes no difference. A value that is not a number fulfils nothing.
class Detector {
 public:
    Detector() = default;
    explicit Detector(const TriggerCondition& condition);

    // A signal begins.
    void Reset();
    // The index of the first hit that is at least `first`, or -1; hits before that are passed over. All
    // samples up to the hit have been seen then, or all.
    int Find(const double* values, int count, int first);
    void Skip(const double* values, int count) { Find(values, count, count); }

 private:
    struct Edge {
        TriggerMode mode;
        bool armed = false;
        double before = std::numeric_limits<double>::quiet_NaN();  // the last sample seen
    };

    int FindEdge(Edge& edge, const double* values, int count, int first) const;
    int FindState(const double* values, int count, int first) const;

    TriggerCondition condition;
    Edge edge{TriggerMode::RISING};
    Edge other{TriggerMode::FALLING};  // of BOTH
};

}  // namespace tc
