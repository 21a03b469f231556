#pragma once

#include <vector>

#include "modules/capture/AlsaDevice.h"
#include "modules/capture/Calibration.h"
#include "modules/live/LiveSource.h"
#include "sigweave/services/Bilingual.h"

// Takes samples from a sound device: one output for each channel, and all of them as one bus.
class Capture final : public live::LiveSource {
 public:
    static constexpr const char* ID = "Capture";

    explicit Capture(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Takes samples from a microphone or another sound device",
                             "Nimmt Abtastwerte von einem Mikrofon oder einem anderen Audiogerät")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    int Init() override;
    int Done() override;

 private:
    live::CapturePlan Plan() const;

    std::vector<Calibration> calibrations;
    double start = 0.0;
};
