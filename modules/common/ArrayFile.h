#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>

#include "modules/common/ArraySource.h"
#include "modules/common/SharedSettings.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace tc {

// The parameters of a source of arrays: the file, with that filter, the name of the array, and what says how
// it is read.
constexpr std::array<TCModuleParameter, 7> ArrayFileParameters(const char* filter, const char* name,
                                                               const Bilingual& label) {
    constexpr Bilingual FILE_GROUP("File", "Datei");
    return {
        {{.name = "file",
          .kind = TCModuleParameter::FILE,
          .defaultValue = nullptr,
          .help = {"the file to read", "die zu lesende Datei"},
          .label = {"File", "Datei"},
          .group = FILE_GROUP,
          .fileFilter = filter},
         {.name = name,
          .kind = TCModuleParameter::TEXT,
          .defaultValue = "",
          .help = {"its name; empty: the only one, or samples", "Name; leer: der einzige Name, oder samples"},
          .label = label,
          .group = FILE_GROUP},
         {.name = "channels",
          .kind = TCModuleParameter::CHOICE,
          .defaultValue = "auto",
          .help = {"what a channel is in an array of two dimensions; auto: the longer direction",
                   "was in einem Feld mit zwei Dimensionen ein Kanal ist; auto: die längere Richtung"},
          .choices = CHOICE_WORDS<ARRAY_LAYOUTS>,
          .label = {"Channels", "Kanäle"},
          .group = FILE_GROUP},
         {.name = "unit",
          .kind = TCModuleParameter::TEXT,
          .defaultValue = "",
          .help = {"of the values, as V or m/s^2; empty: that of the file",
                   "der Werte, wie V oder m/s^2; leer: die der Datei"},
          .label = {"Unit", "Einheit"},
          .group = FILE_GROUP},
         {.name = "rate",
          .kind = TCModuleParameter::NUMBER,
          .defaultValue = "0",
          .unit = "Hz",
          .help = {"samples per second; 0: that of the file",
                   "Abtastwerte je Sekunde; 0: die Rate der Datei"},
          .minimum = 0.0,
          .label = {"Samplerate", "Abtastrate"},
          .group = TIME_GROUP},
         BLOCK_PARAMETER,
         {.name = "start",
          .kind = TCModuleParameter::TEXT,
          .defaultValue = "",
          .help = {"UTC time of the first sample, as 2026-03-01T12:00:00Z; empty: that of the file, else of "
                   "the run",
                   "Zeit des ersten Abtastwerts in UTC, wie 2026-03-01T12:00:00Z; leer: die der Datei, sonst "
                   "des Laufs"},
          .label = {"Start time", "Startzeit"},
          .group = TIME_GROUP}}};
}

}  // namespace tc

// What distinguishes the sources of arrays: their files.
struct ArrayFileKind {
    const char* id;
    tc::Bilingual description;
    std::span<const TCModuleParameter> parameters;  // as ArrayFileParameters answers
    const char* name;                               // the parameter that names the array
    // Opens the array of that name; null with a line in `error`, which begins with a parameter's name.
    std::unique_ptr<tc::ArrayReader> (*open)(const std::string& path, const std::string& name,
                                             tc::ArrayLayout layout, std::string& error);
};

// Plays an array of a file into the graph, by pieces: one output for each channel, and all of them as one
// bus. Name, unit, samplerate and start time come from the file unless they are set; a file that `sigweave
// export` wrote needs no setting.
//
// The ports follow from the file, so they are declared when the settings are known.
class ArrayFile : public TCBaseModuleEx {
 public:
    // The kind must outlive it.
    ArrayFile(int instance, const ArrayFileKind& fileKind);

    const char* GetModuleId() const override { return kind.id; }
    const char* GetDescription() const override { return kind.description.Text(); }
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    int Done() override;
    double GetProgress() override { return source.Progress(); }

 private:
    std::unique_ptr<tc::ArrayReader> Open(std::string& error) const;

    const ArrayFileKind& kind;
    ArraySource source;
    std::string failure;  // to be told when what is before it has reached its receivers
};
