#pragma once

#include <vector>

#include "modules/common/SignalTrack.h"
#include "modules/filter/SectionCascade.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// The integral over time of every signal that is wired to it, one output for each input: of acceleration the
// velocity, or with `times` 2 the displacement. It begins with 0 at the signal's first sample and is by the
// trapezoidal rule; a Butterworth high pass of second order before each integration keeps an offset from
// running away. Name, timestamps, samplerate and states stay; the unit is multiplied by seconds, and the
// range becomes the widest there is. With a high pass the signal counts as 0 before its first sample.
//
// The result does not depend on how a signal is cut into blocks. After a value that is not finite the rest of
// its signal has no result, with a warning.
class Integrate final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Integrate";

    explicit Integrate(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Integrates signals, as acceleration to velocity",
                             "Integriert Signale, wie Beschleunigung zu Geschwindigkeit")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;

 private:
    // One integration, and what it has seen.
    struct Integrator {
        tc::SectionCascade highpass;
        double before = 0.0;  // the last sample
        double sum = 0.0;     // of trapezoids, times twice the rate
        double rest = 0.0;    // that the sum has rounded away
        bool begun = false;

        void Run(double* values, int count, double rate);
    };
    struct Channel {
        SignalTrack track;
        std::vector<Integrator> integrators;
        bool told = false;  // that there are values that are not finite
    };

    CString WhyBadCorner(double rate, const CString& signal) const;
    TCSI_Unit Integrated(TCSI_Unit unit) const;
    bool Begin(unsigned input, CString& error);
    int Pass(unsigned input);

    std::vector<Channel> channels;
    std::vector<double> buffer;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
