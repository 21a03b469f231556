#pragma once

#include <string>
#include <vector>

#include "modules/plot/Envelope.h"
#include "sigweave/signal/TCTypeInfo.h"

namespace tc {

// One signal as it is drawn.
struct PictureSignal {
    std::string name;
    TCTypeInfo metadata;  // of its first block
    const Envelope* envelope = nullptr;
    bool spectrum = false;
};

struct PictureOptions {
    bool png = false;
    bool overlay = false;      // all waveforms in one panel and all spectra in another, else a panel each
    bool logarithmic = false;  // the frequency axis
    int width = 1000;
    int height = 0;           // 0: by the number of panels
    double decibels = 120.0;  // from the top to the bottom of a spectrum
    std::string title;        // comes before the start time
};

// The gnuplot script that draws the signals, one panel under the other, into a file called "picture".
std::string PictureScript(const std::vector<PictureSignal>& signals, const PictureOptions& options);

// In pixels: with less, that many panels have no room for their curves.
int LeastHeight(int panels);

}  // namespace tc
