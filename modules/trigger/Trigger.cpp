#include "modules/trigger/Trigger.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "modules/common/SignalQuantity.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::Bilingual;
using tc::TriggerMode;

constexpr tc::Choice<TriggerMode> MODES[] = {
    {"rising", TriggerMode::RISING}, {"falling", TriggerMode::FALLING}, {"both", TriggerMode::BOTH},
    {"above", TriggerMode::ABOVE},   {"below", TriggerMode::BELOW},     {"slope", TriggerMode::SLOPE},
    {"enter", TriggerMode::ENTER},   {"leave", TriggerMode::LEAVE}};

constexpr Bilingual CONDITION("Condition", "Bedingung");
constexpr Bilingual PIECE("Piece", "Ausschnitt");

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "mode",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "rising",
     .help = {"what counts as a hit: an edge through the level, a value beyond it, a slope, or a window that "
              "the signal enters or leaves",
              "was als Treffer zählt: eine Flanke durch den Pegel, ein Wert jenseits davon, eine Steigung, "
              "oder ein Fenster, in das das Signal tritt oder das es verlässt"},
     .choices = tc::CHOICE_WORDS<MODES>,
     .label = {"Hit", "Treffer"},
     .group = CONDITION},
    {.name = "level",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "0",
     .help = {"as 0.5 mV, or 0.5 in the signal's unit; the lower end of a window",
              "wie 0.5 mV, oder 0.5 in der Einheit des Signals; bei einem Fenster das untere Ende"},
     .label = {"Level", "Pegel"},
     .group = CONDITION,
     .enabledWhen = {"mode", "rising|falling|both|above|below|enter|leave"}},
    {.name = "upper_level",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "0",
     .help = {"the upper end of a window", "das obere Ende eines Fensters"},
     .label = {"Upper level", "Oberer Pegel"},
     .group = CONDITION,
     .enabledWhen = {"mode", "enter|leave"}},
    {.name = "hysteresis",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "0",
     .help = {"how far beyond the level the signal must have been before an edge",
              "wie weit jenseits des Pegels das Signal vor einer Flanke gewesen sein muss"},
     .label = {"Hysteresis", "Hysterese"},
     .group = CONDITION,
     .enabledWhen = {"mode", "rising|falling|both|enter|leave"}},
    {.name = "slope",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "1",
     .help = {"change in a second, from one sample to the next; negative: falling",
              "Änderung in einer Sekunde, von einem Abtastwert zum nächsten; negativ: fallend"},
     .label = {"Slope", "Steigung"},
     .group = CONDITION,
     .enabledWhen = {"mode", "slope"}},
    {.name = "hold_off",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "s",
     .help = {"least time from one hit to the next; hits within a piece never count",
              "kleinster Abstand zweier Treffer; Treffer in einem Ausschnitt zählen nie"},
     .minimum = 0.0,
     .maximum = 1e9,
     .label = {"Hold-off", "Totzeit"},
     .group = CONDITION},
    {.name = "before",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0.1",
     .unit = "s",
     .help = {"time before the hit that belongs to the piece", "Zeit vor dem Treffer, die dazugehört"},
     .minimum = 0.0,
     .maximum = 1e6,
     .label = {"Before", "Davor"},
     .group = PIECE},
    {.name = "after",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0.4",
     .unit = "s",
     .help = {"time from the hit on, at least one sample", "Zeit ab dem Treffer, mindestens ein Abtastwert"},
     .minimum = 0.0,
     .maximum = 1e9,
     .label = {"After", "Danach"},
     .group = PIECE},
};

constexpr double MOST_HISTORY = 1e9;  // samples

}  // namespace

Trigger::Trigger(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Trigger::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

bool Trigger::OnSettingsChanged(TCString& error) {
    CString reason;
    for (const char* name : {"level", "upper_level", "hysteresis", "slope"}) {
        tc::SignalQuantity quantity;
        const char* example = std::strcmp(name, "slope") == 0 ? "0.5 V/s" : "0.5 mV";
        if (!tc::ReadSignalQuantity(ParamText(name), quantity))
            tc::AddReason(reason, tc::NotValid(name, ParamText(name), tc::QuantityExpected(example)));
        else if (std::strcmp(name, "hysteresis") == 0 && quantity.number < 0.0)
            tc::AddReason(
                reason, tc::NotValid(name, ParamText(name), Bilingual("at least 0", "mindestens 0").Text()));
        else if (std::strcmp(name, "slope") == 0 && quantity.number == 0.0)
            tc::AddReason(
                reason,
                tc::NotValid(name, ParamText(name),
                             Bilingual("a number above or below 0", "eine Zahl über oder unter 0").Text()));
    }
    error = reason.c_str();
    return reason.empty();
}

// False, with the reasons, when a setting that counts does not fit to the unit, or a window is empty.
bool Trigger::FindCondition(const TCSI_Unit& unit, double rate, tc::TriggerCondition& condition,
                            CString& error) const {
    TCSI_Unit perSecond;
    perSecond.SetExponent(TCSI_Unit::SECOND, -1);
    perSecond.multiply(unit);
    condition.mode = ParamChoice<MODES>("mode");
    const struct {
        const char* name;
        double* number;
        const TCSI_Unit& unit;
        const char* per;
    } rows[] = {{"level", &condition.level, unit, ""},
                {"upper_level", &condition.upper, unit, ""},
                {"hysteresis", &condition.hysteresis, unit, ""},
                {"slope", &condition.slope, perSecond, "/s"}};
    for (const auto& row : rows) {
        tc::SignalQuantity quantity;
        tc::ReadSignalQuantity(ParamText(row.name), quantity);
        if (!tc::ConvertTo(row.unit, quantity, *row.number) && IsEnabled(ParamIndex(row.name)))
            tc::AddReason(error,
                          tc::NotValid(row.name, ParamText(row.name), tc::QuantityExpected(unit, row.per)));
    }
    condition.slope /= rate;
    if (IsEnabled(ParamIndex("upper_level")) && !(condition.upper > condition.level))
        tc::AddReason(
            error,
            tc::NotValid(
                "upper_level", ParamText("upper_level"),
                Bilingual("more than the level, %1", "mehr als der Pegel, %1").With({ParamText("level")})));
    return error.empty();
}

void Trigger::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
    tc::CheckRates(*portHelper, check);
    for (const TCForetoldSignal& signal : check.inputs) {
        tc::TriggerCondition condition;
        CString error;
        if (signal.unit && !FindCondition(*signal.unit, 1.0, condition, error)) check.Refuse(error);
    }
}

TCForetoldSignal Trigger::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    return inputs[static_cast<std::size_t>(output)];
}

int Trigger::Init() {
    ClearResults();
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Trigger::Fetch() {
    const bool working =
        std::any_of(channels.begin(), channels.end(), [](const Channel& channel) { return channel.working; });
    return working ? 0 : TCBaseModuleEx::Fetch();
}

int Trigger::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        int code = channels[input].working ? 1 : Take(input);
        if (code > 0) code = Work(input);
        if (code < 0) return code;
    }
    return 0;
}

int Trigger::Take(unsigned input) {
    const int taken = portHelper->TakeBlock(input);
    if (taken <= 0) return taken;
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error) ||
        (channel.track.Begins() && !Begin(channel, error)))
        return Fail(tc::MODULE_FAILED, error);
    channel.values = portHelper->AccessDblData(input, channel.left);
    channel.working = true;
    return 1;
}

bool Trigger::Begin(Channel& channel, CString& error) const {
    channel.first = channel.track.Metadata();
    const double rate = channel.first.GetSamplerate();
    tc::TriggerCondition condition;
    if (!FindCondition(channel.first.GetUnit(), rate, condition, error)) return false;
    const double before = std::round(ParamDbl("before") * rate);
    if (before > MOST_HISTORY) {
        tc::AddReason(
            error,
            tc::NotValid(
                "before", ParamText("before"),
                Bilingual("at most a billion samples", "höchstens eine Milliarde Abtastwerte").Text()));
        return false;
    }
    channel.detector = tc::Detector(condition);
    channel.before = static_cast<std::size_t>(before);
    channel.after = static_cast<std::int64_t>(std::clamp(std::round(ParamDbl("after") * rate), 1.0, 9e18));
    const double holdOff = std::clamp(std::round(ParamDbl("hold_off") * rate), 1.0, 4e18);
    channel.holdOff = std::max(channel.after, static_cast<std::int64_t>(holdOff));
    channel.history.clear();
    channel.history.reserve(channel.before);
    channel.piece.clear();
    channel.oldest = 0;
    channel.position = channel.allowed = channel.missing = 0;
    channel.seen = false;
    return true;
}

// Until the end of a piece or of the block.
int Trigger::Work(unsigned input) {
    Channel& channel = channels[input];
    while (channel.left > 0) {
        if (channel.missing > 0) {
            const int code = Capture(input);
            if (code != 0) return std::min(code, 0);
            continue;
        }
        const std::int64_t first =
            std::clamp<std::int64_t>(channel.allowed - channel.position, 0, channel.left);
        const int found = channel.detector.Find(channel.values, channel.left, static_cast<int>(first));
        PassBy(channel, found < 0 ? channel.left : found);
        if (found >= 0) Hit(channel);
    }
    channel.working = false;
    if (!channel.track.Ends() || channel.missing == 0) return 0;
    ++channel.cutShort;
    channel.missing = 0;
    return Send(input, true);
}

// The next of `values` is the hit, and the detector has seen it.
void Trigger::Hit(Channel& channel) {
    AddHistory(channel, channel.piece);
    channel.opens = true;
    channel.sent = channel.position - static_cast<std::int64_t>(channel.piece.size());
    channel.missing = channel.after;
    channel.allowed = channel.position + channel.holdOff;
    channel.seen = true;
    if (channel.hits++ == 0) channel.firstHit = channel.position;
    channel.lastHit = channel.position;
}

// 1 when the piece has ended.
int Trigger::Capture(unsigned input) {
    Channel& channel = channels[input];
    const auto count = static_cast<int>(std::min<std::int64_t>(channel.missing, channel.left));
    const int skipped = channel.seen ? 1 : 0;
    channel.seen = false;
    channel.detector.Skip(channel.values + skipped, count - skipped);
    channel.piece.insert(channel.piece.end(), channel.values, channel.values + count);
    PassBy(channel, count);
    channel.missing -= count;
    if (channel.missing > 0 && channel.left == 0 && channel.track.Ends()) {
        ++channel.cutShort;
        channel.missing = 0;
    }
    const int code = Send(input, channel.missing == 0);
    return code < 0 ? code : channel.missing == 0 ? 1 : 0;
}

void Trigger::PassBy(Channel& channel, int count) {
    const std::size_t room = channel.before;
    const double* end = channel.values + count;
    const double* from = end - std::min<std::ptrdiff_t>(count, static_cast<std::ptrdiff_t>(room));
    while (from != end) {
        if (channel.history.size() < room) {
            const auto part = std::min<std::ptrdiff_t>(
                end - from, static_cast<std::ptrdiff_t>(room - channel.history.size()));
            channel.history.insert(channel.history.end(), from, from + part);
            from += part;
            continue;
        }
        const auto part =
            std::min<std::ptrdiff_t>(end - from, static_cast<std::ptrdiff_t>(room - channel.oldest));
        std::copy_n(from, part, channel.history.begin() + static_cast<std::ptrdiff_t>(channel.oldest));
        channel.oldest = (channel.oldest + static_cast<std::size_t>(part)) % room;
        from += part;
    }
    channel.values += count;
    channel.left -= count;
    channel.position += count;
}

void Trigger::AddHistory(Channel& channel, std::vector<double>& to) {
    const auto middle = channel.history.begin() + static_cast<std::ptrdiff_t>(channel.oldest);
    to.insert(to.end(), middle, channel.history.end());
    to.insert(to.end(), channel.history.begin(), middle);
}

int Trigger::Send(unsigned output, bool last) {
    Channel& channel = channels[output];
    TCTypeInfo& metadata = outgoing;
    metadata = channel.track.Metadata();
    metadata.SetTimestamp(channel.first.GetTimestamp() +
                          1000.0 * static_cast<double>(channel.sent) / metadata.GetSamplerate());
    metadata.SetState(tc::BlockState(std::exchange(channel.opens, false), last));
    channel.sent += static_cast<std::int64_t>(channel.piece.size());
    const int code =
        tc::WriteSamples(*portHelper, output, metadata, channel.piece.data(), channel.piece.size());
    channel.piece.clear();
    return code;
}

int Trigger::Done() {
    ClearResults();
    TCSI_Unit second;
    second.SetExponent(TCSI_Unit::SECOND, 1);
    for (unsigned input = 0; input < channels.size(); ++input) {
        const Channel& channel = channels[input];
        const double rate = channel.first.GetSamplerate();
        const CString name = tc::SignalName(*portHelper, input, channel.first);
        AddResult(name.c_str(), "hits", static_cast<double>(channel.hits), TCSI_Unit());
        AddResult(name.c_str(), "cut_short", static_cast<double>(channel.cutShort), TCSI_Unit());
        if (channel.hits == 0) continue;
        AddResult(name.c_str(), "first_hit", static_cast<double>(channel.firstHit) / rate, second);
        AddResult(name.c_str(), "last_hit", static_cast<double>(channel.lastHit) / rate, second);
    }
    channels.clear();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Trigger);
