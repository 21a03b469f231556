#pragma once

#include "sigweave/platform/Export.h"

using TCDebugSink = void (*)(const char* text);

// The diagnostic channel of last resort: standard error, where each text is a line, unless a host or a test
// sets another sink, which gets the text as it is. Any thread.
TC_API void OutputDebugStringA(const char* text);

// Null restores standard error. Answers the sink that was set before (null for standard error).
TC_API TCDebugSink TCSetDebugOutput(TCDebugSink sink);
