#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "sigweave/recording/RecordingReader.h"

namespace studio {

// A recording on disk, also one that is being written, as columns of minimum and maximum down to single
// samples. It is read once from its beginning on, as far as it is; of each signal an overview of a fixed size
// stays, and what is finer than that is read again. One thread.
class RecordingScan {
 public:
    static constexpr std::int64_t COLUMNS = 1000;
    static constexpr std::size_t MOST_PARTS = 32768;  // of an overview

    explicit RecordingScan(std::string filePath) : path(std::move(filePath)) {}

    const std::string& Path() const { return path; }
    // Reads on for that long at most. False, with the reason in `error`, when there is nothing to read.
    bool ReadOn(int milliseconds, std::string& error);
    // A window of a signal, by its number from 0 on: at most COLUMNS columns of `perColumn` samples, from the
    // sample `first` on (docs/studio.md); without a length all that was read so far. Refuses a signal that is
    // not there.
    nlohmann::ordered_json Show(int signal, std::int64_t first, std::int64_t count);

 private:
    // Of each part of a signal its range, and where to begin to read it.
    struct Part {
        double low;
        double high;
        std::int64_t block;   // in which it begins
        std::int64_t before;  // samples before that block
    };
    struct Track {
        std::int64_t samples = 0;
        std::int64_t perPart = 256;
        double start = 0.0;
        std::vector<Part> parts;
    };

    void Take(tc::RecordingReader& reader);
    static void Thin(Track& track);
    nlohmann::ordered_json Describe(int signal) const;
    void ShowParts(const Track& track, std::int64_t first, std::int64_t end,
                   nlohmann::ordered_json& json) const;
    bool Find(int signal, std::int64_t block);
    void ShowSamples(int signal, const Track& track, std::int64_t first, std::int64_t end,
                     nlohmann::ordered_json& json);

    std::string path;
    tc::RecordingReader reader;  // goes on from where it was
    tc::RecordingReader finder;  // for what is read again
    bool isOpen = false;
    bool isWhole = false;  // all that is there was read
    std::vector<Track> tracks;
};

}  // namespace studio
