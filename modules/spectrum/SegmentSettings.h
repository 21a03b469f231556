#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "modules/spectrum/Window.h"
#include "sigweave/module/TCModuleParameter.h"

// The parameters of modules that cut signals into segments and transform these.
namespace tc {

inline constexpr Bilingual SEGMENTS_GROUP("Segments", "Abschnitte");

// To be declared under the name "length".
constexpr TCModuleParameter SegmentLength(const char* samples, double most) {
    return {.name = "length",
            .kind = TCModuleParameter::INTEGER,
            .defaultValue = samples,
            .help = {"samples per segment", "Abtastwerte je Abschnitt"},
            .minimum = 2.0,
            .maximum = most,
            .label = {"Segment length", "Abschnittslänge"},
            .group = SEGMENTS_GROUP};
}

inline constexpr TCModuleParameter WINDOW_PARAMETER = {
    .name = "window",
    .kind = TCModuleParameter::CHOICE,
    .defaultValue = "hann",
    .help = {"weights of a segment, each in its periodic form",
             "Gewichte eines Abschnitts, jeweils in periodischer Form"},
    .choices = CHOICE_WORDS<WINDOWS>,
    .label = {"Window", "Fenster"},
    .group = SEGMENTS_GROUP};

inline constexpr TCModuleParameter BETA_PARAMETER = {
    .name = "beta",
    .kind = TCModuleParameter::NUMBER,
    .defaultValue = "8.6",
    .help = {"of a Kaiser window: the greater, the wider its main lobe and the lower its side lobes",
             "eines Kaiser-Fensters: je größer, desto breiter die Hauptkeule und niedriger die Nebenkeulen"},
    .minimum = 0.0,
    .maximum = 100.0,
    .label = {"Kaiser beta", "Kaiser-Beta"},
    .group = SEGMENTS_GROUP,
    .enabledWhen = {"window", "kaiser"}};

constexpr TCModuleParameter SegmentOverlap(const char* share, TCModuleParameter::Condition enabledWhen = {}) {
    return {.name = "overlap",
            .kind = TCModuleParameter::NUMBER,
            .defaultValue = share,
            .help = {"share of a segment that the next one repeats",
                     "Anteil eines Abschnitts, den der nächste wiederholt"},
            .minimum = 0.0,
            .maximum = 0.99,
            .label = {"Overlap", "Überlappung"},
            .group = SEGMENTS_GROUP,
            .enabledWhen = enabledWhen};
}

// Samples from the beginning of a segment to that of the next one.
inline std::size_t SegmentHop(int length, double overlap) {
    return std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(length * (1.0 - overlap))));
}

// Warnings about the signal %1.
inline constexpr Bilingual SEGMENTS_LEFT_OUT(
    "%1: segments left out for values that are not finite: %2",
    "%1: Abschnitte, die wegen nicht endlicher Werte ausgelassen wurden: %2");
inline constexpr Bilingual NO_WHOLE_SEGMENT(
    "%1: no spectrum of %2 samples; one segment is %3 samples long",
    "%1: kein Spektrum aus %2 Abtastwerten; ein Abschnitt ist %3 Abtastwerte lang");

}  // namespace tc
