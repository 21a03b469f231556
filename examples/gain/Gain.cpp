// The smallest useful module: one parameter, one input, one output.
#include "sigweave/sigweave.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {"factor", TCModuleParameter::NUMBER, "2", "", "multiplies every sample"}};

class Gain final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Gain";

    explicit Gain(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetObligatoryInput(0);
        portHelper->UseTypeInfoFromInput(0, 0);  // name, time, rate, unit and state go with the samples
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Multiplies a signal"; }
    int Execute() override {
        const int code = portHelper->ReadDblArray(0, samples);
        if (code <= 0) return code;
        const double factor = ParamDbl(factorIndex);
        const TCTypeInfo* ti = portHelper->LastTypeInfo(0);
        portHelper->SetTI_Range(0, ti->GetRangeMin() * factor, ti->GetRangeMax() * factor);
        for (double& sample : samples) sample *= factor;
        return portHelper->WriteDblArray(0, samples);
    }

 private:
    const int factorIndex = ParamIndex("factor");  // found once: Execute looks for no names
    TCArray<double, double> samples;
};

}  // namespace

TC_MODULE_LIBRARY(Gain);
