#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/forms/StreamRecord.h"

// Plays recordings into the graph: an output for each document, with the type of the port that was recorded;
// blocks, metadata and states are those of the document. Each step sends one block of every document that has
// any left. Documents of other origin can be played too; the type then follows from their first block.
//
// Where a signal does not end, as when the host that recorded it was killed, a warning says so. A document
// that is damaged is played as far as it goes, and then the run fails.
class XmlPlayer final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "XmlPlayer";

    explicit XmlPlayer(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Plays what XmlRecorder recorded", "Spielt ab, was XmlRecorder aufzeichnete")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    void GetFiles(TCArray<TCModuleFile>& files) const override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    int Done() override;

 private:
    struct Track {
        std::string file;
        std::string type;
        int items = 0;
        TCForetoldSignal foretold;                       // by the first block
        std::unique_ptr<tc::StreamRecordReader> reader;  // in a run, until the end of the document
        bool breaksOff = false;                          // at the block played last
    };

    std::vector<std::string> Files() const;
    static bool Open(Track& track, std::string& error);
    int Play(unsigned output, Track& track);
    void WarnOfBreak(const Track& track);

    std::vector<Track> tracks;
    std::string failure;  // of the documents, to be reported when what they sent has arrived
};
