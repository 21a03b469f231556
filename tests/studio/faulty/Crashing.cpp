// Modules that abort: one whenever it is made, one when it is set so.
#include <cstdlib>

#include "sigweave/sigweave.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {"crash", TCModuleParameter::SWITCH, "no", "", "abort when the settings are checked"}};

class CrashesWhenSet final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "CrashesWhenSet";

    explicit CrashesWhenSet(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetObligatoryInput(0);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Aborts when it is set so"; }
    bool OnSettingsChanged(TCString&) override {
        if (ParamBool("crash")) std::abort();
        return true;
    }
    int Execute() override { return 0; }
};

class CrashesAlways final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "CrashesAlways";

    explicit CrashesAlways(int instance) : TCBaseModuleEx(instance, PARAMETERS) { std::abort(); }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Aborts"; }
    int Execute() override { return 0; }
};

}  // namespace

TC_MODULE_LIBRARY(CrashesWhenSet, CrashesAlways);
