#pragma once

#include <cstddef>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/services/Bilingual.h"

// What modules with a channel for each input do alike.
namespace tc {

// A step: takes a block from each of the inputs that has one, and hands the input's number to `use`. Ends
// with the first negative code, which it answers, else with 0.
template <class Use>
int TakeFromEach(TCPortHelper& ports, std::size_t inputs, Use use) {
    for (unsigned input = 0; input < inputs; ++input) {
        int code = ports.TakeBlock(input);
        if (code > 0) code = use(input);
        if (code < 0) return code;
    }
    return 0;
}

// Warnings about the signal %1.
inline constexpr Bilingual RESULT_SPOILT(
    "%1: after a value that is not finite, or too large, the rest of the signal is without a result",
    "%1: ein Wert, der nicht endlich oder zu groß ist, lässt den Rest des Signals ohne Ergebnis");
inline constexpr Bilingual COUNTED_AS_0("%1: values that are not finite, counted as 0: %2",
                                        "%1: Werte, die nicht endlich sind und als 0 zählen: %2");
inline constexpr Bilingual VALUES_LEFT_OUT("%1: values left out that are not finite: %2",
                                           "%1: ausgelassene Werte, die nicht endlich sind: %2");

}  // namespace tc
