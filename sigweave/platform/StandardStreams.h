#pragma once

#include <cstdio>

#include "sigweave/platform/Process.h"

// A program's own way to its standard output and error output, which stays when other code in the process
// closes the descriptors 1 and 2 or leads them elsewhere. A part of the seam that the library does not need:
// it is built into the host.
namespace tc {

// To be called first of all in a program, once. A standard stream that it was started without leads to
// nothing from then on, so that no file takes its number.
void KeepStandardStreams();

// What was standard output or error output when they were kept; null when the program was started without,
// and `stdout` or `stderr` when they were not kept. Any thread.
std::FILE* KeptStream(StandardStream stream);

// What became of the descriptor 1 or 2 since then.
enum class StreamChange { None, Closed, Redirected };
StreamChange WhatBecameOf(StandardStream stream);

// For waits: signalled when standard input has something to read, or has ended. It is never closed.
void* StandardInputHandle();

// While it lives, what is typed does not appear on the terminal that standard input is; nothing where it is
// none.
class HiddenTyping {
 public:
    explicit HiddenTyping(bool hides);
    ~HiddenTyping();
    HiddenTyping(const HiddenTyping&) = delete;
    HiddenTyping& operator=(const HiddenTyping&) = delete;

 private:
    bool hidden = false;
};

}  // namespace tc
