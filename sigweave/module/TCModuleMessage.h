#pragma once

#include "sigweave/platform/Export.h"

// Events of graded severity, from modules to the host. The host installs one sink for the whole library (it
// travels through message 27 of TCBaseModule::GetMessageA); without one, messages go to the debugger output
// when no main window is up, and are dropped otherwise. Any thread may send; the sink must accept that.
class TC_API TCModuleMessage {
 public:
    // Bits (never change, only append).
    enum class Types : int {
        Emergency = 1,
        Alert = 2,
        Critical = 4,
        Warning = 8,
        Notice = 16,
        Info = 32,
        Debug = 64,
        Detail = 128  // of an error that is reported in one line elsewhere: for logs alone
    };

    using Sink = void (*)(const char* module, Types type, const char* message);

    // The address of a Sink, as a number. The first sink that is not null stays for good.
    static void Init(long sink);
    // Never fails; null texts are passed to the sink as they are.
    static void Send(const char* module, Types type, const char* message);

    // Printf-style; see TCString::Format. The compiler checks the arguments of a literal format.
    TC_PRINTF(2, 3) static void Emergency(const char* module, const char* format, ...);
    TC_PRINTF(2, 3) static void Alert(const char* module, const char* format, ...);
    TC_PRINTF(2, 3) static void Critical(const char* module, const char* format, ...);
    TC_PRINTF(2, 3) static void Warning(const char* module, const char* format, ...);
    TC_PRINTF(2, 3) static void Notice(const char* module, const char* format, ...);
    TC_PRINTF(2, 3) static void Info(const char* module, const char* format, ...);
    TC_PRINTF(2, 3) static void Debug(const char* module, const char* format, ...);

    // Null until a sink is installed.
    static Sink s_PFN;
};
