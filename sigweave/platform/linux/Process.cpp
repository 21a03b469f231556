#include "sigweave/platform/Process.h"

#include <unistd.h>

#include <filesystem>
#include <system_error>

bool TCIsTerminal(StandardStream stream) {
    return isatty(static_cast<int>(stream)) == 1;
}

std::string TCGetProgramFolder() {
    std::error_code failed;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", failed);
    return failed ? std::string() : program.parent_path().string();
}

std::int64_t tc::MachineMemoryBytes() {
    return std::int64_t{sysconf(_SC_PHYS_PAGES)} * sysconf(_SC_PAGESIZE);
}
