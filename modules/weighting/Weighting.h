#pragma once

#include <vector>

#include "modules/common/SignalTrack.h"
#include "modules/filter/SectionCascade.h"
#include "modules/weighting/FrequencyWeighting.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// The frequency weightings A, C and Z of IEC 61672-1 for every signal that is wired to it, one output for
// each input. Values are weighted as they are stored; name, timestamps, samplerate, unit and states go with
// them, and the range becomes the widest there is.
//
// Each signal begins with zero states, which go on over the borders of its blocks: the result does not depend
// on how a signal is cut. A samplerate or unit that changes within a signal fails the run. After a value that
// is not finite, the rest of its signal has no result, with a warning.
class Weighting final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Weighting";

    explicit Weighting(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Weights sound by frequency, as the ear does (A, C, Z)",
                             "Bewertet Schall nach der Frequenz, wie das Ohr (A, C, Z)")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;

 private:
    struct Channel {
        SignalTrack track;
        tc::SectionCascade cascade;
        double rate = 0.0;  // that the cascade is made for; 0: none yet
        bool told = false;  // that it has values that are not finite
    };

    int Pass(unsigned input);

    tc::WeightingCurve curve = tc::WeightingCurve::A;
    std::vector<Channel> channels;
    std::vector<double> buffer;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
