#include "tests/signal/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

int taken = 0;
int left = -1;

void* Take(std::size_t size, std::size_t alignment) {
    if (left == 0) return nullptr;
    if (left > 0) --left;
    ++taken;
    return std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
}

void* TakeOrThrow(std::size_t size, std::size_t alignment) {
    void* memory = Take(size, alignment);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

constexpr std::size_t DEFAULT_ALIGNMENT = __STDCPP_DEFAULT_NEW_ALIGNMENT__;

}  // namespace

int allocations::Count() {
    return taken;
}

void allocations::FailAfter(int after) {
    left = after;
}

void* operator new(std::size_t size) {
    return TakeOrThrow(size, DEFAULT_ALIGNMENT);
}
void* operator new[](std::size_t size) {
    return TakeOrThrow(size, DEFAULT_ALIGNMENT);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return TakeOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Take(size, DEFAULT_ALIGNMENT);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
