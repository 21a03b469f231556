#pragma once

#include <memory>
#include <string>
#include <vector>

#include "modules/instrument/Inquirer.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Asks an instrument that speaks SCPI, over the network or a serial line, for values at an interval. Values
// are stamped when they arrive: numbers are signals of one sample a block, a block of samples is a signal.
class Instrument final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Instrument";

    explicit Instrument(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Logs the values of an instrument that speaks SCPI",
                             "Protokolliert die Werte eines Messgeräts, das SCPI spricht")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    void* GetWaitHandle(const char*& what) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    bool AnswersBlocks() const;
    std::string Name() const;
    std::unique_ptr<tc::ByteInput> Connect(std::string& error) const;
    int Send(const Inquirer::Reading& reading);
    int EndSignals();
    double Samplerate() const;

    std::vector<TCTypeInfo> metadata;  // of each output
    std::unique_ptr<Inquirer> inquirer;
    Inquirer::Reading reading;
    bool isOpen = false;  // the signals have begun and not ended
    bool hasSome = false;
    bool isHeld = false;  // the reading after a gap, until the signals have ended
    bool isOver = false;
    double arrived = 0.0;  // the last one
    std::string name;
};
