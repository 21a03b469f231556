#include "sigweave/platform/Process.h"

#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace {

constexpr int ENDS[] = {SIGINT, SIGTERM, SIGHUP};

void (*onInterrupt)() = nullptr;

extern "C" void HandleEnd(int) {
    for (const int number : ENDS) signal(number, SIG_DFL);
    onInterrupt();
}

bool IsIgnored(int number) {
    struct sigaction current {};
    sigaction(number, nullptr, &current);
    return current.sa_handler == SIG_IGN;
}

}  // namespace

bool TCIsTerminal(StandardStream stream) {
    return isatty(static_cast<int>(stream)) == 1;
}

std::string TCGetProgramFolder() {
    std::error_code failed;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", failed);
    return failed ? std::string() : program.parent_path().string();
}

void TCOnInterrupt(void (*handler)(), WaitingCalls calls) {
    onInterrupt = handler;
    struct sigaction action {};
    action.sa_handler = HandleEnd;
    action.sa_flags = calls == WaitingCalls::GoOn ? SA_RESTART : 0;
    for (const int number : ENDS)
        if (number != SIGHUP || !IsIgnored(number)) sigaction(number, &action, nullptr);
}

std::int64_t tc::MachineMemoryBytes() {
    return std::int64_t{sysconf(_SC_PHYS_PAGES)} * sysconf(_SC_PAGESIZE);
}
