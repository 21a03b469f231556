#pragma once

#include <string>
#include <vector>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/recording/RecordingReader.h"
#include "sigweave/services/Bilingual.h"

// Plays a recording into the graph: an output for each of its signals, with the type of the port that was
// recorded; blocks, metadata and states are those of the recording. Each step sends one block, in the order
// in which they were recorded.
//
// Where a signal does not end, as when the host that recorded it was killed, a warning says so. A recording
// that is damaged in its midst is played up to there, and then the run fails.
class Player final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Player";

    explicit Player(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Plays what Recorder recorded", "Spielt ab, was Recorder aufzeichnete").Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    double GetProgress() override;
    int Init() override;
    int Execute() override;
    int Done() override;

 private:
    struct Track {
        std::string type;
        int items = 0;
        TCForetoldSignal foretold;  // by the first block
        bool breaksOff = false;     // at the block played last
        std::int64_t blocks = 0;    // the number of that one
    };

    int Play();
    bool HasOpenSignal() const;
    void WarnOfBreaks();

    std::vector<Track> tracks;  // one an output
    tc::RecordingReader reader;
    bool isReading = false;
    std::string failure;  // of the recording, to be reported when what it sent has arrived
};
