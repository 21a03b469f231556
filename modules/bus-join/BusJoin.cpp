#include "modules/bus-join/BusJoin.h"

#include <cstring>
#include <numeric>
#include <vector>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

BusJoin::BusJoin(int instance) : TCBaseModuleEx(instance, {}) {
    DeclarePlacement(ANY_THREAD_JOINS);
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
    bool any = false;
    for (unsigned input = 0; input < static_cast<unsigned>(GetNoInput()); ++input) {
        const int code = Join(input);
        if (code < 0) return code;
        any = any || code > 0;
    }
    return any ? portHelper->EndWriteMultitype(0) : 0;
}

int BusJoin::Join(unsigned input) {
    const int taken = portHelper->TakeBlock(input);
    if (taken <= 0) return taken;
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    const TCTypeInfo* metadata = portHelper->LastTypeInfo(input);
    const char* name = metadata != nullptr ? metadata->GetSignalname() : "";
    if (count == 0) return 0;
    if (*name == '\0' || std::strstr(name, "\r\n") != nullptr) name = portHelper->GetPortName(INPUT, input);
    const int code =
        portHelper->WriteDblDataBusBlock(0, count, values, static_cast<int>(input), name, metadata);
    return code < 0 ? code : 1;
}

TC_MODULE_LIBRARY(BusJoin);
