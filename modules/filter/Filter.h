#pragma once

#include <limits>
#include <string>
#include <vector>

#include "modules/common/SignalTrack.h"
#include "modules/common/WholeSignal.h"
#include "modules/filter/SectionCascade.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// A low, high or band pass, a band stop or a notch, of every signal that is wired to it, one output for each
// input. Each signal begins with zero states, or with those that its first value would leave if it had been
// there forever; they go on over the borders of its blocks, so that the result does not depend on how a
// signal is cut. With zero phase the whole signal is kept until it ends, and filtered forwards and backwards.
//
// Values are filtered as they are stored; name, timestamps, samplerate, unit and states go with them, also
// those of a block without samples, but for zero phase, whose blocks are cut anew. The range does not: a
// filter overshoots, so the output says nothing about it (the widest there is).
//
// The filter is designed when a signal begins, for its samplerate: a corner that this rate cannot have fails
// the run, and so does a samplerate or unit that changes within a signal. A corner that changes in a run
// changes the filter and keeps its states; one that a signal cannot have is refused, also when the signal is
// still to come and its rate is foretold or waits at the input. With zero phase those corners count that hold
// when the signal ends. A value that is not finite spoils everything after it in its signal, with zero phase
// all of it, with a warning.
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
    int Fetch() override;
    int Execute() override;
    bool OnLiveChanged(TCString& error) override;

 private:
    struct Channel {
        SignalTrack track;
        tc::SectionCascade cascade;
        double rate = std::numeric_limits<double>::quiet_NaN();  // that the cascade is made for
        bool settled = false;                                    // the states are those for the first value
        bool told = false;                                       // that it has values that are not finite
        WholeSignal whole;                                       // of zero phase
    };

    bool HasUpperCorner() const;
    std::string WhyBadCorners(double rate, const std::string& signal) const;
    bool BeginsNext(unsigned input) const;
    std::string WhyBadCornersOfNext(unsigned input) const;
    int Take(unsigned input);
    bool Begin(unsigned input, CString& error);
    std::vector<tc::Section> Sections(double rate) const;
    int Pass(unsigned input, const double* values, int count);
    int EndWhole(unsigned input);

    bool zeroPhase = false;
    bool settles = false;
    std::vector<Channel> channels;
    std::vector<double> foretoldRates;  // by input; 0: not known
    std::vector<double> buffer;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
