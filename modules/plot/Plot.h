#pragma once

#include <vector>

#include "modules/plot/Envelope.h"
#include "modules/plot/Picture.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Draws the signals that are wired to it into an SVG or PNG picture, made by the program gnuplot at the end
// of the run. Its inputs adopt the type of their line: of a frequency-domain signal, where each block
// is a spectrum, the last one is drawn, in decibels of its unit, or all of them in colour over time, of every
// other the whole run as a waveform. Names, units, rates and the
// start time come from the blocks; a samplerate that is no number above 0 fails the run, without a picture.
// Memory does not grow with the signals (see Envelope, Heatmap).
class Plot final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Plot";

    explicit Plot(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Draws waveforms and spectra into a picture",
                             "Zeichnet Zeitverläufe und Spektren in ein Bild")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    void GetFiles(TCArray<TCModuleFile>& files) const override;
    void CheckStart(TCStartCheck& check) override;
    int Init() override;
    int Execute() override;
    int Done() override;

 private:
    struct Curve {
        Envelope envelope;
        Heatmap heatmap;
        TCTypeInfo metadata;
        bool begun = false;
        bool spectrum = false;
        std::int64_t inSignal = 0;  // spectra
        bool overTime = false;      // all of them are drawn
    };

    std::string WhyNoRoom() const;
    bool IsSpectrum(unsigned input) const;
    int Panels() const;
    int Take(unsigned input);
    bool TakeSpectrum(Curve& curve, const double* values, int count) const;
    // Those that have anything to draw.
    std::vector<tc::PictureSignal> Signals() const;
    void WarnOfGaps();
    int Draw();

    std::vector<Curve> curves;
    bool ready = false;  // between a successful Init and Done, unless a signal cannot be drawn
};
