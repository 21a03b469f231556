#include "modules/trigger/TriggerSettings.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "modules/common/SignalQuantity.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleSignals.h"

namespace tc {

namespace {

constexpr double MOST_HISTORY = 1e9;  // samples

struct Row {
    const char* name;
    const TriggerSettings::Text& setting;
};

int IndexOf(const TCBaseModuleEx& module, const char* name) {
    return static_cast<int>(module.FindParameter(name) - module.GetParameters().data());
}

TriggerSettings::Text TextOf(const TCBaseModuleEx& module, const char* name) {
    return {CString(module.GetParameter(name)), module.IsEnabled(IndexOf(module, name))};
}

TriggerMode ModeOf(const TCBaseModuleEx& module) {
    const TCString word = module.GetParameter("mode");
    return std::ranges::find_if(TRIGGER_MODES, [&](const auto& mode) { return word == mode.word; })->value;
}

}  // namespace

TriggerSettings::TriggerSettings(const TCBaseModuleEx& module)
    : mode(ModeOf(module)),
      level(TextOf(module, "level")),
      upperLevel(TextOf(module, "upper_level")),
      hysteresis(TextOf(module, "hysteresis")),
      slope(TextOf(module, "slope")),
      beforeText(module.GetParameter("before")),
      before(module.GetNumber(IndexOf(module, "before"))),
      after(module.GetNumber(IndexOf(module, "after"))),
      holdOff(module.GetNumber(IndexOf(module, "hold_off"))) {}

bool CheckTexts(const TriggerSettings& settings, TCString& error) {
    CString reason;
    const Row rows[] = {{"level", settings.level},
                        {"upper_level", settings.upperLevel},
                        {"hysteresis", settings.hysteresis},
                        {"slope", settings.slope}};
    for (const auto& [name, setting] : rows) {
        SignalQuantity quantity;
        const char* example = std::strcmp(name, "slope") == 0 ? "0.5 V/s" : "0.5 mV";
        if (!ReadSignalQuantity(setting.text, quantity))
            AddReason(reason, NotValid(name, setting.text, QuantityExpected(example)));
        else if (std::strcmp(name, "hysteresis") == 0 && quantity.number < 0.0)
            AddReason(reason, NotValid(name, setting.text, Bilingual("at least 0", "mindestens 0").Text()));
        else if (std::strcmp(name, "slope") == 0 && quantity.number == 0.0)
            AddReason(reason,
                      NotValid(name, setting.text,
                               Bilingual("a number above or below 0", "eine Zahl über oder unter 0").Text()));
    }
    error = reason.c_str();
    return reason.empty();
}

void FindCondition(const TriggerSettings& settings, const TCSI_Unit& unit, double rate,
                   TriggerCondition& condition, CString& error) {
    TCSI_Unit perSecond;
    perSecond.SetExponent(TCSI_Unit::SECOND, -1);
    perSecond.multiply(unit);
    condition.mode = settings.mode;
    const struct {
        Row row;
        double* number;
        const TCSI_Unit& unit;
        const char* per;
    } rows[] = {{{"level", settings.level}, &condition.level, unit, ""},
                {{"upper_level", settings.upperLevel}, &condition.upper, unit, ""},
                {{"hysteresis", settings.hysteresis}, &condition.hysteresis, unit, ""},
                {{"slope", settings.slope}, &condition.slope, perSecond, "/s"}};
    for (const auto& [row, number, of, per] : rows) {
        SignalQuantity quantity;
        ReadSignalQuantity(row.setting.text, quantity);
        if (!ConvertTo(of, quantity, *number) && row.setting.counts)
            AddReason(error, NotValid(row.name, row.setting.text, QuantityExpected(unit, per)));
    }
    condition.slope /= rate;
    if (settings.upperLevel.counts && !(condition.upper > condition.level))
        AddReason(
            error,
            NotValid(
                "upper_level", settings.upperLevel.text,
                Bilingual("more than the level, %1", "mehr als der Pegel, %1").With({settings.level.text})));
}

void FindTiming(const TriggerSettings& settings, double rate, PieceTiming& timing, CString& error) {
    const double before = std::round(settings.before * rate);
    if (before > MOST_HISTORY)
        return AddReason(
            error,
            NotValid("before", settings.beforeText,
                     Bilingual("at most a billion samples", "höchstens eine Milliarde Abtastwerte").Text(),
                     Bilingual("at %1 samples per second", "bei %1 Abtastwerten je Sekunde")
                         .With({ShortestText(rate)})));
    timing.before = static_cast<std::size_t>(before);
    timing.after = static_cast<std::int64_t>(std::clamp(std::round(settings.after * rate), 1.0, 9e18));
    const double holdOff = std::clamp(std::round(settings.holdOff * rate), 1.0, 4e18);
    timing.holdOff = std::max(timing.after, static_cast<std::int64_t>(holdOff));
}

bool BeginCutting(const TCBaseModuleEx& module, const TCTypeInfo& first, std::size_t channels,
                  PieceCutter& cutter, CString& error) {
    const TriggerSettings settings(module);
    TriggerCondition condition;
    PieceTiming timing;
    FindCondition(settings, first.GetUnit(), first.GetSamplerate(), condition, error);
    FindTiming(settings, first.GetSamplerate(), timing, error);
    if (error.empty()) cutter.Begin(condition, timing, channels);
    return error.empty();
}

double PartTimestamp(const PieceCutter& cutter, const TCTypeInfo& first) {
    return first.GetTimestamp() + 1000.0 * static_cast<double>(cutter.PartPosition()) / first.GetSamplerate();
}

std::vector<TriggerResult> TriggerResults(const PieceCutter& cutter, double rate) {
    TCSI_Unit second;
    second.SetExponent(TCSI_Unit::SECOND, 1);
    std::vector<TriggerResult> results = {{"hits", static_cast<double>(cutter.Hits()), TCSI_Unit()},
                                          {"cut_short", static_cast<double>(cutter.CutShort()), TCSI_Unit()}};
    if (cutter.Hits() == 0) return results;
    results.push_back({"first_hit", static_cast<double>(cutter.FirstHit()) / rate, second});
    results.push_back({"last_hit", static_cast<double>(cutter.LastHit()) / rate, second});
    return results;
}

}  // namespace tc
