#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sigweave/platform/ByteInput.h"
#include "sigweave/platform/Event.h"

// A sound or measurement file (WAV, FLAC, Ogg, AIFF and others), read once from its start to its end. Values
// are those that the file holds: of an integer format the integers themselves, not scaled to 1 (8-bit WAV
// stores 0 to 255), of a floating-point or lossy format the numbers as they are, not clipped. Logarithmic and
// ADPCM formats count as the 16-bit integers that they decode to.
class SoundReader {
 public:
    SoundReader();
    ~SoundReader();
    SoundReader(SoundReader&&) noexcept;
    SoundReader& operator=(SoundReader&&) noexcept;

    // False with the file's name and the reason in `error`: a file that is missing, empty, no sound file, or
    // holds no samples.
    bool Open(const std::string& path, std::string& error);

    // The same of a stream that comes in pieces and cannot be read twice. Waits for its header, and in Read
    // for samples, until the event is set; it must outlive the reader.
    bool OpenStream(std::unique_ptr<tc::ByteInput> input, const std::string& name, tc::Event& cancel,
                    std::string& error);

    bool IsOpen() const { return state != nullptr; }
    int Channels() const;
    double Samplerate() const;
    // Samples of each channel; -1 when only reading will show it.
    std::int64_t Frames() const;
    // What the format can hold. A floating-point file holds -1 to 1 by convention, or as far as the peak that
    // it names.
    double RangeMinimum() const;
    double RangeMaximum() const;

    // Reads up to `count` samples of each channel, one sample of every channel after the other; fewer only at
    // the end. Answers the samples of each channel.
    std::int64_t Read(double* values, std::int64_t count);
    // Once everything was read: empty, or why the file holds less than it promises.
    std::string Shortage() const;

 private:
    struct State;
    bool Accept(std::unique_ptr<State> opened, std::string& error);
    std::unique_ptr<State> state;
};
