#pragma once

#include <vector>

#include "modules/live/Channels.h"
#include "modules/sound-file/SoundDevice.h"
#include "modules/sound-file/SoundReader.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/RunTime.h"

// Plays a sound or measurement file into the graph: one output for each channel, and all of them as one bus,
// whose channels have the same names and metadata. Values are the file's own (see SoundReader), times
// `factor`, plus `offset`.
//
// The ports follow from the file, so they are declared when the settings are known. A file that breaks off is
// delivered as far as it goes, its signals are ended, and then the run fails. The file "-" comes through
// standard input, while it is recorded: its header is read when the settings are checked.
class SoundFile final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "SoundFile";

    explicit SoundFile(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Reads a WAV, FLAC, Ogg, AIFF or other sound file",
                             "Liest eine WAV-, FLAC-, Ogg-, AIFF- oder andere Tondatei")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    void* GetWaitHandle(const char*& what) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;
    double GetProgress() override;

 private:
    bool IsStream() const;
    bool Open(SoundReader& opened, std::string& error) const;
    bool OpenInput(std::string& error);
    void DeclareStream(const SoundReader& probe, const TCSI_Unit& unit);
    int BeginStream();
    int SendStream();
    void DeclarePorts(int number);
    void ReadPiece();
    void ReadAhead();
    void TakeFrames(std::int64_t taken);
    int WritePiece(bool last);
    int Finish();

    SoundReader reader;
    std::shared_ptr<SoundInput> input;  // of a stream; kept, for it cannot be read again
    live::Channels stream;
    std::string streamName;
    int channels = 0;
    double factor = 1.0;
    double offset = 0.0;
    double start = 0.0;  // 0: the time of the run
    tc::RunTime runTime;
    double begin = 0.0;  // of this run
    std::int64_t blockSize = 0;
    std::int64_t position = 0;
    bool ended = false;
    std::vector<double> values;  // of the block, one channel after the other
    std::int64_t count = 0;      // for each channel
    std::vector<double> frames;  // as the file has them, a few at a time
    bool hasAhead = false;  // the frame after the block is in `frames`: only a last block ends the signals
    std::vector<TCTypeInfo> metadata;
    std::vector<TCString> names;
};
