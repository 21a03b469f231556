#pragma once

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Gathers any number of signals in one bus. Each step takes one block of every input; the bus block has a
// channel for each, in the order of the inputs, with the block's values and metadata unchanged. A channel is
// named after its signal, or after its input when the signal has no name, or one with a line break ("\r\n"),
// which no channel can have. A block without values has no channel: one that only ends a signal is left out.
//
// The blocks of the inputs need not be of one length or rate, but there must be equally many: when one signal
// ends early, the others wait (the module Align makes signals begin and end together).
class BusJoin final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "BusJoin";

    explicit BusJoin(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Gathers several signals in one bus",
                             "Fasst mehrere Signale zu einem Bus zusammen")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    int Execute() override;

 private:
    // 1 when the bus got a channel.
    int Join(unsigned input);
};
