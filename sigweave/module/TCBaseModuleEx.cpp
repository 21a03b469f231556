#include "sigweave/module/TCBaseModuleEx.h"

#include <algorithm>
#include <utility>

#include "sigweave/persistence/ParameterQuote.h"
#include "sigweave/persistence/TCProcessParameters.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace {

using tc::Bilingual;

constexpr int MOST_INPUTS = 65536;

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

// What helps where a number was written as in German texts; empty where that is not the mistake.
std::string PointHint(const TCModuleParameter& parameter, const TCString& value) {
    TCString written = value;
    const bool isNumber = parameter.kind == TCModuleParameter::NUMBER;
    if (!isNumber || written.Replace(",", ".") != 1 || !parameter.Allows(written)) return {};
    return Bilingual("; write a point: %1", "; schreiben Sie einen Punkt: %1")
        .With({static_cast<const char*>(written)});
}

TCString DescribeWrong(const TCModuleParameter& parameter, const TCString& value) {
    const std::string text =
        Bilingual("%1: '%2' is not valid; expected %3", "%1: '%2' ist nicht gültig; erwartet wird %3")
            .With({parameter.name, static_cast<const char*>(value),
                   static_cast<const char*>(parameter.DescribeAllowed())});
    return (text + PointHint(parameter, value)).c_str();
}

// One name=value a line, ended by line feed, carriage return, or both.
TCProcessParameters MakeSettingsParser() {
    return {true, false, nullptr, "\r\n", "=", "#;"};
}

}  // namespace

TCBaseModuleEx::TCBaseModuleEx(int instance, std::span<const TCModuleParameter> declared)
    : TCBaseModule(instance), parameters(declared), parameterValues(declared.size()) {
    portHelper = std::make_unique<TCPortHelper>(this);
}

TCBaseModuleEx::~TCBaseModuleEx() = default;

int TCBaseModuleEx::GetTypeOfModule() {
    return source ? 1 : 0;
}

long TCBaseModuleEx::GetMessageA(unsigned id, long param) {
    if (id == TCPortHelper::MESSAGE_RUNNING && param == 1) {
        interrupted = false;
        lastError.Empty();
        ClearResults();
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

void TCBaseModuleEx::CheckStart(TCStartCheck&) {}

TCForetoldSignal TCBaseModuleEx::ForetellOutput(int, std::span<const TCForetoldSignal>) {
    return {};
}

bool TCBaseModuleEx::IsGiven(const char* name) const {
    const int index = FindIndex(name);
    return index >= 0 && parameterValues[index] && *parameterValues[index] != parameters[index].defaultValue;
}

void TCBaseModuleEx::WarnWithoutEffect(std::span<const TCParameterEffect> effects,
                                       TCStartCheck& check) const {
    for (const TCParameterEffect& effect : effects) {
        const TCModuleParameter words{
            .name = "", .kind = TCModuleParameter::CHOICE, .defaultValue = "", .choices = effect.values};
        const TCString now = GetParameter(effect.other);
        if (!IsGiven(effect.name) || words.FindChoice(now) >= 0) continue;
        TCString values(effect.values);
        values.Replace("|", ", ");
        check.Warn(Bilingual("%1: has no effect with %2=%3, only with %4",
                             "%1: hat keine Wirkung bei %2=%3, nur bei %4")
                       .With({effect.name, effect.other, static_cast<const char*>(now),
                              static_cast<const char*>(values)}));
    }
}

int TCBaseModuleEx::FindIndex(const char* name) const {
    const TCString wanted(name);
    for (std::size_t i = 0; i < parameters.size(); ++i)
        if (wanted == parameters[i].name) return static_cast<int>(i);
    return -1;
}

const TCModuleParameter* TCBaseModuleEx::FindParameter(const char* name) const {
    const int index = FindIndex(name);
    return index >= 0 ? &parameters[index] : nullptr;
}

// Null for an index out of range, and for a parameter that has no value.
const char* TCBaseModuleEx::ValueText(int index) const {
    if (index < 0) return nullptr;
    return parameterValues[index] ? static_cast<const char*>(*parameterValues[index])
                                  : parameters[index].defaultValue;
}

TCString TCBaseModuleEx::GetParameter(const char* name) const {
    return ValueText(FindIndex(name));
}

bool TCBaseModuleEx::SetParameter(const char* name, const char* value, TCString& error) {
    const int index = FindIndex(name);
    if (index < 0) {
        error = DescribeUnknown(TCString(name), parameters);
        return false;
    }
    const TCString newValue(value);
    if (!parameters[index].Allows(newValue)) {
        error = DescribeWrong(parameters[index], newValue);
        return false;
    }
    parameterValues[index] = newValue;
    return true;
}

bool TCBaseModuleEx::ApplySettings(TCString& error) {
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        if (ValueText(static_cast<int>(i)) != nullptr) continue;
        error = Bilingual("%1: must be given; expected %2", "%1: muss angegeben werden; erwartet wird %2")
                    .With({parameters[i].name, static_cast<const char*>(parameters[i].DescribeAllowed())})
                    .c_str();
        return false;
    }
    return OnSettingsChanged(error);
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
    Values before = std::exchange(parameterValues, Values(parameters.size()));
    if (ReadSettings(text, error) && ApplySettings(error)) return true;
    parameterValues = std::move(before);
    return false;
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
        if (!SetParameter(name, parser.GetParamValStr(i), error)) return false;
    }
    return true;
}

int TCBaseModuleEx::ParamInt(const char* name) const {
    const int index = FindIndex(name);
    int value = 0;
    if (index >= 0) parameters[index].ReadInteger(ValueText(index), value);
    return value;
}

double TCBaseModuleEx::ParamDbl(const char* name) const {
    const int index = FindIndex(name);
    double value = 0.0;
    if (index >= 0) parameters[index].ReadNumber(ValueText(index), value);
    return value;
}

TCString TCBaseModuleEx::ParamStr(const char* name) const {
    return GetParameter(name);
}

bool TCBaseModuleEx::ParamBool(const char* name) const {
    return ParamChoice(name) == 1;
}

int TCBaseModuleEx::ParamChoice(const char* name) const {
    const int index = FindIndex(name);
    return index >= 0 ? std::max(parameters[index].FindChoice(ValueText(index)), 0) : 0;
}

void TCBaseModuleEx::DeclareSource() {
    source = true;
    portHelper->BehaviourAsSource(TCPortHelper::SOURCE_REPORT_END);
}

void TCBaseModuleEx::UseAnyNumberOfInputs(const char* token, const char* declarator) {
    inputToken = token;
    inputDeclarator = declarator;
    DeclareInputs(1);
}

int TCBaseModuleEx::DeclareInputs(int count) {
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

int TCBaseModuleEx::Fail(int code, const TCString& text) {
    lastError = text;
    return code;
}
