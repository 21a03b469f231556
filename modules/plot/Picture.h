#pragma once

#include <string>
#include <vector>

#include "modules/plot/Envelope.h"
#include "modules/plot/Heatmap.h"
#include "sigweave/signal/TCTypeInfo.h"

namespace tc {

// One signal as it is drawn.
struct PictureSignal {
    std::string name;
    TCTypeInfo metadata;  // of its first block
    // WAVE and SPECTRUM have an envelope, SPECTROGRAM a heat map.
    enum Kind { WAVE, SPECTRUM, SPECTROGRAM } kind = WAVE;
    const Envelope* envelope = nullptr;
    const Heatmap* heatmap = nullptr;
};

struct PictureOptions {
    bool png = false;
    bool overlay = false;      // all waveforms in one panel and all spectra in another, else a panel each
    bool logarithmic = false;  // the frequency axis
    int width = 1000;
    int height = 0;           // at least that which the panels need; 0: by their number
    double decibels = 120.0;  // from the top to the bottom of a spectrum
    bool ofPower = false;     // values of spectra are powers, 10 lg, else 20 lg
    std::string title;        // comes before the start time
};

// The gnuplot script that draws the signals, one panel under the other, into a file called "picture". A
// spectrogram always has a panel of its own.
std::string PictureScript(const std::vector<PictureSignal>& signals, const PictureOptions& options);

// In pixels: with less, that many panels have no room for their curves.
int LeastHeight(int panels);

}  // namespace tc
