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
};

// Sections after one another, and their states, which stay from one call to the next: how samples are shared
// out among calls makes no difference, to the last bit.
class SectionCascade {
 public:
    SectionCascade() = default;
    explicit SectionCascade(const std::vector<Section>& sections);

    // Back to zero states.
    void Reset();
    // `output` may be `input`.
    void Run(const double* input, double* output, int count);
    // False once a value that was not finite, or an overflow, has spoilt the states.
    bool IsFinite() const;

 private:
    struct Stage {
        Section section;
        double s1 = 0.0;
        double s2 = 0.0;
    };

    void Silence();
    void RunAll(const double* input, double* output, int count);
    template <int COUNT>
    static void RunStages(Stage* stages, const double* input, double* output, int count);

    std::vector<Stage> stages;
    int untilSilenced = 0;  // samples
};

}  // namespace tc
