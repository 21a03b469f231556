#pragma once

#include <cstddef>

#include "sigweave/foundation/TCString.h"
#include "sigweave/module/TCPortHelper.h"
#include "sigweave/module/TCStartCheck.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/FileAccess.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/signal/TCSI_Unit.h"
#include "sigweave/signal/TCTypeInfo.h"

// What nearly every module does with its signals, so that all of them do it alike: the meaning of settings
// that occur in several modules, sending samples, and the checks of what arrives, with their messages. Texts
// are in the language in use; nothing is kept. On the thread of the module that calls.
namespace tc {

// The code of a failure that a module explains in words (see TCBaseModuleEx::Fail).
inline constexpr int MODULE_FAILED = -1;

// Adds a line to what is wrong with the settings (see TCBaseModuleEx::OnSettingsChanged).
TC_API void AddReason(CString& error, const CString& reason);

// What is wrong with a parameter, in one shape: "corner: '0' is not valid; expected more than 0 Hz". The
// value may be followed by its circumstances, as "'0' ... at 8000 samples per second".
TC_API CString NotValid(const char* name, const CString& value, const CString& expected,
                        const CString& circumstances = "");

// The parameter "start": a date, or a date and a time, in UTC, as 2026-03-01 or 2026-03-01T12:00:00.5Z.
// Milliseconds since 1970-01-01; 0 for an empty text, which means the time of the run. False, with a
// further line in `error` that says what is allowed, for anything else; times up to 1970 are refused, since
// no block can carry them.
TC_API bool ParseStart(const CString& text, double& milliseconds, CString& error);

// The parameter "unit", or another of that name: SI text with an optional decimal factor, as "V" or "V *
// 1e-003"; empty: none. Answers like ParseStart.
TC_API bool ParseUnit(const CString& text, TCSI_Unit& unit, CString& error, const char* name = "unit");

// The state of a block that is or is not the first and the last of its signal.
TC_API TCBLOCKSTATUS BlockState(bool first, bool last);
// Whether a block of that state is the first, and the last, of its signal. INVALID, which a block without a
// state has, counts as COMPLETE.
TC_API bool BeginsSignal(TCBLOCKSTATUS state);
TC_API bool EndsSignal(TCBLOCKSTATUS state);

// Declares an output for each input, of the same name: blocks of double values of that domain.
TC_API void DeclareOutputs(TCPortHelper& ports, const char* domain);

// Sends samples: a block of `count` values, which are copied, with these metadata, whose state is the place
// of the block in its signal. Without samples the block has just its metadata, so that the end of a signal
// still gets there. 0 when sent, or nobody is wired to the output; else a negative code, which is also in the
// port helper's error record.
TC_API int WriteSamples(TCPortHelper& ports, unsigned output, const TCTypeInfo& ti, const double* values,
                        std::size_t count);

// The name that a signal goes by: that of its metadata, or the port's when it has none.
TC_API CString SignalName(const TCPortHelper& ports, unsigned input, const TCTypeInfo& ti);

// For CheckStart of modules whose inputs adopt their type: refuses every input that is wired to anything but
// double values.
TC_API void CheckDoubleInputs(const TCPortHelper& ports, TCStartCheck& check);
// Refuses every input whose samplerate is known and no number above 0 (see CheckRate).
TC_API void CheckRates(const TCPortHelper& ports, TCStartCheck& check);
// The name that the signal of an input will have, as far as it is known; else the port's.
TC_API CString SignalName(const TCPortHelper& ports, unsigned input, const TCStartCheck& check);

// Why a file could not be written, as far as the system says without trying; empty when it can.
TC_API CString WhyNotWritable(const CString& path, FileWriting how);
// Of a file that is there and is to be kept.
TC_API CString ThereAlready(const CString& path);

// For messages: the input "Signal 1"
TC_API CString InputName(const TCPortHelper& ports, unsigned input);

// False, with the port and the samplerate in the error, unless that is a number above 0.
TC_API bool CheckRate(const TCPortHelper& ports, unsigned input, const TCTypeInfo& ti, CString& error);

// False, with the port and both values in the error, when a signal goes on with another samplerate or unit.
TC_API bool CheckGoesOn(const TCPortHelper& ports, unsigned input, const TCTypeInfo& before,
                        const TCTypeInfo& now, CString& error);

}  // namespace tc
