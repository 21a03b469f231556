// A module with every fault of Fault.h, each of which shows in the one library that is built for it.
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "tests/host/faulty/Fault.h"

namespace {

bool Is(Fault fault) {
    return builtFault == fault;
}

const TCModuleParameter PARAMETERS[] = {{.name = "factor",
                                         .kind = TCModuleParameter::NUMBER,
                                         .defaultValue = Is(Fault::DefaultOutsideLimits) ? "200" : "2",
                                         .minimum = -100.0,
                                         .maximum = 100.0,
                                         .enabledWhen = {Is(Fault::UnknownCondition) ? "mode" : "", "on"},
                                         .suggestions = Is(Fault::SuggestionOutsideLimits) ? "1|101" : ""}};

volatile bool forever = true;

class Faulty final : public TCBaseModuleEx {
 public:
    explicit Faulty(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        portHelper->SetPort(INPUT, 0, "Signal", Is(Fault::MalformedType) ? "FLOAT[" : "DOUBLE[]",
                            "TIME_DOMAIN", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetObligatoryInput(0);
        if (!Is(Fault::ForgetsItsInput)) portHelper->UseTypeInfoFromInput(0, 0);
    }
    const char* GetModuleId() const override { return "Faulty"; }
    const char* GetDescription() const override { return "Multiplies a signal, with a fault"; }
    const char* GetBaseName() const override { return "Faulty"; }

    bool OnSettingsChanged(TCString& error) override {
        return !Is(Fault::ChangedParameter) || ParamDbl("factor") < 50.0 ||
               SetParameter("factor", "50", error);
    }
    int Init() override {
        if (Is(Fault::NoSecondInit) && isOpen) return Fail(-1, "the device is in use");
        isOpen = true;
        blocks = Is(Fault::UnequalRuns) ? blocks : 0;
        return TCBaseModuleEx::Init();
    }
    void Interrupt() override {
        if (Is(Fault::CrashOnRareOrder) && blocks > 2) std::raise(SIGSEGV);
        TCBaseModuleEx::Interrupt();
    }
    int Execute() override {
        const int code = portHelper->TakeBlock(0);
        if (code <= 0) return code;
        int count = 0;
        const double* const values = portHelper->AccessDblData(0, count);
        samples.assign(values, values + count);
        Misbehave();
        ++blocks;
        if (Is(Fault::SwallowsEveryBlock)) return 0;
        for (double& sample : samples)
            sample = sample * ParamDbl("factor") + (Is(Fault::UnequalRuns) ? blocks : 0);
        return portHelper->WriteDblData(0, samples.size(), samples.data());
    }

 private:
    void Misbehave() {
        const int count = static_cast<int>(samples.size());
        if (Is(Fault::ThrowsInExecute)) throw std::runtime_error("nobody catches this");
        if (Is(Fault::ExitsInExecute)) std::exit(0);
        if (Is(Fault::ClosesEverything)) closefrom(0);
        if (Is(Fault::PrintsToStandardOutput)) std::printf("look at me\n");
        if (Is(Fault::CrashOnEmptyBlock) && count == 0) std::raise(SIGSEGV);
        if (Is(Fault::AbortOnHugeBlock) && count > 100000) std::abort();
        while (Is(Fault::LoopsInExecute) && forever) {
        }
        while (Is(Fault::LoopOnNotANumber) && count > 0 && std::isnan(samples.front() + samples.back()) &&
               forever) {
        }
    }

    std::vector<double> samples;
    int blocks = 0;
    bool isOpen = false;
};

}  // namespace

int TCModuleLibrary_GetCount() {
    return Is(Fault::DuplicateId) ? 2 : 1;
}
const char* TCModuleLibrary_GetId(int kind) {
    return kind >= 0 && kind < TCModuleLibrary_GetCount() ? "Faulty" : nullptr;
}
TCBaseModule* TCModuleLibrary_Create(int kind, int instance) {
    return TCModuleLibrary_GetId(kind) != nullptr ? new Faulty(instance) : nullptr;
}
void TCModuleLibrary_Delete(int, TCBaseModule* module) {
    if (!Is(Fault::LeakedModules)) delete static_cast<Faulty*>(module);
}
int TCGetInterfaceVersionProvidedByModule() {
    return TC_INTERFACE_VERSION;
}
int TCGetInterfaceVersionRequiredByModule() {
    return TC_INTERFACE_VERSION;
}
