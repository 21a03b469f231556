#include "tests/support/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

int taken = 0;
int live = 0;
int left = -1;

void* Take(std::size_t size, std::size_t alignment) {
    if (left == 0) throw std::bad_alloc();
    if (left > 0) --left;
    ++taken;
    ++live;
    return std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
}

void GiveBack(void* memory) {
    live -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

}  // namespace

bool allocations::AreSeen() {
    const int before = taken;
    operator delete(operator new(1));
    return taken > before;
}

int allocations::Count() {
    return taken;
}

int allocations::Live() {
    return live;
}

void allocations::FailAfter(int after) {
    left = after;
}

// All forms that are used, since a sanitizer brings its own for those that are left out.
// clang-format off
void* operator new(std::size_t size) { return Take(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__); }
void* operator new[](std::size_t size) { return Take(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__); }
void* operator new(std::size_t size, std::align_val_t alignment) { return Take(size, std::size_t(alignment)); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return Take(size, std::size_t(alignment)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return left == 0 ? nullptr : Take(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
void* operator new[](std::size_t size, const std::nothrow_t& quiet) noexcept { return operator new(size, quiet); }
void operator delete(void* memory) noexcept { GiveBack(memory); }
void operator delete[](void* memory) noexcept { GiveBack(memory); }
void operator delete(void* memory, std::size_t) noexcept { GiveBack(memory); }
void operator delete[](void* memory, std::size_t) noexcept { GiveBack(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { GiveBack(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { GiveBack(memory); }
// clang-format on
