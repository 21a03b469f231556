#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "modules/common/SwitchedInput.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/forms/StreamRecord.h"

// Writes every block that arrives to an XML document, one for each input, which XmlPlayer plays again bit for
// bit. While the recorder is off, which may change in a run, blocks are left out (see tc::SwitchedInput).
// Inputs are of any type but addresses. The file is a whole document after every block, however the run
// ends; memory is that for one block. Old files stay when the run does not begin, as when another module
// fails to start.
class XmlRecorder final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "XmlRecorder";

    explicit XmlRecorder(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Records what arrives, block by block, as XML",
                             "Zeichnet auf, was ankommt, Block für Block, als XML")
            .Text();
    }
    TCIOStream* SetInputStream(int port, int unused, int precision) override;
    void DeleteStreams() override;
    void OnInputsDeclared(int count) override;
    void GetFiles(TCArray<TCModuleFile>& files) const override;
    void CheckStart(TCStartCheck& check) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Track {
        std::string file;
        TCIOStream* stream = nullptr;
        tc::StreamRecordWriter writer;
        std::int64_t blocks = 0;
        tc::SwitchedInput switched;
    };

    std::string FileOf(int input) const;
    std::string WhyRefused(unsigned input) const;
    bool BeginTracks(std::string& error);

    std::vector<TCIOStream*> streams;  // of the inputs that are connected; the helper owns them
    std::vector<std::unique_ptr<Track>> tracks;
    bool begun = false;
    const int& on = LiveInt("on");
};
