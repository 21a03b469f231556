#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <thread>
#include <vector>

#include "sigweave/foundation/TCArray.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/module/TCBaseModule.h"
#include "sigweave/module/TCModuleParameter.h"
#include "sigweave/module/TCRunFacts.h"
#include "sigweave/module/TCStartCheck.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/TCSI_Unit.h"

// One figure that a module found, for the host's table and report.
struct TCModuleResult {
    TCString signal;    // the name of the signal that was measured
    TCString quantity;  // for example "rms"
    double value = 0.0;
    TCString unit;  // as TCSI_Unit::ToString writes it
};

// What a source could not give because it was lost on the way: its signal ended before each gap and began
// again after it.
struct TCModuleGaps {
    long long count = 0;
    long long samples = 0;  // of each channel, in all gaps together; those of a gap of unknown length not
    double first = 0.0;     // when the first gap began, in milliseconds since 1970-01-01 00:00 UTC
};

// A file that a module reads or writes.
struct TCModuleFile {
    // Never change, only append.
    enum USE : int {
        READS = 0,
        WRITES = 1,
        // Besides files of this name also those with any digits after it, as out.csv.part3: the module takes
        // one that is free.
        WRITES_NUMBERED = 2
    };
    TCString path;  // as the parameter has it
    USE use = READS;
    TCString parameter;  // the parameter that names it, for messages
};

// A module with declared parameters: each has a name, a kind, a default, limits, a unit and a line of help,
// so that a host can show, check and store its settings without knowing the module. The module reads its
// values with `ParamInt` and the others; they hold what the declaration allows, always.
//
// It also gives the module a place for its results, a way to report its progress and its errors, and as many
// inputs as the user wires. Same threads and tags as TCBaseModule. A library that was built for debugging
// checks that a host keeps them, and sends a critical message once for each operation that does not. The
// order of the virtual operations is part of the binary interface.
//
// Two mistakes of an author are reported in every library, once each, by a critical message, and fail an
// assertion when it was built for debugging: the value of a parameter that is not declared, and one that is
// read as another kind than it is. They read as 0 or empty.
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
    // The base's. They note where the run begins and ends.
    int Init() override;
    int Fetch() override;
    int Done() override;
    // An item for each declared parameter, checked and set as by SetParameter and ApplySettings; 0 when none
    // is declared. A module that overrides it calls this one first and adds to the dialog, or begins anew.
    int BuildPropertyDialog(TCPropertyDialog& dialog) override;

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
    // 32: all ports were taken away and `count` inputs declared (see UseAnyNumberOfInputs): a module that has
    // outputs declares them. Comes for the first time in the module's constructor. [control]
    virtual void OnInputsDeclared(int count);
    // 33: adds every file that the module will read and write with its present settings and ports, also
    // those that it writes for a while only. A host refuses a graph in which one of them would be lost. By
    // default the values of all parameters of the kinds FILE and OUTPUT_FILE. Files without a name of their
    // own, as temporary ones in a fresh folder, need not be added. [control]
    virtual void GetFiles(TCArray<TCModuleFile>& files) const;
    // 34: reports what Init would refuse, or what a run would, with the settings and lines as they are now
    // and the signals that are foretold: all of it, in the words of Init. Makes nothing, opens nothing for
    // writing and changes nothing. [control]
    virtual void CheckStart(TCStartCheck& check);
    // 35: what is known before a run of the signal that an output will send, given what is known of the
    // inputs'. Exact, or not known: the base knows nothing. [control]
    virtual TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs);

    // 36: live parameters have new values (see SetLive), which hold from the next block on. False when they
    // do not fit the others or the signal; `error` then says why, as for OnSettingsChanged, nothing else may
    // have changed, and the values are taken back. For what follows from the values, as coefficients; a
    // module that only reads them (LiveDbl) need not override it. [run]
    virtual bool OnLiveChanged(TCString& error);

    // 37: right before Init: what the host knows of the run that begins, for a module that asks, and the name
    // of the module in the graph. Not every host offers it. [run]
    virtual void OfferRunFacts(TCRunFacts& facts, const char* instance);

    // Where a host may call the module (see DeclarePlacement). Never change, only append.
    enum PLACEMENT : int { FIRST_THREAD = 0, ANY_THREAD = 1, ANY_THREAD_JOINS = 2 };
    PLACEMENT GetPlacement() const;

    // 38: of a source that may have nothing now and more later: what wakes the host (see
    // tc::WaitForAnyHandle), signalled while Fetch would answer anything but 1. Until its Fetch has answered
    // 2, a 1 means "nothing now" then. `what` becomes the thing that is waited for, in words for the user.
    // Both belong to the module and are valid from Init to Done; the handle is the same all that time. Null,
    // the base's answer: the source never waits, and with its first 1 it has ended. [run]
    virtual void* GetWaitHandle(const char*& what);

    // What a host reads of a parameter: its declaration itself.
    using Info = TCModuleParameter;
    // How a parameter may be driven from outside while the module runs.
    struct InfoExtern {
        bool isLive = false;  // else not at all
        const char* unit = "";
        double minimum = 0.0;  // in the unit; values beyond the limits are refused
        double maximum = 0.0;
        bool isDrivable = false;  // live, and a number or a switch: a signal may drive it (see TCExtPar)
    };

    std::span<const TCModuleParameter> GetParameters() const { return parameters; }
    // By the index in the table; a nameless TEXT that is not live for an index out of range. The texts are
    // the declaration's.
    const Info& GetInfo(int index) const;
    InfoExtern GetInfoExtern(int index) const;
    // Whether the parameter counts, with the others as they are now (see Info::enabledWhen).
    bool IsEnabled(int index) const;
    // Null when there is no such parameter.
    const TCModuleParameter* FindParameter(const char* name) const;
    // The value as text; for a parameter that was not set, its default; empty for an unknown one.
    TCString GetParameter(const char* name) const;
    // False for an unknown name or a value that is not allowed; `error` then names the parameter, the value
    // and what is allowed, and nothing has changed. The module learns of the new values by ApplySettings.
    bool SetParameter(const char* name, const char* value, TCString& error);
    // Makes the values effective, to be called after SetParameter: false with `error` when one that must be
    // given is missing, or what OnSettingsChanged answers. All values are then as they were when they were
    // last effective.
    bool ApplySettings(TCString& error);

    // A number for a live parameter, by the index in the table; in its unit, for a SWITCH 0 or 1.
    struct LiveValue {
        int parameter = 0;
        double number = 0.0;
    };
    // New values for live parameters, between two steps of a run; several at once where they belong together,
    // as the corners of a band. They hold from the next block on, and at the end of the run the settings are
    // again as before it. False for a parameter that is not live and for a value that is not allowed, by the
    // checks and in the words of SetParameter, and when OnLiveChanged refuses; all values are then as they
    // were. Numbers are set without an allocation. [run]
    bool SetLive(const char* name, const char* value, TCString& error);
    bool SetLive(std::span<const LiveValue> values, TCString& error);
    // Whether SetLive would allow the value as far as the declaration says. [any]
    bool IsLiveValue(const char* name, const char* value, TCString& error) const;
    // The present value of an INTEGER, a NUMBER or a SWITCH (0 or 1); 0 for others.
    double GetNumber(int index) const;

    // All settings as parameter text: name=value lines, texts in quotation marks with escapes. Parameters
    // that must be given and were not are left out.
    TCString GetSettings() const;
    // The settings become those of the text, with defaults for what it does not name, and effective. False
    // when the text is wrong or the values do not fit together; the settings are then as before.
    bool SetSettings(const char* text, TCString& error);

    // What the module found so far, in the order in which it was added. The array is the module's: it changes
    // as the module works and is emptied when a run begins, so copy what is to be kept.
    const TCArray<TCModuleResult>& GetResults() const { return results; }

    // What was lost so far in this run, or the last one (see AddGap).
    const TCModuleGaps& GetGaps() const { return sourceGaps; }

 protected:
    ~TCBaseModuleEx();

    // The values, which are kept as they were read when they were set: nothing is parsed or allocated. One
    // that must be given and was not reads as 0 or empty. ParamInt is for INTEGER, ParamDbl for INTEGER and
    // NUMBER, ParamBool for SWITCH, the texts for every kind.
    int ParamInt(const char* name) const;
    double ParamDbl(const char* name) const;
    TCString ParamStr(const char* name) const;
    // The same text without a copy, valid until the settings change.
    const CString& ParamText(const char* name) const;
    bool ParamBool(const char* name) const;
    // The values themselves, as they are now: valid as long as the module, for a member that Execute reads
    // like a variable of its own. LiveDbl is for INTEGER and NUMBER, LiveInt for INTEGER and SWITCH (0 or 1).
    const double& LiveDbl(const char* name) const;
    const int& LiveInt(const char* name) const;
    // The position of the value among the choices, of a SWITCH 0 or 1. Rather use the one below.
    int ParamChoice(const char* name) const;
    // What the word of a CHOICE means, by the table of tc::Choice that the parameter was declared with (see
    // tc::CHOICE_WORDS); a parameter of other words is a mistake as above, and the first entry.
    template <const auto& CHOICES>
    auto ParamChoice(const char* name) const {
        return CHOICES[ChoicePosition(name, tc::CHOICE_WORDS<CHOICES>)].value;
    }
    // Where there is no time to look for the name: its index among the parameters, -1 for an unknown one.
    int ParamIndex(const char* name) const;
    int ParamInt(int index) const;
    double ParamDbl(int index) const;
    bool ParamBool(int index) const;
    // Whether a value was given that is not the default.
    bool IsGiven(const char* name) const;
    // Warns of each parameter that was given and does not count: by its declaration, or by these rules.
    void WarnWithoutEffect(TCStartCheck& check) const;
    void WarnWithoutEffect(std::span<const TCParameterEffect> effects, TCStartCheck& check) const;

    // The module makes blocks without being asked, until it clears its ready flag.
    void DeclareSource();
    // In the constructor, for a host that runs a graph on several threads (docs/threads.md). Without it the
    // module is called on the thread of the sources, as all modules that declare nothing. With it Fetch and
    // Execute may be called on another thread than Init and Done, still one call at a time. The module
    // promises that meanwhile it shares no state with other modules and the process that is not locked, and
    // neither makes processes nor waits for somebody; it writes blocks in Execute only, and none that hold
    // addresses. And when it has no more work,
    //   ANY_THREAD        no block waits at its inputs
    //   ANY_THREAD_JOINS  blocks may wait, but not at all of the inputs that have a line
    void DeclarePlacement(PLACEMENT placement);
    bool IsInterrupted() const { return interrupted; }
    // For modules with as many inputs as the user wires; called in the constructor, after which there is one.
    // The host asks for another number through TCPortHelper::MESSAGE_DYN_PORTS before it draws lines; all
    // ports are then declared anew. One input is called "Signal", several "Signal 1", "Signal 2" and so on.
    // Each has a type of its own, token{declarator} with metadata.
    void UseAnyNumberOfInputs(const char* token, const char* declarator);
    void AddResult(const char* signal, const char* quantity, double value, const TCSI_Unit& unit);
    void ClearResults() { results.RemoveAll(); }
    // Counts a gap in what a source gives: samples of each channel (0: nobody knows), and when it began, in
    // milliseconds since 1970-01-01 00:00 UTC. A host then does not call the run complete.
    void AddGap(long long samples, double began);
    // For GetFiles: a file that is written by way of tc::ReplacedFile, and the names that it has meanwhile.
    static void AddReplacedFile(TCArray<TCModuleFile>& files, const char* path, const char* parameter);
    // Keeps the text for GetLastErrorText and answers the code: `return Fail(tc::MODULE_FAILED, FULL,
    // {path})` with `constexpr tc::Bilingual FULL("%1 is full", "%1 ist voll")`.
    int Fail(int code, const tc::Bilingual& text, std::initializer_list<std::string_view> inserts = {});
    // The same with a text that was made already.
    int Fail(int code, const TCString& text);
    int Fail(int code, const CString& text) { return Fail(code, TCString(text.c_str())); }
    template <std::convertible_to<const char*> Text>
    int Fail(int code, const Text& text) {
        return Fail(code, TCString(static_cast<const char*>(text)));
    }
    // Sends the text to the user as a warning of this module; the run goes on.
    void Warn(const tc::Bilingual& text, std::initializer_list<std::string_view> inserts = {});

 private:
    // A value, as text and as what its kind makes of it. Not there: it must be given and was not. While it is
    // driven by numbers, its text is made when somebody asks.
    struct Value {
        bool isThere = false;
        CString text;
        int integer = 0;  // or the position of a choice
        double number = 0.0;
        bool isDriven = false;
        mutable CString drivenText = {};
    };
    using Values = std::vector<Value>;  // one a parameter, each at one address as long as the module
    class TC_LOCAL Change;

    TC_LOCAL int FindIndex(const char* name) const;
    TC_LOCAL bool HasOneOf(const char* name, const char* values) const;
    TC_LOCAL const char* ValueText(int index) const;
    TC_LOCAL const CString& TextOf(int index) const;
    TC_LOCAL static void Assign(Values& to, const Values& from);
    TC_LOCAL bool CheckValue(int index, const char* name, const char* value, TCString& error) const;
    TC_LOCAL bool CheckLive(const LiveValue& value, TCString& error) const;
    TC_LOCAL void Drive(const LiveValue& value);
    TC_LOCAL bool MakeLive(TCString& error);
    TC_LOCAL static Value ReadValue(const TCModuleParameter& parameter, const char* text);
    TC_LOCAL Values Defaults() const;
    TC_LOCAL const Value& ValueAt(int index, const char* name, unsigned kinds) const;
    int ChoicePosition(const char* name, const char* words) const;
    TC_LOCAL void ReportMistake(const tc::Bilingual& text, std::string_view what) const;
    TC_LOCAL void VerifyOrder(const char* operation, bool inRun) const;
    TC_LOCAL bool MakeEffective(TCString& error);
    TC_LOCAL bool ReadSettings(const char* text, TCString& error);
    TC_LOCAL int DeclareInputs(int count);
    TC_LOCAL CString WhyNotSettable(const char* name, const CString& text);

    std::span<const TCModuleParameter> parameters;
    Values parameterValues;
    Values effectiveValues;
    Values settledValues;                   // while live ones hold: those of before
    Values valuesInTrial;                   // before live ones that may be refused
    mutable CStringArray reportedMistakes;  // mistakes
    std::thread::id runThread;              // none outside of runs
    TCArray<TCModuleResult> results;
    TCString lastError;
    TCString inputToken;
    TCString inputDeclarator;
    // A source: 1; beyond it the placement. A byte, as the flag that it was in modules that are already
    // built.
    std::uint8_t placementAndSource = 0;
    bool interrupted = false;
    TCModuleGaps sourceGaps;
};
