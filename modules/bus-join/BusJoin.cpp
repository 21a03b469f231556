#include "modules/bus-join/BusJoin.h"

#include <numeric>
#include <vector>

#include "modules/common/SignalSettings.h"
#include "sigweave/module/ModuleLibrary.h"

BusJoin::BusJoin(int instance) : TCBaseModuleEx(instance, {}) {
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void BusJoin::OnInputsDeclared(int count) {
    // The bus block itself has no metadata; each of its channels has its own.
    portHelper->SetPort(OUTPUT, 0, "Bus", "STRUCT_BUS", "BUS", false);
    std::vector<unsigned> inputs(static_cast<std::size_t>(count));
    std::iota(inputs.begin(), inputs.end(), 0U);
    portHelper->SetTriggerInputs(inputs.data(), static_cast<unsigned>(inputs.size()));
}

int BusJoin::Execute() {
    for (unsigned input = 0; input < static_cast<unsigned>(GetNoInput()); ++input) {
        const int code = Join(input);
        if (code < 0) return code;
    }
    return portHelper->EndWriteMultitype(0);
}

int BusJoin::Join(unsigned input) {
    const int taken = portHelper->TakeBlock(input);
    if (taken <= 0) return taken;
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    const TCTypeInfo* metadata = portHelper->LastTypeInfo(input);
    const char* name = metadata != nullptr ? metadata->GetSignalname() : "";
    if (*name == '\0') name = portHelper->GetPortName(INPUT, input);
    return portHelper->WriteDblDataBusBlock(0, count, values, static_cast<int>(input), name, metadata);
}

TC_MODULE_LIBRARY(BusJoin);
