#pragma once

#include <memory>
#include <string>
#include <vector>

#include "modules/common/SwitchedInput.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/recording/RecordingWriter.h"
#include "sigweave/services/Bilingual.h"

// Writes every block that arrives at its inputs to one recording, which Player plays again bit for bit.
// While the recorder is off, which may change in a run, blocks are left out (see tc::SwitchedInput). Inputs
// are of any type but addresses. What was written survives the end of the program, however it comes;
// memory is that for one block. An old file stays when the run does not begin, as when another module fails
// to start.
class Recorder final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Recorder";

    explicit Recorder(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual(
                   "Records what arrives in one file that survives any end of the program",
                   "Zeichnet in einer Datei auf, was ankommt; sie übersteht jedes Ende des Programms")
            .Text();
    }
    TCIOStream* SetInputStream(int port, int unused, int precision) override;
    void DeleteStreams() override;
    void OnInputsDeclared(int count) override;
    void GetFiles(TCArray<TCModuleFile>& files) const override;
    void CheckStart(TCStartCheck& check) override;
    void OfferRunFacts(TCRunFacts& offered, const char* instance) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Track {
        TCIOStream* stream;  // the helper owns it
        unsigned input;
        std::unique_ptr<tc::SwitchedInput> switched = std::make_unique<tc::SwitchedInput>();
    };

    bool Begin();

    std::vector<Track> tracks;  // of the inputs that are connected; by the number of their signal
    tc::RecordingFacts facts;
    tc::RecordingWriter writer;
    std::vector<TCIOStream*> ready;  // of a step; null: nothing to record of that signal
    bool begun = false;
    const int& on = LiveInt("on");
};
