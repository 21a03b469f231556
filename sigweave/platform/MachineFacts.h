#pragma once

#include <string>

// A part of the seam that the library does not need: it is built into the programs that do.
namespace tc {

// The machine's name, system and processor: "bench, Linux 6.1.0, x86_64". Any thread.
std::string MachineName();

// How far the wall clock may be off, as the system itself estimates it.
struct ClockError {
    bool isSynchronised = false;  // else the figures mean little
    double largest = 0.0;         // in seconds
    double estimated = 0.0;       // in seconds
};
// False when the system does not say. Any thread.
bool ReadClockError(ClockError& error);

}  // namespace tc
