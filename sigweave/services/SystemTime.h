#pragma once

#include "sigweave/platform/Export.h"

// The current time in milliseconds since 1970-01-01 00:00 UTC: every absolute time of the library (block
// timestamps, log stamps) comes from here. The wall clock is read once, at the first call of the process;
// from then on a monotonic counter of nanoseconds carries the time. So it never runs backwards or jumps when
// somebody sets the wall clock. Any thread.
TC_API double TCSystemTime();
