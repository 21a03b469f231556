// A module in fifteen lines.
#include <cmath>

#include "sigweave/sigweave.h"

struct Rectify final : TCBaseModuleEx {
    static constexpr const char* ID = "Rectify";
    TCArray<double, double> samples;
    explicit Rectify(int instance) : TCBaseModuleEx(instance, {}) {
        for (auto side : {INPUT, OUTPUT}) portHelper->SetPort(side, 0, "Signal", "DOUBLE[]", "", true);
        portHelper->UseTypeInfoFromInput(0, 0);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "The absolute values of a signal"; }
    int Execute() override {
        if (const int code = portHelper->ReadDblArray(0, samples); code <= 0) return code;
        for (double& sample : samples) sample = std::abs(sample);
        return portHelper->WriteDblArray(0, samples);
    }
};

TC_MODULE_LIBRARY(Rectify);
