#pragma once

#include <limits>
#include <string>
#include <vector>

#include "modules/filter/SectionCascade.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// A Butterworth low, high or band pass, or band stop, of every signal that is wired to it, one output for
// each input. Each signal begins with zero states, which go on over the borders of its blocks, so that the
// result does not depend on how a signal is cut.
//
// Values are filtered as they are stored; name, timestamps, samplerate, unit and states go with them, also
// those of a block without samples. The range does not: a filter overshoots, so the output says nothing about
// it (the widest there is).
//
// The filter is designed when a signal begins, for its samplerate: a corner that this rate cannot have fails
// the run, and so does a samplerate or unit that changes within a signal. A corner that changes in a run
// changes the filter and keeps its states; one that a signal cannot have is refused, also when the signal
// is still to come and its rate is foretold or waits at the input. A value that is not
// finite spoils everything after it in its signal, with a warning.
class Filter final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Filter";

    explicit Filter(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Passes or stops a band of frequencies",
                             "Lässt ein Frequenzband durch oder sperrt es")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    bool OnLiveChanged(TCString& error) override;

 private:
    struct Channel {
        tc::SectionCascade cascade;
        double rate = std::numeric_limits<double>::quiet_NaN();  // that the cascade is made for
        bool open = false;                                       // the signal's end has not come yet
        bool told = false;                                       // that it has values that are not finite
        TCTypeInfo metadata;
    };

    bool HasUpperCorner() const;
    std::string WhyBadCorners(double rate, const std::string& signal) const;
    bool BeginsNext(unsigned input) const;
    std::string WhyBadCornersOfNext(unsigned input) const;
    int Prepare(unsigned input);
    int Design(unsigned input);
    std::vector<tc::Section> Sections(double rate) const;
    int Pass(unsigned input);
    void Watch(unsigned input);

    std::vector<Channel> channels;
    std::vector<double> foretoldRates;  // by input; 0: not known
    std::vector<double> buffer;
};
