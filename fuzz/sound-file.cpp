// SoundFile on a file of sound: what is there is played, or the module says why not.
#include <vector>

#include "fuzz/Fuzz.h"
#include "fuzz/ModuleRun.h"
#include "fuzz/Scratch.h"
#include "modules/sound-file/SoundFile.h"

namespace {

constexpr std::int64_t MOST_SAMPLES = 1 << 18;

// The reader alone; the samples of each channel, or -1 for a file that is refused.
std::int64_t CountSamples(const std::string& path) {
    SoundReader reader;
    std::string error;
    if (!reader.Open(path, error)) {
        fuzz::Require(error.find(path) != std::string::npos, "a file is refused by its name");
        return -1;
    }
    fuzz::Require(reader.Channels() > 0 && reader.Samplerate() > 0, "an open file has channels and a rate");
    fuzz::Require(reader.RangeMinimum() <= reader.RangeMaximum(), "a range is one");
    std::vector<double> values(static_cast<std::size_t>(1000 * reader.Channels()));
    std::int64_t total = 0;
    for (std::int64_t count = 1; count > 0 && total < MOST_SAMPLES; total += count) {
        count = reader.Read(values.data(), 1000);
        fuzz::Require(count >= 0 && count <= 1000, "a piece is no larger than asked");
    }
    const bool isWhole = total < MOST_SAMPLES && reader.Frames() >= 0 && total < reader.Frames();
    fuzz::Require(!isWhole || !reader.Shortage().empty(), "a file that breaks off says so");
    return total;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = fuzz::WriteScratch("sound", {reinterpret_cast<const char*>(data), size});
    const std::int64_t samples = CountSamples(path);
    fuzz::ModuleRun<SoundFile> run;
    if (!run.Set("file=" + path + "\r\nblock=512\r\n")) {
        fuzz::Require(samples < 0, "the module takes what the reader takes");
        return 0;
    }
    fuzz::Require(samples >= 0, "and refuses what it refuses");
    run.WireOutputs(8);
    const bool isPlayed = run.Play(MOST_SAMPLES);
    fuzz::Require(!isPlayed || run.Samples() == samples || samples >= MOST_SAMPLES,
                  "and plays as many samples, or fails");
    return 0;
}
