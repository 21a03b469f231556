#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/RunTime.h"

// Makes a test signal: every sample follows from its number alone, so that no error gathers however long the
// signal is; where the frequency changes in a run, they are numbered anew and the phase goes on. A sweep then
// goes from there to its end frequency. Noise is white and uniform between -amplitude and +amplitude, and the
// same for the same seed on every machine.
class Generator final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Generator";

    explicit Generator(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Makes a sine, square, sweep, noise or DC signal",
                             "Erzeugt Sinus, Rechteck, Sweep, Rauschen oder Gleichwert")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    int Done() override;
    double GetProgress() override;
    bool OnLiveChanged(TCString& error) override;

 private:
    enum Form { SINE, SQUARE, SWEEP, NOISE, DC };

    TCString SignalName() const;
    double Sample(std::int64_t index);
    long double Cycles(std::int64_t index) const;
    void SetRange();

    Form form = SINE;
    double amplitude = 1.0;
    double offset = 0.0;
    double frequency = 0.0;
    double endFrequency = 0.0;
    long double phase = 0.0L;  // in cycles, of the sample `origin`
    std::int64_t origin = 0;   // from which the frequency holds
    double rate = 1.0;
    double start = 0.0;  // 0: the time of the run
    tc::RunTime runTime;
    double begin = 0.0;  // of this run
    std::int64_t total = 0;
    std::int64_t position = 0;
    std::mt19937_64 random;
    std::vector<double> block;
    TCTypeInfo metadata;
};
