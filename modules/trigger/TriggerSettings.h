#pragma once

#include <vector>

#include "modules/trigger/PieceCutter.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/module/TCModuleParameter.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/signal/TCSI_Unit.h"
#include "sigweave/signal/TCTypeInfo.h"

// The parameters that say where a signal is to be cut, and what they mean.
namespace tc {

inline constexpr Choice<TriggerMode> TRIGGER_MODES[] = {
    {"rising", TriggerMode::RISING}, {"falling", TriggerMode::FALLING}, {"both", TriggerMode::BOTH},
    {"above", TriggerMode::ABOVE},   {"below", TriggerMode::BELOW},     {"slope", TriggerMode::SLOPE},
    {"enter", TriggerMode::ENTER},   {"leave", TriggerMode::LEAVE}};

inline constexpr Bilingual CONDITION_GROUP("Condition", "Bedingung");
inline constexpr Bilingual PIECE_GROUP("Piece", "Ausschnitt");

inline constexpr TCModuleParameter TRIGGER_PARAMETERS[] = {
    {.name = "mode",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "rising",
     .help = {"what counts as a hit: an edge through the level, a value beyond it, a slope, or a window that "
              "the signal enters or leaves",
              "was als Treffer zählt: eine Flanke durch den Pegel, ein Wert jenseits davon, eine Steigung, "
              "oder ein Fenster, in das das Signal tritt oder das es verlässt"},
     .choices = CHOICE_WORDS<TRIGGER_MODES>,
     .label = {"Hit", "Treffer"},
     .group = CONDITION_GROUP},
    {.name = "level",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "0",
     .help = {"as 0.5 mV, or 0.5 in the signal's unit; the lower end of a window",
              "wie 0.5 mV, oder 0.5 in der Einheit des Signals; bei einem Fenster das untere Ende"},
     .label = {"Level", "Pegel"},
     .group = CONDITION_GROUP,
     .enabledWhen = {"mode", "rising|falling|both|above|below|enter|leave"}},
    {.name = "upper_level",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "0",
     .help = {"the upper end of a window", "das obere Ende eines Fensters"},
     .label = {"Upper level", "Oberer Pegel"},
     .group = CONDITION_GROUP,
     .enabledWhen = {"mode", "enter|leave"}},
    {.name = "hysteresis",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "0",
     .help = {"how far beyond the level the signal must have been before an edge",
              "wie weit jenseits des Pegels das Signal vor einer Flanke gewesen sein muss"},
     .label = {"Hysteresis", "Hysterese"},
     .group = CONDITION_GROUP,
     .enabledWhen = {"mode", "rising|falling|both|enter|leave"}},
    {.name = "slope",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "1",
     .help = {"change in a second, from one sample to the next; negative: falling",
              "Änderung in einer Sekunde, von einem Abtastwert zum nächsten; negativ: fallend"},
     .label = {"Slope", "Steigung"},
     .group = CONDITION_GROUP,
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
     .group = CONDITION_GROUP},
    {.name = "before",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0.1",
     .unit = "s",
     .help = {"time before the hit that belongs to the piece", "Zeit vor dem Treffer, die dazugehört"},
     .minimum = 0.0,
     .maximum = 1e6,
     .label = {"Before", "Davor"},
     .group = PIECE_GROUP},
    {.name = "after",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0.4",
     .unit = "s",
     .help = {"time from the hit on, at least one sample", "Zeit ab dem Treffer, mindestens ein Abtastwert"},
     .minimum = 0.0,
     .maximum = 1e9,
     .label = {"After", "Danach"},
     .group = PIECE_GROUP},
};

// Their values, as a module has them.
struct TriggerSettings {
    explicit TriggerSettings(const TCBaseModuleEx& module);

    // A text, and whether it counts with the mode that is set.
    struct Text {
        CString text;
        bool counts;
    };
    TriggerMode mode;
    Text level, upperLevel, hysteresis, slope;
    // In seconds.
    CString beforeText;
    double before, after, holdOff;
};

// For OnSettingsChanged: adds to `error` a line for each text that is no quantity, or one that is never
// allowed; false when there is one.
bool CheckTexts(const TriggerSettings& settings, TCString& error);

// Adds to `error` the reasons why a signal of that unit, and of that rate, cannot be cut: a setting that
// counts and does not fit to the unit, an empty window, more history than can be kept.
void FindCondition(const TriggerSettings& settings, const TCSI_Unit& unit, double rate,
                   TriggerCondition& condition, CString& error);
void FindTiming(const TriggerSettings& settings, double rate, PieceTiming& timing, CString& error);

// A signal with these metadata of its first block begins. False, with the reasons, as above.
bool BeginCutting(const TCBaseModuleEx& module, const TCTypeInfo& first, std::size_t channels,
                  PieceCutter& cutter, CString& error);

// The timestamp of the part that the cutter has, in a signal that began with `first`.
double PartTimestamp(const PieceCutter& cutter, const TCTypeInfo& first);

// What the cutter has found, in a signal of that rate, as results for AddResult.
struct TriggerResult {
    const char* quantity;
    double value;
    TCSI_Unit unit;
};
std::vector<TriggerResult> TriggerResults(const PieceCutter& cutter, double rate);

}  // namespace tc
