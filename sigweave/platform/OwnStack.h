#pragma once

#include <cstddef>
#include <type_traits>

namespace tc {

// A second stack, for work that recurses deeper than the calling thread's own stack allows. It takes address
// space only; memory follows as deep as the work goes. What runs over its end meets a page without access,
// so deep work looks at `Lowest` on its way.
//
// Used by one thread at a time, and not from within its own work.
class OwnStack {
 public:
    OwnStack(std::size_t mostBytes, std::size_t leastBytes) : size(mostBytes), least(leastBytes) {}
    ~OwnStack();
    OwnStack(const OwnStack&) = delete;
    OwnStack& operator=(const OwnStack&) = delete;

    // Where the system refuses the most, half of it is tried, and so on down to the least; false when that is
    // refused, too. The first call that succeeds keeps the space.
    bool Reserve();
    // The lowest address that work may use, and the one above the highest. Null before `Reserve`.
    const char* Lowest() const;
    const char* Top() const { return base + size; }
    // How far down the running stack is, this one or another. The frame address would show it too, but costs
    // each function that asks for it a frame pointer.
    [[gnu::always_inline]] static const char* Here() {
        const char* here;
        asm("movq %%rsp, %0" : "=r"(here));
        return here;
    }
    // Calls `work()` on this stack and returns when it is done. `Reserve` must have succeeded. The work must
    // not throw: an exception that leaves it ends the program.
    template <typename Work>
    void Run(Work&& work) {
        Call([](void* callee) noexcept { (*static_cast<std::remove_reference_t<Work>*>(callee))(); }, &work);
    }
    // Gives back the memory that work took, save the topmost `kept` bytes.
    void GiveBack(std::size_t kept);

 private:
    void Call(void (*entry)(void*), void* argument);
    void ReserveBytes(std::size_t bytes);

    std::size_t size;  // the most, until there is a base
    std::size_t least;
    char* base = nullptr;
};

}  // namespace tc
