#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "modules/math/SignalQueue.h"
#include "modules/transfer/CrossSpectrum.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// What is between the first signal and each of the others: magnitude, phase and coherence over frequency,
// three outputs for each of the others, and the delay as a result. See docs/modules.md.
//
// Signals are joined sample by sample however their blocks are cut. They must have the same samplerate (to
// 1e-9) and begin at the same time (to half a sample): else the run fails, and the message names the module
// Align. All end with the one that ends first; what the others have left is counted, with a warning.
class Transfer final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Transfer";

    explicit Transfer(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Finds transfer functions, coherence and delay",
                             "Bestimmt Übertragungsfunktionen, Kohärenz und Laufzeit")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    int Done() override;

 private:
    struct Input {
        SignalQueue signals;
        bool over = false;  // the others have ended, this signal goes on
        std::int64_t leftOut = 0;

        bool HasEnded() const { return signals.Front().ended && signals.Front().waiting == 0; }
    };

    std::string WhyWrongCount() const;
    int Take(unsigned port);
    int Join();
    bool Begin(CString& error) const;
    int End();
    int Write(std::size_t signal);
    int Send(unsigned output, std::size_t signal, const TCSI_Unit& unit, double minimum, double maximum);
    void LeaveOut(std::size_t index);
    void AddResults(std::size_t signal);
    const TCTypeInfo& Metadata(std::size_t index) const { return inputs[index].signals.Front().metadata; }

    std::vector<Input> inputs;
    std::unique_ptr<CrossSpectrum> spectrum;
    bool open = false;  // signals have been joined and not ended
    std::vector<double> values;
};
