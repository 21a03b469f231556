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
    // far and often the corners move. The same sections as before change nothing, to the last bit.
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
    // A section's step of two samples: what each of the two inputs and of the two states before adds to the
    // states after it (s1, s2) and to the two outputs.
    struct PairStep {
        double ofInputs[2][4];
        double ofStates[2][4];
    };
    // Samples are stepped over in pairs, counted from the beginning. A pair is under way from its first
    // sample until the next pair's comes, for only then its end has been seen.
    struct Stage {
        explicit Stage(const Section& section);

        Section section;
        PairStep step;
        double states[2] = {};  // before the pair that is under way
        double inputs[2] = {};  // of it, as far as they have come
        // Of the last sample before the pair: the input, and what the integrators held. They count where no
        // pair is under way.
        double x = 0.0;
        double held[2] = {};
    };
    struct Kernel;

    void Silence();
    void RunAll(const double* input, double* output, int count);
    // To the place after the last sample.
    void EndPair(Stage& stage) const;
    static void Redesign(Stage& stage, const Section& section);

    std::vector<Stage> stages;
    int underWay = 0;       // samples of the pair that have come: 0 to 2
    int untilSilenced = 0;  // samples
};

}  // namespace tc
