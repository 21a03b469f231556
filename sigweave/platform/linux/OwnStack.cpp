#include "sigweave/platform/OwnStack.h"

#include <sys/mman.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif

namespace tc {

namespace {

constexpr std::size_t GUARD_BYTES = 4096;

struct Callee {
    void (*entry)(void*);
    void* argument;
    const void* callerStack = nullptr;
    std::size_t callerSize = 0;
};

// The address sanitizer has to know which stack is in use, and does not see what an exception or given-back
// memory leaves on it.
#ifdef __SANITIZE_ADDRESS__
void BeginSwitch(void** kept, const void* stack, std::size_t size) {
    __sanitizer_start_switch_fiber(kept, stack, size);
}
void EndSwitch(void* kept, const void** from, std::size_t* size) {
    __sanitizer_finish_switch_fiber(kept, from, size);
}
void Forget(char* begin, std::size_t size) {
    __asan_unpoison_memory_region(begin, size);
}
#else
void BeginSwitch(void**, const void*, std::size_t) {}
void EndSwitch(void*, const void**, std::size_t*) {}
void Forget(char*, std::size_t) {}
#endif

void Enter(void* argument) {
    Callee& callee = *static_cast<Callee*>(argument);
    EndSwitch(nullptr, &callee.callerStack, &callee.callerSize);
    callee.entry(callee.argument);
    BeginSwitch(nullptr, callee.callerStack, callee.callerSize);
}

// Calls entry(argument) with the stack pointer at `top`. The frame address is asked for so that this
// function has a frame pointer, by which debuggers find the caller's frames across the switch; "noipa" keeps
// the compiler from working out which registers survive the call.
[[gnu::noipa]] void CallAt(char* top, void (*entry)(void*), void* argument) {
    void* volatile frame = __builtin_frame_address(0);
    static_cast<void>(frame);
    asm volatile(
        "movq %%rsp, %%rbx\n\t"
        "movq %[top], %%rsp\n\t"
        "callq *%[entry]\n\t"
        "movq %%rbx, %%rsp"
        : [top] "+r"(top), [entry] "+r"(entry), "+D"(argument)
        :
        : "rbx", "rax", "rcx", "rdx", "rsi", "r8", "r9", "r10", "r11", "cc", "memory");
}

}  // namespace

OwnStack::~OwnStack() {
    if (base != nullptr) {
        Forget(base, size);
        munmap(base, size);
    }
    base = nullptr;
}

bool OwnStack::Reserve() {
    for (std::size_t bytes = size; base == nullptr && bytes >= least; bytes /= 2) ReserveBytes(bytes);
    return base != nullptr;
}

// Without access at first: where a host locks its memory, the space must be unlocked before it becomes
// accessible, or all of it would be filled.
void OwnStack::ReserveBytes(std::size_t bytes) {
    void* space =
        mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (space == MAP_FAILED) return;
    munlock(space, bytes);
    char* begin = static_cast<char*>(space);
    if (mprotect(begin + GUARD_BYTES, bytes - GUARD_BYTES, PROT_READ | PROT_WRITE) != 0) {
        munmap(space, bytes);
        return;
    }
    base = begin;
    size = bytes;
}

const char* OwnStack::Lowest() const {
    return base != nullptr ? base + GUARD_BYTES : nullptr;
}

void OwnStack::GiveBack(std::size_t kept) {
    if (base == nullptr || kept >= size - GUARD_BYTES) return;
    Forget(base + GUARD_BYTES, size - GUARD_BYTES);
    madvise(base + GUARD_BYTES, size - GUARD_BYTES - kept, MADV_DONTNEED);
}

void OwnStack::Call(void (*entry)(void*), void* argument) {
    Callee callee{entry, argument};
    void* kept = nullptr;
    BeginSwitch(&kept, base, size);
    CallAt(base + size, &Enter, &callee);
    EndSwitch(kept, nullptr, nullptr);
}

}  // namespace tc
