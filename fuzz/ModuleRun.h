#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Fuzz.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/module/TCPortHelper.h"
#include "sigweave/signal/TCIOStream.h"

namespace fuzz {

// A module that is a source, its outputs wired to inputs that count and drop what arrives.
template <typename Module>
class ModuleRun {
 public:
    ModuleRun() : module(std::make_unique<Module>(1)) {}
    ~ModuleRun() { module->DeleteStreams(); }

    // False, for a reason, when the module refuses its settings.
    bool Set(const std::string& settings) {
        TCString error;
        const bool isSet = module->SetSettings(settings.c_str(), error);
        Require(isSet || !error.IsEmpty(), "settings are refused for a reason");
        return isSet;
    }

    // The first outputs, and the last one, which may be a bus.
    void WireOutputs(int most) {
        const int count = module->GetNoOutput();
        for (int i = 0; i < count; ++i)
            if (i < most || i == count - 1) Wire(i);
    }

    // Works until the module has nothing to do or that many samples have come out; then ends the run. False
    // when it failed.
    bool Play(std::int64_t mostSamples) {
        module->GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
        int code = module->Init();
        while (code >= 0 && samples < mostSamples && module->Fetch() == 0) {
            code = module->Execute();
            for (const std::unique_ptr<TCIOStream>& input : inputs) Drop(*input);
        }
        const bool hasReason =
            *module->GetLastErrorText() != '\0' || !module->GetPortHelper()->GetErrorText().IsEmpty();
        Require(code >= 0 || hasReason, "a run fails for a reason");
        Require(module->Done() >= 0, "a run can be ended");
        module->GetMessageA(TCPortHelper::MESSAGE_RUNNING, 0);
        return code >= 0;
    }

    // Of the first output.
    std::int64_t Samples() const { return samples; }
    std::int64_t Blocks() const { return blocks; }

 private:
    void Wire(int output) {
        inputs.push_back(std::make_unique<TCIOStream>());
        module->AddLine(OUTPUT, output);
        module->AddOutputStream(output, inputs.back()->SetInputStream(3));
    }

    void Drop(TCIOStream& input) {
        while (input.GetBlockCnt(nullptr) > 0) {
            if (&input == inputs.front().get()) {
                samples += input.GetBlockLen(0, 0);
                ++blocks;
            }
            input.RemoveContents(false);
        }
    }

    std::unique_ptr<Module> module;
    std::vector<std::unique_ptr<TCIOStream>> inputs;
    std::int64_t samples = 0;
    std::int64_t blocks = 0;
};

}  // namespace fuzz
