#pragma once

#include <span>

#include "sigweave/module/TCBaseModule.h"
#include "sigweave/module/TCModuleParameter.h"
#include "sigweave/persistence/TCProcessParameters.h"

// One figure that a module found, for the host's table and report.
struct TCModuleResult {
    TCString signal;    // the name of the signal that was measured
    TCString quantity;  // for example "rms"
    double value = 0.0;
    TCString unit;  // as TCSI_Unit::ToString writes it
};

// A module with declared parameters: each has a name, a kind, a default, limits, a unit and a line of help,
// so that a host can show, check and store its settings without knowing the module. Settings are parameter
// text. The module reads its values with `ParamInt` and the others; they always hold a value that the
// declaration allows.
//
// It also gives the module a place for its results and a way to tell its progress.
class TC_API TCBaseModuleEx : public TCBaseModule {
 public:
    // The table must outlive the module. The helper is created here.
    TCBaseModuleEx(int instance, std::span<const TCModuleParameter> parameters);

    // 1 when the module declared that it is a source (see DeclareSource).
    int GetTypeOfModule() override;
    long GetMessageA(unsigned id, long param) override;

    // 28: the share of the work that is done, 0 to 1, or -1 when it is not known. [run]
    virtual double GetProgress();
    // 29: the user wants the run to end: a source ends its signals with its next block. [run]
    virtual void Interrupt();
    // 30: the settings have changed: a module whose ports depend on them declares them anew. False with
    // `error` when the values do not fit together (a file that is not there, say). [control]
    virtual bool OnSettingsChanged(TCString& error);
    // 31: why the last operation that answered a negative code failed; empty when the port helper's error
    // record says it. [any]
    virtual const char* GetLastErrorText();

    std::span<const TCModuleParameter> GetParameters() const { return parameters; }
    // Null when there is no such parameter.
    const TCModuleParameter* FindParameter(const char* name) const;
    // The value as text; for a parameter that was not set, its default.
    TCString GetParameter(const char* name) const;
    // False for an unknown name or a value that is not allowed; `error` then names the parameter, the value
    // and what is allowed, and nothing has changed. Does not call OnSettingsChanged.
    bool SetParameter(const char* name, const char* value, TCString& error);
    // All settings as parameter text (name=value lines), and back. Parameters that the text does not name get
    // their defaults. Calls OnSettingsChanged at the end.
    TCString GetSettings() const;
    bool SetSettings(const char* text, TCString& error);

    // What the module found so far, in the order in which it was added.
    const TCArray<TCModuleResult>& GetResults() const { return results; }

 protected:
    ~TCBaseModuleEx() = default;

    // The values; the name must be declared.
    int ParamInt(const char* name) const;
    double ParamDbl(const char* name) const;
    TCString ParamStr(const char* name) const;
    bool ParamBool(const char* name) const;
    // The position of the value among the choices.
    int ParamChoice(const char* name) const;

    // The module makes blocks without being asked, until it clears its ready flag.
    void DeclareSource();
    bool IsInterrupted() const { return interrupted; }
    // For modules with as many inputs as the user wires: `declare` is called with the number wanted and
    // declares them. One input is called "Signal", several "Signal 1", "Signal 2" and so on.
    void UseAnyNumberOfInputs(const char* token, const char* declarator);
    void AddResult(const char* signal, const char* quantity, double value, const TCSI_Unit& unit);
    void ClearResults() { results.RemoveAll(); }
    // Keeps the text for GetLastErrorText and answers the code.
    int Fail(int code, const TCString& text);

 private:
    std::span<const TCModuleParameter> parameters;
    TCProcessParameters settings;
    TCArray<TCModuleResult> results;
    TCString lastError;
    bool source = false;
    bool interrupted = false;
};
