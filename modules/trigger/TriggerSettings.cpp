#include "modules/trigger/TriggerSettings.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "modules/common/SignalQuantity.h"
#include "sigweave/module/ModuleSignals.h"

namespace tc {

namespace {

constexpr double MOST_HISTORY = 1e9;  // samples

struct Row {
    const char* name;
    const TriggerSettings::Text& setting;
};

}  // namespace

void CheckTexts(const TriggerSettings& settings, CString& reason) {
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
}

bool FindCondition(const TriggerSettings& settings, const TCSI_Unit& unit, double rate,
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
    return error.empty();
}

bool FindTiming(const TriggerSettings& settings, double rate, PieceTiming& timing, CString& error) {
    const double before = std::round(settings.before.number * rate);
    if (before > MOST_HISTORY) {
        AddReason(
            error,
            NotValid("before", settings.before.text,
                     Bilingual("at most a billion samples", "höchstens eine Milliarde Abtastwerte").Text()));
        return false;
    }
    timing.before = static_cast<std::size_t>(before);
    timing.after = static_cast<std::int64_t>(std::clamp(std::round(settings.after * rate), 1.0, 9e18));
    const double holdOff = std::clamp(std::round(settings.holdOff * rate), 1.0, 4e18);
    timing.holdOff = std::max(timing.after, static_cast<std::int64_t>(holdOff));
    return true;
}

}  // namespace tc
