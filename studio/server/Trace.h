#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "sigweave/signal/TCIOStream.h"
#include "studio/server/Command.h"
#include "studio/server/Spectrogram.h"

namespace studio {

struct PictureText {
    std::int64_t at = 0;  // its number since the signal's start
    std::string text;
};

// A picture of a signal: columns of minimum and maximum, single samples, or what the kind of the wish is.
struct Picture {
    std::int64_t first = 0;      // the sample since the signal's start with which it begins
    std::int64_t perColumn = 1;  // samples; the last column may have fewer
    std::int64_t window = 0;     // columns that it has room for
    std::int64_t newest = 0;     // samples that the signal has had so far
    double start = 0.0;          // of the signal, ms since 1970 UTC
    double rate = 1.0;           // samples per second
    bool hasRate = false;
    bool ended = false;        // the signal
    std::int64_t signals = 0;  // that began so far
    std::string name;
    std::string unit;
    std::vector<double> low;   // of samples: the samples; of levels: root mean squares
    std::vector<double> high;  // of samples: empty; of levels: largest magnitudes
    std::vector<PictureText> texts;

    // Of a spectrogram (see Spectrogram::Levels).
    std::vector<std::uint8_t> levels;
    std::size_t bins = 0;
    double top = 0.0;
};

// What somebody wants to see of one output, in memory of a fixed size. The thread of the run adds blocks and
// waits for nobody; any other thread takes pictures. Columns begin at multiples of their length since the
// signal's start, so that pictures of the same signal agree.
class Trace {
 public:
    static constexpr std::size_t COLUMNS = 1000;
    static constexpr std::size_t LEVELS = 100;
    static constexpr std::size_t LONGEST_TEXT = 500;  // bytes; the rest is left out

    explicit Trace(const Wish& traceWish);

    // --- The thread of the run

    // Doubles and ints of the block's first segment, or its texts; others are left out.
    void Add(const TCIOStream::Block& block);
    // The newest picture is there to be taken, whether it was asked for or not.
    void Publish();

    // --- Any other thread

    // The newest picture since the call before; false when there is none. Asks for the next one. One thread.
    bool Take(Picture& picture);

    const Wish& GetWish() const { return wish; }

 private:
    void Begin(const TCTypeInfo* info);
    template <class Number>
    void AddValues(const Number* values, std::int64_t count);
    template <class Number>
    void AddColumns(const Number* values, std::int64_t count);
    template <class Number>
    void AddSamples(const Number* values, std::int64_t count);
    template <class Number>
    void AddLevels(const Number* values, std::int64_t count);
    void AddTexts(const TCString* texts, std::int64_t count);
    void FillLevels(Picture& picture) const;
    void FillTexts(Picture& picture) const;
    void EndSweep();
    void Fill(Picture& picture) const;

    const Wish wish;
    Picture now;              // of it the texts, times and counts
    std::vector<double> low;  // rings, by column or sample
    std::vector<double> high;
    std::vector<PictureText> texts;
    SegmentRing segments;
    std::int64_t origin = 0;  // the sample where the columns begin
    double last = 0.0;        // the sample before, for the trigger
    bool isArmed = false;     // waits for the trigger
    bool hasSweep = false;
    Picture sweep;  // the last one that is whole

    std::atomic<bool> asked{true};
    std::mutex mutex;  // of the rest; the run's thread only tries it
    Picture published;
    SpectrumSegments fresh;
    bool isNew = false;

    Spectrogram spectrogram;  // of the thread that takes
};

// As it is sent: the length of the header in four bytes, the header as JSON, which is filled up with blanks
// to a multiple of four, then the values as 32-bit floats: all minima, then all maxima, each less `base`; of
// a spectrogram a byte for each bin of each column. Texts are in the header.
std::string Encode(const Picture& picture, int key, Wish::Kind kind);

}  // namespace studio
