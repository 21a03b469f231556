#include "modules/common/SwitchedInput.h"

#include <utility>

#include "sigweave/module/ModuleSignals.h"

namespace tc {
namespace {

constexpr int DIGITS = 9;  // of text forms, which a recording does not have

}  // namespace

SwitchedInput::SwitchedInput() {
    remade.AddOutputStream(waiting.SetInputStream(DIGITS));
}

TCIOStream* SwitchedInput::Take(TCIOStream& input, bool isOn) {
    if (!isOn) return LeaveOut(input);
    const TCTypeInfo* const next = input.PeekTI();
    const TCBLOCKSTATUS state = next != nullptr ? next->GetState() : INVALID;
    const bool isInSignal = next != nullptr && !BeginsSignal(state);
    open = next != nullptr && !EndsSignal(state);
    if (!std::exchange(gap, false) || !isInSignal) return &input;
    remade.MoveBlocks(input, BlockState(true, EndsSignal(state)));
    return &waiting;
}

TCIOStream* SwitchedInput::LeaveOut(TCIOStream& input) {
    const TCTypeInfo* const next = input.PeekTI();
    const bool ends = std::exchange(open, false) && next != nullptr;
    gap = true;
    if (ends) {
        TCTypeInfo end = *next;  // of the same signal; where this block begins, the last recorded one ended
        end.SetState(STOP);
        remade.StartWriteSegments();
        remade.SetTI(&end, false);
        remade.EndWriteSegments();
    }
    input.RemoveContents(false);
    return ends ? &waiting : nullptr;
}

}  // namespace tc
