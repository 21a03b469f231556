// Preloaded into a program, makes the disk full: one call of the program and of those that it starts that
// would write to an ordinary file fails with ENOSPC, or all from that one on. It sees system calls, so that
// those of the C library's streams count too. What goes to the standard error output is left alone.
//
//   FULL_DISK_STATE   a file that holds a FullDiskState
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <iterator>

#include "tests/faults/FaultBench.h"

namespace {

// In the sixth argument, which none of these calls has, of a call that is let through.
constexpr unsigned LET_THROUGH = 0x51677eaf;
constexpr int NUMBERS[] = {SYS_write,     SYS_pwrite64, SYS_writev,   SYS_fsync,    SYS_fdatasync,
                           SYS_ftruncate, SYS_rename,   SYS_renameat, SYS_renameat2};

FullDiskState* state = nullptr;

// An ordinary one, and not the standard error output under this or another number.
bool IsFile(int descriptor) {
    struct stat status, error;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    return fstat(STDERR_FILENO, &error) != 0 || status.st_dev != error.st_dev ||
           status.st_ino != error.st_ino;
}

bool IsFull(long number, const greg_t* registers) {
    const bool hasFile = number != SYS_rename && number != SYS_renameat && number != SYS_renameat2;
    const auto descriptor = static_cast<int>(registers[REG_RDI]);
    if (hasFile && !IsFile(descriptor)) return false;
    const int call = ++state->calls;
    const bool fails = state->onlyOne ? call == state->failing : call >= state->failing;
    state->failed = state->failed || fails;
    return fails;
}

void OnCall(int, siginfo_t* info, void* context) {
    greg_t* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    const int before = errno;
    if (IsFull(info->si_syscall, registers)) {
        registers[REG_RAX] = -ENOSPC;
    } else {
        const long result = syscall(info->si_syscall, registers[REG_RDI], registers[REG_RSI],
                                    registers[REG_RDX], registers[REG_R10], registers[REG_R8], LET_THROUGH);
        registers[REG_RAX] = result == -1 ? -errno : result;
    }
    errno = before;
}

void SeeCalls() {
    constexpr unsigned SIXTH = offsetof(seccomp_data, args[5]);
    sock_filter filter[std::size(NUMBERS) + 6] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, SIXTH),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, LET_THROUGH, std::size(NUMBERS) + 1, 0),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    std::size_t end = 3;
    for (std::size_t i = 0; i < std::size(NUMBERS); ++i)
        filter[end++] = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(NUMBERS[i]),
                                 static_cast<unsigned char>(std::size(NUMBERS) - i), 0);
    filter[end++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    filter[end++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP);
    const sock_fprog program{static_cast<unsigned short>(end), filter};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        std::abort();
}

[[gnu::constructor]] void Begin() {
    const int file = open(std::getenv("FULL_DISK_STATE"), O_RDWR | O_CLOEXEC);
    void* const place = mmap(nullptr, sizeof(FullDiskState), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (place == MAP_FAILED) std::abort();
    close(file);
    state = static_cast<FullDiskState*>(place);
    struct sigaction action = {};
    action.sa_sigaction = OnCall;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaction(SIGSYS, &action, nullptr);
    SeeCalls();
}

}  // namespace
