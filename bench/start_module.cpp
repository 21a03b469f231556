// A module for the libraries that fill a folder, each with an id of its own.
#include "sigweave/sigweave.h"

namespace {

class Pass final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = BENCH_MODULE_ID;

    explicit Pass(int instance) : TCBaseModuleEx(instance, {}) {
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Passes its signal on"; }
    const char* GetBaseName() const override { return ID; }
    int Execute() override { return portHelper->ForwardBlock(0, 0) < 0 ? -1 : 0; }
};

}  // namespace

TC_MODULE_LIBRARY(Pass);
