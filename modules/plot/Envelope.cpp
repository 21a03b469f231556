#include "modules/plot/Envelope.h"

#include <algorithm>
#include <cmath>

void Envelope::Stretch::Add(const Stretch& other) {
    minimum = std::min(minimum, other.minimum);
    maximum = std::max(maximum, other.maximum);
}

void Envelope::Add(const double* values, std::size_t count) {
    samples += static_cast<std::int64_t>(count);
    for (const double* end = values + count; values != end;) {
        if (stretches.empty() || inLast == perStretch) {
            if (stretches.size() == most) MergePairs();
            stretches.emplace_back();
            inLast = 0;
        }
        const auto part = std::min<std::int64_t>(end - values, perStretch - inLast);
        Stretch& last = stretches.back();
        for (const double* stop = values + part; values != stop; ++values) {
            if (std::isfinite(*values)) {
                last.Add({*values, *values});
            } else {
                ++notFinite;
            }
        }
        inLast += part;
    }
}

void Envelope::Clear() {
    *this = Envelope(most);
}

Envelope::Stretch Envelope::Extremes() const {
    Stretch all;
    for (const Stretch& stretch : stretches) all.Add(stretch);
    return all;
}

void Envelope::MergePairs() {
    for (std::size_t i = 0; i < stretches.size() / 2; ++i) {
        stretches[i] = stretches[2 * i];
        stretches[i].Add(stretches[2 * i + 1]);
    }
    stretches.resize(stretches.size() / 2);
    perStretch *= 2;
}
