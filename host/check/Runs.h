#pragma once

#include <string>
#include <vector>

#include "host/check/CheckSubject.h"
#include "host/check/Stand.h"

// What the checks of a module in runs share.
namespace host::check {

inline constexpr std::uint64_t SIGNAL_SEED = 7;

// The wirings with which Init begins a run; of a module that takes any number of inputs, with two. Never
// empty: throws a finding when there is none.
std::vector<Wiring> RunnableWirings(CheckSubject& subject);

// Three signals, one after the other.
const std::vector<BlockPlan>& LongSignal();

// "Init answered -1: there is no file"
std::string ToText(const Answer& answer);

// Throws the finding for a module that refused every line or run: it is at fault, unless it may wait for a
// setting. An answer without a call means that its inputs take no type.
[[noreturn]] void ThrowCannotRun(CheckSubject& subject, const Answer& answer);

}  // namespace host::check
