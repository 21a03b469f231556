#include "host/RunLimit.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/UnitText.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr double NEARLY = 1e-6;  // ms, of sums of lengths

// The number before the word; 0 when it is no whole number above 0, or another word.
std::int64_t CountOf(const std::string& text, const std::string& word) {
    for (const std::string& ending : {word + "s", word}) {
        if (!text.ends_with(ending)) continue;
        std::string number = text.substr(0, text.size() - ending.size());
        while (number.ends_with(' ')) number.pop_back();
        std::int64_t count = 0;
        const auto [end, code] = std::from_chars(number.data(), number.data() + number.size(), count);
        return code == std::errc() && end == number.data() + number.size() ? count : 0;
    }
    return 0;
}

}  // namespace

void SourceCount::Add(int values, bool endsSignal) {
    samples += values;
    signals += endsSignal ? 1 : 0;
}

void SourceCount::TakeLarger(const SourceCount& other) {
    samples = std::max(samples, other.samples);
    signals = std::max(signals, other.signals);
}

void SourceCount::Join(const SourceCount& step) {
    milliseconds += lastMilliseconds = step.milliseconds;
    samples += lastSamples = step.samples;
    signals += step.signals;
}

bool RunLimit::Read(const std::string& text, RunLimit& limit, std::string& error) {
    RunLimit read;
    read.samples = CountOf(text, "sample");
    read.signals = CountOf(text, "signal");
    double seconds = 0.0;
    std::string ignored;
    if (!read.IsAny() && tc::ReadQuantity(text, "s", seconds, ignored) && std::isfinite(seconds))
        read.milliseconds = std::max(0.0, seconds * 1000.0);
    if (read.IsAny()) {
        limit = read;
        return true;
    }
    error = Bilingual(
                "'%1' is not valid; expected a time, as 10s or 2min, or a number, as 48000samples or "
                "3signals",
                "'%1' ist nicht gültig; erwartet wird eine Zeit, wie 10s oder 2min, oder eine Anzahl, wie "
                "48000samples oder 3signals")
                .With({text});
    return false;
}

bool RunLimit::EndsWithNextBlock(const SourceCount& given) const {
    if (milliseconds > 0.0 && given.milliseconds + given.lastMilliseconds >= milliseconds - NEARLY)
        return true;
    return samples > 0 && given.samples + given.lastSamples >= samples;
}

}  // namespace host
