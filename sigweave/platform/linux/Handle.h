#pragma once

#include <cstdint>

namespace tc {

// What the waiting functions take for a descriptor: the descriptor plus one, so that none is null.
inline void* ToHandle(int descriptor) {
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor) + 1);
}

inline int ToDescriptor(void* handle) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(handle) - 1);
}

}  // namespace tc
