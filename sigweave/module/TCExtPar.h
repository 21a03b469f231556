#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "sigweave/foundation/TCString.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/platform/Export.h"
#include "sigweave/signal/TCSI_Unit.h"

// A live parameter that a signal drives while its module runs: which one, by which port, its present value
// and what was refused. Who moves the blocks hands it the values in their order with `Take`, and before the
// block from which they hold calls `Apply`. Allocates nothing as long as nothing is refused. On the thread of
// the run.
class TC_API TCExtPar {
 public:
    // Of the parameter with that index, which must be drivable (TCBaseModuleEx::InfoExtern); `port` is what
    // drives it, as "sweep.Signal". The module must outlive it.
    TCExtPar(TCBaseModuleEx& module, int parameter, const CString& port);

    int GetParameter() const { return parameter; }
    const char* GetName() const { return module->GetInfo(parameter).name; }
    const CString& GetPort() const { return port; }
    // The present value, in the parameter's unit.
    double GetValue() const { return module->GetNumber(parameter); }
    // Values that came, and those of them that were refused.
    std::int64_t GetTaken() const { return taken; }
    std::int64_t GetRefused() const { return refused; }
    // Why the first one was; empty when none was.
    const CString& GetFirstRefusal() const { return firstRefusal; }

    // Whether values of that unit can be taken.
    bool Fits(const TCSI_Unit& unit);
    // A value in the given unit; one of no unit and factor 1 counts in the parameter's own. False when the
    // unit does not fit, or the value is not allowed: it is counted, and the value before goes on.
    bool Take(double value, const TCSI_Unit& unit);
    // The last values that were taken hold from now on: all at once, for a module may allow them together
    // only; when it does not, one after the other, and those that it refuses count as refused.
    static void Apply(std::span<TCExtPar> parameters);

 private:
    TC_LOCAL bool Convert(double& value, const TCSI_Unit& from);
    TC_LOCAL void Refuse(const TCString& reason);

    TCBaseModuleEx* module;
    int parameter;
    CString port;
    TCSI_Unit unit;       // of the last value
    bool fits = true;     // that unit
    double factor = 1.0;  // by which a value of that unit is multiplied, or for `divides` divided
    bool divides = false;
    double offset = 0.0;  // subtracted before that, in SI
    double pending = 0.0;
    bool hasPending = false;
    std::int64_t taken = 0;
    std::int64_t refused = 0;
    CString firstRefusal;
};
