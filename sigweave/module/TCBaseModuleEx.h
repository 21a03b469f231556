#pragma once

#include <optional>
#include <span>
#include <vector>

#include "sigweave/foundation/TCArray.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/module/TCBaseModule.h"
#include "sigweave/module/TCModuleParameter.h"
#include "sigweave/module/TCStartCheck.h"
#include "sigweave/platform/Export.h"
#include "sigweave/signal/TCSI_Unit.h"

// One figure that a module found, for the host's table and report.
struct TCModuleResult {
    TCString signal;    // the name of the signal that was measured
    TCString quantity;  // for example "rms"
    double value = 0.0;
    TCString unit;  // as TCSI_Unit::ToString writes it
};

// A module with declared parameters: each has a name, a kind, a default, limits, a unit and a line of help,
// so that a host can show, check and store its settings without knowing the module. The module reads its
// values with `ParamInt` and the others; they hold what the declaration allows, always.
//
// It also gives the module a place for its results, a way to tell its progress and its errors, and as many
// inputs as the user wires. Same threads and tags as TCBaseModule. The order of the virtual operations is
// part of the binary interface.
class TC_API TCBaseModuleEx : public TCBaseModule {
 public:
    // The table must outlive the module. The helper is created here.
    TCBaseModuleEx(int instance, std::span<const TCModuleParameter> parameters);

    // 1 when the module declared that it is a source (see DeclareSource).
    int GetTypeOfModule() override;
    // The module's id, for most need no other name.
    const char* GetBaseName() const override { return GetModuleId(); }
    // When a run begins (TCPortHelper::MESSAGE_RUNNING with 1), results, error text and interruption of the
    // last run are forgotten; then the base handles the message.
    long GetMessageA(unsigned id, long param) override;

    // 28: the share of the work that is done, 0 to 1, or -1 when it is not known. [run]
    virtual double GetProgress();
    // 29: the user wants the run to end: a source ends its signals with its next block. Overrides call the
    // base's. [run]
    virtual void Interrupt();
    // 30: called by ApplySettings: a module whose ports depend on the settings declares them anew. False when
    // the values do not fit together (a file that is not there, say); nothing else may have changed then, for
    // the values may be taken back. `error` then has a line for each mistake, which begins with the
    // parameter's name and a colon when it is about one. [control]
    virtual bool OnSettingsChanged(TCString& error);
    // 31: why the last operation that answered a negative code failed; empty when the port helper's error
    // record says it. Valid until the next failure. [any]
    virtual const char* GetLastErrorText();
    // 32: all ports were taken away and so many inputs declared (see UseAnyNumberOfInputs): a module that has
    // outputs declares them. Comes for the first time in the module's constructor. [control]
    virtual void OnInputsDeclared(int count);
    // 34: tells what Init would refuse, or what a run would, with the settings and lines as they are now and
    // the signals that are foretold: all of it, in the words of Init. Makes nothing, opens nothing for
    // writing and changes nothing. [control]
    virtual void CheckStart(TCStartCheck& check);
    // 35: what is known before a run of the signal that an output will send, given what is known of the
    // inputs'. Exact, or not known: the base knows nothing. [control]
    virtual TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs);

    std::span<const TCModuleParameter> GetParameters() const { return parameters; }
    // Null when there is no such parameter.
    const TCModuleParameter* FindParameter(const char* name) const;
    // The value as text; for a parameter that was not set, its default; empty for an unknown one.
    TCString GetParameter(const char* name) const;
    // False for an unknown name or a value that is not allowed; `error` then names the parameter, the value
    // and what is allowed, and nothing has changed. The module learns of the new values by ApplySettings.
    bool SetParameter(const char* name, const char* value, TCString& error);
    // Makes the values effective, to be called after SetParameter: false with `error` when one that must be
    // given is missing, or what OnSettingsChanged answers.
    bool ApplySettings(TCString& error);

    // All settings as parameter text: name=value lines, texts in quotation marks with escapes. Parameters
    // that must be given and were not are left out.
    TCString GetSettings() const;
    // The settings become those of the text, with defaults for what it does not name, and effective. False
    // when the text is wrong or the values do not fit together; the settings are then as before.
    bool SetSettings(const char* text, TCString& error);

    // What the module found so far, in the order in which it was added.
    const TCArray<TCModuleResult>& GetResults() const { return results; }

 protected:
    ~TCBaseModuleEx();

    // The values. A name that is not declared, and a value that must be given and was not, read as 0 or
    // empty.
    int ParamInt(const char* name) const;
    double ParamDbl(const char* name) const;
    TCString ParamStr(const char* name) const;
    bool ParamBool(const char* name) const;
    // The position of the value among the choices.
    int ParamChoice(const char* name) const;
    // Whether a value was given that is not the default.
    bool IsGiven(const char* name) const;
    // Warns of each parameter that was given and does not count.
    void WarnWithoutEffect(std::span<const TCParameterEffect> effects, TCStartCheck& check) const;

    // The module makes blocks without being asked, until it clears its ready flag.
    void DeclareSource();
    bool IsInterrupted() const { return interrupted; }
    // For modules with as many inputs as the user wires; called in the constructor, after which there is one.
    // The host asks for another number through TCPortHelper::MESSAGE_DYN_PORTS before it draws lines; all
    // ports are then declared anew. One input is called "Signal", several "Signal 1", "Signal 2" and so on.
    // Each has a type of its own, token{declarator} with metadata.
    void UseAnyNumberOfInputs(const char* token, const char* declarator);
    void AddResult(const char* signal, const char* quantity, double value, const TCSI_Unit& unit);
    void ClearResults() { results.RemoveAll(); }
    // Keeps the text for GetLastErrorText and answers the code.
    int Fail(int code, const TCString& text);

 private:
    // One entry a parameter, empty for one that was not set.
    using Values = std::vector<std::optional<TCString>>;

    int FindIndex(const char* name) const;
    const char* ValueText(int index) const;
    bool ReadSettings(const char* text, TCString& error);
    int DeclareInputs(int count);

    std::span<const TCModuleParameter> parameters;
    Values parameterValues;
    TCArray<TCModuleResult> results;
    TCString lastError;
    TCString inputToken;
    TCString inputDeclarator;
    bool source = false;
    bool interrupted = false;
};
