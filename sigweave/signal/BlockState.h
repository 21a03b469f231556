#pragma once

#include "sigweave/signal/TCTypeInfo.h"

// What a block's state says about its signal. A number that is no state begins and ends nothing.
namespace tc {

inline bool IsBlockState(TCBLOCKSTATUS state) {
    return state >= START && state <= COMPLETE;
}

inline bool MarksBegin(TCBLOCKSTATUS state) {
    return state == START || state == COMPLETE;
}

inline bool MarksEnd(TCBLOCKSTATUS state) {
    return state == STOP || state == COMPLETE;
}

// Whether further blocks of the signal are to follow.
inline bool LeavesOpen(TCBLOCKSTATUS state) {
    return state == START || state == BUSY;
}

}  // namespace tc
