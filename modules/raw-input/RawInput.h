#pragma once

#include "modules/live/LiveSource.h"
#include "modules/live/StreamDevice.h"
#include "sigweave/services/Bilingual.h"

// Takes samples as plain bytes from standard input, a file, a pipe or a socket while they come: one output
// for each channel, and all of them as one bus. Blocks are stamped by their position. Where sequence numbers
// say that samples are missing, the signals end and begin again.
class RawInput final : public live::LiveSource {
 public:
    static constexpr const char* ID = "RawInput";

    explicit RawInput(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual(
                   "Takes samples from a pipe, a growing file, standard input or a network port",
                   "Nimmt Abtastwerte von einer Pipe, einer wachsenden Datei, der Standardeingabe oder "
                   "einem Netzwerk-Port")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    int Init() override;

 private:
    live::StreamPlace Place() const;
    live::Packing Packing() const;

    double start = 0.0;
};
