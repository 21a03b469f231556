#include "sigweave/platform/DebugOutput.h"

#include <atomic>
#include <cstdio>

namespace {
std::atomic<TCDebugSink> debugSink{nullptr};
}

void OutputDebugStringA(const char* text) {
    if (text == nullptr) return;
    if (TCDebugSink sink = debugSink.load()) {
        sink(text);
        return;
    }
    std::fputs(text, stderr);
}

TCDebugSink TCSetDebugOutput(TCDebugSink sink) {
    return debugSink.exchange(sink);
}
