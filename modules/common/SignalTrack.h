#pragma once

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/signal/TCTypeInfo.h"

// What a module knows of the signal at one of its inputs: where in it the last block lies, and its metadata.
class SignalTrack {
 public:
    // Notes the block that was taken last from the input. False, with the error, when its samplerate is no
    // number above 0, or when it goes on with another samplerate or unit than the signal had.
    bool Follow(const TCPortHelper& ports, unsigned input, CString& error);

    // Whether that block is the first of its signal, and the last one.
    bool Begins() const { return begins; }
    bool Ends() const;
    // Whether a signal has begun and its end has not come yet.
    bool IsOpen() const { return open; }
    const TCTypeInfo& Metadata() const { return metadata; }

 private:
    bool begins = false;
    bool open = false;
    TCTypeInfo metadata;
};
