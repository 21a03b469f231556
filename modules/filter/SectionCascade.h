#pragma once

#include <vector>

namespace tc {

// A second-order section in the form of two integrators under the trapezoidal rule (the bilinear transform
// of the analogue section). Unlike the direct form, whose coefficients lose (rate / corner)^2 of their digits
// at low corners, this one keeps them all: its coefficients are small numbers of full precision that are
// added to the states. For each sample x:
//
//   s1' = s1 + drive * (x - s2) - damping * s1
//   s2' = s2 + drive * s1 + pull * (x - s2)
//   y = direct * x + band * (s1 + s1') + low * (s2 + s2')
struct Section {
    double drive = 0.0;
    double damping = 0.0;
    double pull = 0.0;
    double direct = 0.0;
    double band = 0.0;
    double low = 0.0;

    bool operator==(const Section&) const = default;
};

// Sections after one another, and their states, which stay from one call to the next: how samples are shared
// out among calls makes no difference, to the last bit.
class SectionCascade {
 public:
    SectionCascade() = default;
    explicit SectionCascade(const std::vector<Section>& sections);

    // Other sections, as many as there are. The integrators keep what they hold, as the capacitors of an
    // analogue filter do, so that the output goes on from where it was. By the trapezoidal rule no section
    // can raise the sum of the squares of what its two integrators hold: the output stays bounded however
    // far and often the corners move. Sections that are as before change nothing, to the last bit.
    void Redesign(const std::vector<Section>& sections);
    // Back to zero states.
    void Reset();
    // The states that remain where the input has been that value forever.
    void Settle(double value);
    // `output` may be `input`.
    void Run(const double* input, double* output, int count);
    // False once a value that was not finite, or an overflow, has spoilt the states.
    bool IsFinite() const;

 private:
    struct Stage {
        Section section;
        double s1 = 0.0;
        double s2 = 0.0;
        // Of the last sample: the input, and what the integrators held.
        double x = 0.0;
        double held1 = 0.0;
        double held2 = 0.0;
    };

    void Silence();
    void RunAll(const double* input, double* output, int count);
    static void Redesign(Stage& stage, const Section& section);
    template <int COUNT>
    static void RunStages(Stage* stages, const double* input, double* output, int count);

    std::vector<Stage> stages;
    int untilSilenced = 0;  // samples
};

}  // namespace tc
