#include "sigweave/platform/DebugOutput.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {
std::atomic<TCDebugSink> debugSink{nullptr};
}

void OutputDebugStringA(const char* text) {
    if (text == nullptr) return;
    if (TCDebugSink sink = debugSink.load()) {
        sink(text);
        return;
    }
    const std::size_t length = std::strlen(text);
    const bool isLine = length > 0 && text[length - 1] == '\n';
    std::fprintf(stderr, isLine ? "%s" : "%s\n", text);
}

TCDebugSink TCSetDebugOutput(TCDebugSink sink) {
    return debugSink.exchange(sink);
}
