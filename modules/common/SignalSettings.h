#pragma once

#include <string>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/module/TCPortHelper.h"
#include "sigweave/platform/FileAccess.h"

// What the module libraries of this tree share: the meaning of settings that occur in several of them, and
// the small questions that every module asks about its signals.
namespace tc {

// The code of a failure that a module explains in words (see TCBaseModuleEx::Fail).
inline constexpr int MODULE_FAILED = -1;

// Adds a line to what is wrong with the settings (see TCBaseModuleEx::OnSettingsChanged).
void AddReason(std::string& error, const std::string& reason);

// What is wrong with a parameter, in one shape: "corner: '0' is not valid; expected more than 0 Hz". The
// value may have its circumstances behind it, as "'0' ... at 8000 samples per second".
std::string NotValid(const char* name, const std::string& value, const std::string& expected,
                     const std::string& circumstances = "");

// The parameter "start": a date, or a date and a time, in UTC, as 2026-03-01 or 2026-03-01T12:00:00.5Z.
// Milliseconds since 1970-01-01; 0 for an empty text, which stands for the time of the run. False, with a
// further line in `error` that says what is allowed, for anything else; times up to 1970 are refused, since
// no block can carry them.
bool ParseStart(const std::string& text, double& milliseconds, std::string& error);

// The parameter "unit", or another of that name: SI text with an optional decimal factor, as "V" or "V *
// 1e-003"; empty: none. Answers like ParseStart.
bool ParseUnit(const std::string& text, TCSI_Unit& unit, std::string& error, const char* name = "unit");

// The state of a block of a signal. One without a state counts as COMPLETE.
TCBLOCKSTATUS BlockState(bool first, bool last);
bool BeginsSignal(TCBLOCKSTATUS state);
bool EndsSignal(TCBLOCKSTATUS state);

// Declares an output for each input, of the same name: blocks of double values of that domain.
void DeclareOutputs(TCPortHelper& ports, const char* domain);

// Sends a block with these metadata; without samples it has nothing else, so that the end of a signal still
// gets there. Answers as the writers of the port helper.
int WriteSamples(TCPortHelper& ports, unsigned output, const TCTypeInfo& ti, const double* values,
                 std::size_t count);

// The name that a signal goes by: that of its metadata, or the port's when it has none.
std::string SignalName(const TCPortHelper& ports, unsigned input, const TCTypeInfo& ti);

// For messages: the input "Signal 1"
std::string InputName(const TCPortHelper& ports, unsigned input);

// For modules whose inputs adopt their type: refuses every input that is wired to anything but double values.
void CheckDoubleInputs(const TCPortHelper& ports, TCStartCheck& check);
// Refuses every input whose samplerate is known and no number above 0 (see CheckRate).
void CheckRates(const TCPortHelper& ports, TCStartCheck& check);
// The name that the signal of an input will go by, as far as it is known; else the port's.
std::string SignalName(const TCPortHelper& ports, unsigned input, const TCStartCheck& check);

// The reason why a file could not be written, as far as the system tells without trying; empty when it can.
std::string WhyNotWritable(const std::string& path, FileWriting how);
// Of a file that is there and is to be kept.
std::string ThereAlready(const std::string& path);

// False, with the port and the samplerate in the error, unless that is a number above 0.
bool CheckRate(const TCPortHelper& ports, unsigned input, const TCTypeInfo& ti, std::string& error);

// False, with the port and both values in the error, when a signal goes on with another samplerate or unit.
bool CheckGoesOn(const TCPortHelper& ports, unsigned input, const TCTypeInfo& before, const TCTypeInfo& now,
                 std::string& error);

// As few digits as read back to the same double, with a point in every locale; "nan", "inf" or "-inf" for
// what is no finite number.
std::string NumberText(double value);

}  // namespace tc
