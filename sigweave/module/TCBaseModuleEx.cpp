#include "sigweave/module/TCBaseModuleEx.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/persistence/ParameterQuote.h"
#include "sigweave/persistence/TCProcessParameters.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace {

using tc::Bilingual;

constexpr int MOST_INPUTS = 65536;

// Of `placementAndSource`.
constexpr std::uint8_t SOURCE = 1;
constexpr int PLACEMENT_AT = 1;

#ifdef NDEBUG
constexpr bool VERIFIES_ORDER = false;
#else
constexpr bool VERIFIES_ORDER = true;
#endif

constexpr unsigned BitOf(TCModuleParameter::Kind kind) {
    return 1u << kind;
}
constexpr unsigned INTEGERS = BitOf(TCModuleParameter::INTEGER);
constexpr unsigned NUMBERS = BitOf(TCModuleParameter::NUMBER) | INTEGERS;
constexpr unsigned SWITCHES = BitOf(TCModuleParameter::SWITCH);
constexpr unsigned CHOICES = BitOf(TCModuleParameter::CHOICE) | SWITCHES;
constexpr unsigned ALL_KINDS = ~0u;

constexpr Bilingual UNDECLARED("the module reads its parameter '%1', which its table does not declare",
                               "das Modul liest seinen Parameter '%1', den seine Tabelle nicht vereinbart");
constexpr Bilingual OTHER_KIND("the module reads its parameter '%1' as another kind than its table declares",
                               "das Modul liest seinen Parameter '%1' als etwas anderes, als seine Tabelle "
                               "vereinbart");
constexpr Bilingual OTHER_THREAD("%1 was called on another thread than Init",
                                 "%1 wurde auf einem anderen Thread aufgerufen als Init");
constexpr Bilingual OUTSIDE_OF_RUN("%1 was called outside of a run",
                                   "%1 wurde außerhalb eines Laufs aufgerufen");
constexpr Bilingual DURING_RUN("%1 was called during a run", "%1 wurde während eines Laufs aufgerufen");

bool IsQuotedKind(TCModuleParameter::Kind kind) {
    return kind == TCModuleParameter::TEXT || kind == TCModuleParameter::FILE ||
           kind == TCModuleParameter::OUTPUT_FILE;
}

TCString DescribeUnknown(const char* name, std::span<const TCModuleParameter> parameters) {
    CStringArray names;
    for (const TCModuleParameter& parameter : parameters) names.push_back(parameter.name);
    return Bilingual("%1: there is no such parameter; %2", "%1: diesen Parameter gibt es nicht; %2")
        .With({name, tc::SuggestNames(name, names)})
        .c_str();
}

// Of a parameter that is not live.
TCString DescribeFixed(const char* name, std::span<const TCModuleParameter> parameters) {
    std::string live;
    for (const TCModuleParameter& parameter : parameters)
        if (parameter.live) live += (live.empty() ? "" : ", ") + std::string(parameter.name);
    if (live.empty())
        return Bilingual("%1: cannot change in a run; the module has no parameter that can",
                         "%1: kann sich im Lauf nicht ändern; das Modul hat keinen Parameter, der es kann")
            .With({name})
            .c_str();
    return Bilingual("%1: cannot change in a run; %2 can", "%1: kann sich im Lauf nicht ändern, wohl aber %2")
        .With({name, live})
        .c_str();
}

// One name=value a line, ended by line feed, carriage return, or both.
TCProcessParameters MakeSettingsParser() {
    return {true, false, nullptr, "\r\n", "=", "#;"};
}

}  // namespace

// Takes the values back at the end of its life, also by an exception, unless they are kept.
class TCBaseModuleEx::Change {
 public:
    Change(Values& changing, Values valuesBefore) : values(changing), before(std::move(valuesBefore)) {}
    ~Change() {
        if (!isKept) Assign(values, before);
    }
    bool Keep(bool keep) { return isKept = keep; }

 private:
    Values& values;
    Values before;
    bool isKept = false;
};

TCBaseModuleEx::TCBaseModuleEx(int instance, std::span<const TCModuleParameter> declared)
    : TCBaseModule(instance),
      parameters(declared),
      parameterValues(Defaults()),
      effectiveValues(parameterValues) {
    portHelper = std::make_unique<TCPortHelper>(this);
}

TCBaseModuleEx::~TCBaseModuleEx() = default;

TCBaseModuleEx::Value TCBaseModuleEx::ReadValue(const TCModuleParameter& parameter, const char* text) {
    Value value;
    if (text == nullptr) return value;
    value.isThere = true;
    value.text = text;
    if ((BitOf(parameter.kind) & NUMBERS) != 0) parameter.ReadNumber(text, value.number);
    if (parameter.kind == TCModuleParameter::INTEGER)
        parameter.ReadInteger(text, value.integer);
    else
        value.integer = std::max(parameter.FindChoice(text), 0);
    return value;
}

TCBaseModuleEx::Values TCBaseModuleEx::Defaults() const {
    Values defaults;
    for (const TCModuleParameter& parameter : parameters)
        defaults.push_back(ReadValue(parameter, parameter.defaultValue));
    return defaults;
}

// Value by value, for others hold their addresses.
void TCBaseModuleEx::Assign(Values& to, const Values& from) {
    to.resize(from.size());
    std::ranges::copy(from, to.begin());
}

int TCBaseModuleEx::GetTypeOfModule() {
    return (placementAndSource & SOURCE) != 0 ? 1 : 0;
}

long TCBaseModuleEx::GetMessageA(unsigned id, long param) {
    if (id == TCPortHelper::MESSAGE_RUNNING && param == 1) {
        interrupted = false;
        lastError.Empty();
        ClearResults();
        sourceGaps = {};
    }
    return TCBaseModule::GetMessageA(id, param);
}

double TCBaseModuleEx::GetProgress() {
    return -1.0;
}

void TCBaseModuleEx::Interrupt() {
    interrupted = true;
}

bool TCBaseModuleEx::OnSettingsChanged(TCString&) {
    return true;
}

const char* TCBaseModuleEx::GetLastErrorText() {
    return lastError;
}

void TCBaseModuleEx::OnInputsDeclared(int) {}

void TCBaseModuleEx::GetFiles(TCArray<TCModuleFile>& files) const {
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        const TCModuleParameter& parameter = parameters[i];
        const char* const path = ValueText(static_cast<int>(i));
        const bool writes = parameter.kind == TCModuleParameter::OUTPUT_FILE;
        if ((!writes && parameter.kind != TCModuleParameter::FILE) || path == nullptr || *path == '\0')
            continue;
        files.Add({path, writes ? TCModuleFile::WRITES : TCModuleFile::READS, parameter.name});
    }
}

void TCBaseModuleEx::AddReplacedFile(TCArray<TCModuleFile>& files, const char* path, const char* parameter) {
    files.Add({path, TCModuleFile::WRITES, parameter});
    files.Add({tc::PartNameOf(path).c_str(), TCModuleFile::WRITES_NUMBERED, parameter});
}

int TCBaseModuleEx::Init() {
    VerifyOrder("Init", false);
    const int result = TCBaseModule::Init();
    if (result >= 0) runThread = std::this_thread::get_id();
    return result;
}

int TCBaseModuleEx::Fetch() {
    VerifyOrder("Fetch", true);
    return TCBaseModule::Fetch();
}

int TCBaseModuleEx::Done() {
    if (runThread != std::thread::id()) VerifyOrder("Done", true);
    runThread = std::thread::id();
    if (!settledValues.empty()) Assign(parameterValues, std::exchange(settledValues, {}));
    return TCBaseModule::Done();
}

void TCBaseModuleEx::VerifyOrder(const char* operation, bool inRun) const {
    if (!VERIFIES_ORDER) return;
    const bool running = runThread != std::thread::id();
    if (running != inRun)
        ReportMistake(inRun ? OUTSIDE_OF_RUN : DURING_RUN, operation);
    else if (running && GetPlacement() == FIRST_THREAD && runThread != std::this_thread::get_id())
        ReportMistake(OTHER_THREAD, operation);
}

void TCBaseModuleEx::ReportMistake(const Bilingual& text, std::string_view what) const {
    const CString message = text.With({what});
    if (std::ranges::find(reportedMistakes, message) != reportedMistakes.end()) return;
    reportedMistakes.push_back(message);
    TCModuleMessage::Send(portHelper->GetModuleName(), TCModuleMessage::Types::Critical, message.c_str());
}

void TCBaseModuleEx::CheckStart(TCStartCheck&) {}

TCForetoldSignal TCBaseModuleEx::ForetellOutput(int, std::span<const TCForetoldSignal>) {
    return {};
}

void TCBaseModuleEx::OfferRunFacts(TCRunFacts&, const char*) {}

void* TCBaseModuleEx::GetWaitHandle(const char*&) {
    return nullptr;
}

bool TCBaseModuleEx::IsGiven(const char* name) const {
    const int index = FindIndex(name);
    if (index < 0 || !parameterValues[index].isThere) return false;
    const char* const usual = parameters[index].defaultValue;
    return usual == nullptr || parameterValues[index].text != usual;
}

bool TCBaseModuleEx::HasOneOf(const char* name, const char* values) const {
    const TCModuleParameter words{
        .name = "", .kind = TCModuleParameter::CHOICE, .defaultValue = "", .choices = values};
    return words.FindChoice(GetParameter(name)) >= 0;
}

void TCBaseModuleEx::WarnWithoutEffect(std::span<const TCParameterEffect> effects,
                                       TCStartCheck& check) const {
    for (const TCParameterEffect& effect : effects) {
        if (!IsGiven(effect.name) || HasOneOf(effect.other, effect.values)) continue;
        TCString values(effect.values);
        values.Replace("|", ", ");
        check.Warn(Bilingual("%1: has no effect with %2=%3, only with %4",
                             "%1: hat keine Wirkung bei %2=%3, nur bei %4")
                       .With({effect.name, effect.other, static_cast<const char*>(GetParameter(effect.other)),
                              static_cast<const char*>(values)}));
    }
}

void TCBaseModuleEx::WarnWithoutEffect(TCStartCheck& check) const {
    for (const TCModuleParameter& parameter : parameters) {
        const TCParameterEffect effect{parameter.name, parameter.enabledWhen.parameter,
                                       parameter.enabledWhen.values};
        if (*effect.other != '\0') WarnWithoutEffect(std::span(&effect, 1), check);
    }
}

const TCBaseModuleEx::Info& TCBaseModuleEx::GetInfo(int index) const {
    static constexpr Info NONE{.name = "", .kind = Info::TEXT, .defaultValue = ""};
    const bool isThere = index >= 0 && static_cast<std::size_t>(index) < parameters.size();
    return isThere ? parameters[static_cast<std::size_t>(index)] : NONE;
}

TCBaseModuleEx::InfoExtern TCBaseModuleEx::GetInfoExtern(int index) const {
    const Info& info = GetInfo(index);
    const bool isNumber = info.kind == Info::INTEGER || info.kind == Info::NUMBER;
    return {info.live, info.unit, info.minimum, info.maximum,
            info.live && (isNumber || info.kind == Info::SWITCH)};
}

bool TCBaseModuleEx::IsEnabled(int index) const {
    const TCModuleParameter::Condition& condition = GetInfo(index).enabledWhen;
    return *condition.parameter == '\0' || HasOneOf(condition.parameter, condition.values);
}

int TCBaseModuleEx::FindIndex(const char* name) const {
    for (std::size_t i = 0; name != nullptr && i < parameters.size(); ++i)
        if (std::strcmp(name, parameters[i].name) == 0) return static_cast<int>(i);
    return -1;
}

const TCModuleParameter* TCBaseModuleEx::FindParameter(const char* name) const {
    const int index = FindIndex(name);
    return index >= 0 ? &parameters[index] : nullptr;
}

// Null for an index out of range, and for a parameter that has no value.
const char* TCBaseModuleEx::ValueText(int index) const {
    return index >= 0 && parameterValues[index].isThere ? TextOf(index).c_str() : nullptr;
}

const CString& TCBaseModuleEx::TextOf(int index) const {
    const Value& value = parameterValues[index];
    if (!value.isDriven) return value.text;
    const TCModuleParameter& parameter = parameters[index];
    const double number = parameter.kind == TCModuleParameter::NUMBER ? value.number : value.integer;
    return value.drivenText = static_cast<const char*>(parameter.AsText(number));
}

TCString TCBaseModuleEx::GetParameter(const char* name) const {
    return ValueText(FindIndex(name));
}

bool TCBaseModuleEx::SetParameter(const char* name, const char* value, TCString& error) {
    const int index = FindIndex(name);
    if (!CheckValue(index, name, value, error)) return false;
    parameterValues[index] = ReadValue(parameters[index], TCString(value));
    return true;
}

bool TCBaseModuleEx::CheckValue(int index, const char* name, const char* value, TCString& error) const {
    const TCString newValue(value);
    if (index < 0)
        error = DescribeUnknown(TCString(name), parameters);
    else if (!parameters[index].Allows(newValue))
        error = parameters[index].DescribeRefusal(newValue);
    else
        return true;
    return false;
}

bool TCBaseModuleEx::OnLiveChanged(TCString&) {
    return true;
}

bool TCBaseModuleEx::SetLive(const char* name, const char* value, TCString& error) {
    VerifyOrder("SetLive", true);
    if (!IsLiveValue(name, value, error)) return false;
    Assign(valuesInTrial, parameterValues);
    return SetParameter(name, value, error) && MakeLive(error);
}

bool TCBaseModuleEx::IsLiveValue(const char* name, const char* value, TCString& error) const {
    const int index = FindIndex(name);
    if (index < 0 || parameters[index].live) return CheckValue(index, name, value, error);
    error = DescribeFixed(parameters[index].name, parameters);
    return false;
}

bool TCBaseModuleEx::SetLive(std::span<const LiveValue> values, TCString& error) {
    VerifyOrder("SetLive", true);
    for (const LiveValue& value : values)
        if (!CheckLive(value, error)) return false;
    Assign(valuesInTrial, parameterValues);
    for (const LiveValue& value : values) Drive(value);
    return MakeLive(error);
}

bool TCBaseModuleEx::CheckLive(const LiveValue& value, TCString& error) const {
    const Info& info = GetInfo(value.parameter);
    if (!info.live)
        error = DescribeFixed(info.name, parameters);
    else if (!info.AllowsNumber(value.number))
        error = info.DescribeRefusal(info.AsText(value.number));
    else
        return true;
    return false;
}

void TCBaseModuleEx::Drive(const LiveValue& value) {
    Value& driven = parameterValues[static_cast<std::size_t>(value.parameter)];
    driven.isThere = driven.isDriven = true;
    driven.number = value.number;
    if (GetInfo(value.parameter).kind != TCModuleParameter::NUMBER)
        driven.integer = static_cast<int>(value.number);
}

// What is in trial is in force already; the values of before are in `valuesInTrial`.
bool TCBaseModuleEx::MakeLive(TCString& error) {
    if (settledValues.empty()) settledValues = valuesInTrial;
    if (OnLiveChanged(error)) return true;
    Assign(parameterValues, valuesInTrial);
    return false;
}

double TCBaseModuleEx::GetNumber(int index) const {
    const Info::Kind kind = GetInfo(index).kind;
    if (kind == Info::NUMBER) return parameterValues[static_cast<std::size_t>(index)].number;
    const bool isWhole = kind == Info::INTEGER || kind == Info::SWITCH;
    return isWhole ? parameterValues[static_cast<std::size_t>(index)].integer : 0.0;
}

bool TCBaseModuleEx::ApplySettings(TCString& error) {
    VerifyOrder("ApplySettings", false);
    Change change(parameterValues, effectiveValues);
    return change.Keep(MakeEffective(error));
}

bool TCBaseModuleEx::MakeEffective(TCString& error) {
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        if (ValueText(static_cast<int>(i)) != nullptr) continue;
        error = Bilingual("%1: must be given; expected %2", "%1: muss angegeben werden; erwartet wird %2")
                    .With({parameters[i].name, static_cast<const char*>(parameters[i].DescribeAllowed())})
                    .c_str();
        return false;
    }
    if (!OnSettingsChanged(error)) return false;
    effectiveValues = parameterValues;
    return true;
}

TCString TCBaseModuleEx::GetSettings() const {
    TCString text;
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        const char* value = ValueText(static_cast<int>(i));
        if (value == nullptr) continue;
        const TCString written =
            IsQuotedKind(parameters[i].kind) ? tc::QuoteParameter(TCString(value)) : TCString(value);
        text.FormatAppend("%s=%s\n", parameters[i].name, static_cast<const char*>(written));
    }
    return text;
}

bool TCBaseModuleEx::SetSettings(const char* text, TCString& error) {
    VerifyOrder("SetSettings", false);
    Change change(parameterValues, parameterValues);
    Assign(parameterValues, Defaults());
    return change.Keep(ReadSettings(text, error) && MakeEffective(error));
}

bool TCBaseModuleEx::ReadSettings(const char* text, TCString& error) {
    TCProcessParameters parser = MakeSettingsParser();
    if (parser.ParseParamString(TCString(text) + "\n") < 0) {
        error = Bilingual("settings: %1", "Einstellungen: %1")
                    .With({static_cast<const char*>(parser.GetErrorText())})
                    .c_str();
        return false;
    }
    for (int i = 0; i < parser.GetParamCount(); ++i) {
        const TCString& name = parser.GetParamName(i);
        if (parser.FindParameter(name, nullptr) != i) {
            error = Bilingual("%1: is given twice; remove one of the two",
                              "%1: ist zweimal angegeben; entfernen Sie eins von beiden")
                        .With({static_cast<const char*>(name)})
                        .c_str();
            return false;
        }
        const TCString& value = parser.GetParamValStr(i);
        if (std::strlen(value) != static_cast<std::size_t>(value.GetLength())) {
            error = Bilingual("parameter '%1': a value cannot hold a zero byte; remove it",
                              "Parameter '%1': ein Wert kann kein Nullbyte enthalten; entfernen Sie es")
                        .With({static_cast<const char*>(name)})
                        .c_str();
            return false;
        }
        if (!SetParameter(name, value, error)) return false;
    }
    return true;
}

const TCBaseModuleEx::Value& TCBaseModuleEx::ValueAt(int index, const char* name, unsigned kinds) const {
    static const Value NOTHING;
    const bool isDeclared = index >= 0 && static_cast<std::size_t>(index) < parameters.size();
    if (isDeclared && (kinds & BitOf(parameters[index].kind)) != 0) return parameterValues[index];
    const CString shown = name != nullptr ? CString(name) : std::to_string(index);
    ReportMistake(isDeclared ? OTHER_KIND : UNDECLARED, shown);
    assert(!"a parameter is read that is not declared, or as another kind");
    return NOTHING;
}

int TCBaseModuleEx::ParamIndex(const char* name) const {
    const int index = FindIndex(name);
    ValueAt(index, name, ALL_KINDS);
    return index;
}

int TCBaseModuleEx::ParamInt(const char* name) const {
    return ValueAt(FindIndex(name), name, INTEGERS).integer;
}

int TCBaseModuleEx::ParamInt(int index) const {
    return ValueAt(index, nullptr, INTEGERS).integer;
}

double TCBaseModuleEx::ParamDbl(const char* name) const {
    return ValueAt(FindIndex(name), name, NUMBERS).number;
}

double TCBaseModuleEx::ParamDbl(int index) const {
    return ValueAt(index, nullptr, NUMBERS).number;
}

const CString& TCBaseModuleEx::ParamText(const char* name) const {
    const int index = FindIndex(name);
    const Value& value = ValueAt(index, name, ALL_KINDS);
    return value.isDriven ? TextOf(index) : value.text;
}

const double& TCBaseModuleEx::LiveDbl(const char* name) const {
    return ValueAt(FindIndex(name), name, NUMBERS).number;
}

const int& TCBaseModuleEx::LiveInt(const char* name) const {
    return ValueAt(FindIndex(name), name, INTEGERS | SWITCHES).integer;
}

TCString TCBaseModuleEx::ParamStr(const char* name) const {
    return ParamText(name).c_str();
}

bool TCBaseModuleEx::ParamBool(const char* name) const {
    return ValueAt(FindIndex(name), name, SWITCHES).integer == 1;
}

bool TCBaseModuleEx::ParamBool(int index) const {
    return ValueAt(index, nullptr, SWITCHES).integer == 1;
}

int TCBaseModuleEx::ParamChoice(const char* name) const {
    return ValueAt(FindIndex(name), name, CHOICES).integer;
}

int TCBaseModuleEx::ChoicePosition(const char* name, const char* words) const {
    const int index = FindIndex(name);
    const bool fits = index >= 0 && std::strcmp(parameters[index].choices, words) == 0;
    return ValueAt(index, name, fits ? CHOICES : 0).integer;
}

void TCBaseModuleEx::DeclarePlacement(PLACEMENT placement) {
    placementAndSource =
        static_cast<std::uint8_t>((placementAndSource & SOURCE) | (placement << PLACEMENT_AT));
}

TCBaseModuleEx::PLACEMENT TCBaseModuleEx::GetPlacement() const {
    return static_cast<PLACEMENT>(placementAndSource >> PLACEMENT_AT);
}

void TCBaseModuleEx::DeclareSource() {
    placementAndSource |= SOURCE;
    portHelper->BehaviourAsSource(TCPortHelper::SOURCE_REPORT_END);
}

void TCBaseModuleEx::UseAnyNumberOfInputs(const char* token, const char* declarator) {
    inputToken = token;
    inputDeclarator = declarator;
    DeclareInputs(1);
}

int TCBaseModuleEx::DeclareInputs(int count) {
    VerifyOrder("MESSAGE_DYN_PORTS", false);
    const int inputs = std::clamp(count, 1, MOST_INPUTS);
    portHelper->ClearPorts(true);
    for (int i = 0; i < inputs; ++i) {
        const TCString name = inputs == 1 ? TCString("Signal") : TCString::FormatS("Signal %d", i + 1);
        portHelper->SetPort(INPUT, i, name, inputToken, inputDeclarator, true);
    }
    OnInputsDeclared(inputs);
    portHelper->UseDynPorts(
        [](long module, int wanted) {
            return reinterpret_cast<TCBaseModuleEx*>(module)->DeclareInputs(wanted);
        },
        reinterpret_cast<long>(this));
    return inputs;
}

void TCBaseModuleEx::AddResult(const char* signal, const char* quantity, double value,
                               const TCSI_Unit& unit) {
    TCModuleResult result{signal, quantity, value, {}};
    unit.ToString(result.unit);
    results.Add(result);
}

void TCBaseModuleEx::AddGap(long long samples, double began) {
    if (sourceGaps.count++ == 0) sourceGaps.first = began;
    sourceGaps.samples += samples;
}

int TCBaseModuleEx::Fail(int code, const TCString& text) {
    lastError = text;
    return code;
}

int TCBaseModuleEx::Fail(int code, const Bilingual& text, std::initializer_list<std::string_view> inserts) {
    return Fail(code, text.With(inserts));
}

void TCBaseModuleEx::Warn(const Bilingual& text, std::initializer_list<std::string_view> inserts) {
    TCModuleMessage::Send(GetModuleName(), TCModuleMessage::Types::Warning, text.With(inserts).c_str());
}
