#pragma once

#include <new>

#include "sigweave/foundation/TCList.h"
#include "sigweave/signal/TCIOStream.h"

// The queue of an input: the waiting blocks, not owned, and the writer that feeds them.
class TCIOStream::Fan {
 public:
    TCList<Block*> blocks;
    TCIOStream* owner = nullptr;
};

namespace tc {

// The negative results of stream operations.
inline constexpr int OTHER_TYPE = -2;
inline constexpr int STATE_CONFLICT = -4;
inline constexpr int NOT_WRITTEN = -14;

// The result of `work`, or `otherwise` when there is no memory.
template <typename Work, typename Result>
Result Guarded(Work&& work, Result otherwise) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return otherwise;
    }
}

}  // namespace tc
