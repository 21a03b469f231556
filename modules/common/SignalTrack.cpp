#include "modules/common/SignalTrack.h"

#include "sigweave/module/ModuleSignals.h"

bool SignalTrack::Follow(const TCPortHelper& ports, unsigned input, CString& error) {
    const TCTypeInfo none;
    const TCTypeInfo* found = ports.LastTypeInfo(input);
    const TCTypeInfo& now = found != nullptr ? *found : none;
    begins = !open || tc::BeginsSignal(now.GetState());
    if (!(begins ? tc::CheckRate(ports, input, now, error)
                 : tc::CheckGoesOn(ports, input, metadata, now, error)))
        return false;
    metadata = now;
    open = !Ends();
    return true;
}

bool SignalTrack::Ends() const {
    return tc::EndsSignal(metadata.GetState());
}
