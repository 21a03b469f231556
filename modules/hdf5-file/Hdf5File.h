#pragma once

#include "modules/common/ArraySource.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Plays an array of an HDF5 file into the graph, by pieces: one output for each channel, and all of them as
// one bus. Name, unit, samplerate and start time come from the file (see Hdf5Reader.h) unless they are set; a
// file that `sigweave export` wrote needs no setting.
//
// The ports follow from the file, so they are declared when the settings are known.
class Hdf5File final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Hdf5File";

    explicit Hdf5File(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Reads a dataset of an HDF5 file", "Liest einen Datensatz einer HDF5-Datei")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    int Done() override;
    double GetProgress() override { return source.Progress(); }

 private:
    std::unique_ptr<tc::ArrayReader> Open(std::string& error) const;
    int Finish(int code);

    ArraySource source;
    std::string failure;  // to be told when what is before it has reached its receivers
};
