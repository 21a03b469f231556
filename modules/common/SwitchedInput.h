#pragma once

#include "sigweave/signal/TCIOStream.h"

namespace tc {

// What is recorded of one input by a recorder that can be switched off in a run: whole signals, whatever is
// left out. The one that is being recorded when the recorder goes off ends with a block without values; a
// block that comes in the middle of a signal when it is on again begins one. Blocks without metadata, as
// those of a bus, are left out or recorded as they are. Allocates nothing while the recorder stays on.
class SwitchedInput {
 public:
    SwitchedInput();
    // Of the block that waits first at the input: the stream where what is to be recorded waits, from where
    // it must be taken before the next call: the input itself, or another one that had to be made. Null:
    // nothing, and the block has been taken away.
    TCIOStream* Take(TCIOStream& input, bool isOn);
    // For the next run.
    void Reset() { open = gap = false; }

 private:
    TCIOStream* LeaveOut(TCIOStream& input);

    bool open = false;   // the signal that is being recorded goes on
    bool gap = false;    // blocks have been left out since
    TCIOStream remade;   // blocks that have another state than they came with
    TCIOStream waiting;  // where those wait
};

}  // namespace tc
