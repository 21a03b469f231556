#pragma once

#include <vector>

#include "modules/common/SignalTrack.h"
#include "modules/trigger/PieceCutter.h"
#include "modules/trigger/TriggerSettings.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Cuts pieces out of every signal that is wired to it, one output for each input: a signal of its own, with
// its own time, for each hit of a condition, from `before` until `after` it. The result does not depend on
// how a signal is cut into blocks; see docs/modules.md for the conditions.
//
// A step sends the end of at most one piece at each output, since receivers take the end of one signal before
// the next one comes. A piece that the end of the signal cuts short is sent as far as it goes, and counted.
class Trigger final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Trigger";

    explicit Trigger(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Cuts out what happens around an event",
                             "Schneidet aus, was um ein Ereignis herum geschieht")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Channel {
        SignalTrack track;
        TCTypeInfo first;  // metadata of the signal's first block
        tc::PieceCutter cutter;
    };

    bool Begin(Channel& channel, CString& error) const;
    int Take(unsigned input);
    int Work(unsigned input);
    int Send(unsigned output);

    std::vector<Channel> channels;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
