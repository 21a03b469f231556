#include "sigweave/sigweave.h"

extern "C" {
TC_API int smallModulesAlive = 0;
}

namespace {

// Counts in its own destructor, which the base's would not reach.
class Filter final : public TCBaseModule {
 public:
    static constexpr const char* ID = "Filter";
    explicit Filter(int instance) : TCBaseModule(instance) { ++smallModulesAlive; }
    ~Filter() { --smallModulesAlive; }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Does nothing."; }
    int Execute() override { return 0; }
    const char* GetBaseName() const override { return "Filter"; }
};

class Fft final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "FFT2";
    explicit Fft(int instance) : TCBaseModuleEx(instance, {}) {}
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Does nothing either."; }
    int Execute() override { return 0; }
    const char* GetBaseName() const override { return "FFT2"; }
};

}  // namespace

TC_MODULE_LIBRARY(Filter, Fft);
