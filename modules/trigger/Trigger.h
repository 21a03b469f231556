#pragma once

#include <cstdint>
#include <vector>

#include "modules/common/SignalTrack.h"
#include "modules/trigger/Detector.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Cuts pieces out of every signal that is wired to it, one output for each input: a signal of its own, with
// its own time, for each hit of a condition, from `before` until `after` it. The result does not depend on
// how a signal is cut into blocks; see docs/modules.md for the conditions.
//
// A step sends the end of at most one piece at each output, since receivers take the end of one signal before
// the next one comes. A piece that the end of the signal cuts short is sent as far as it goes, and counted.
class Trigger final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Trigger";

    explicit Trigger(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Cuts out what happens around an event",
                             "Schneidet aus, was um ein Ereignis herum geschieht")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Channel {
        SignalTrack track;
        tc::Detector detector;
        TCTypeInfo first;                // metadata of the signal's first block
        const double* values = nullptr;  // of the block, what has not been looked at
        int left = 0;
        bool working = false;       // on the block
        std::int64_t position = 0;  // in the signal, of `values`
        std::int64_t allowed = 0;   // the next hit is not before this
        std::vector<double> history;
        std::size_t oldest = 0;     // in `history`, once it is full
        std::vector<double> piece;  // what has not been sent of it
        bool opens = false;         // nothing of the piece has been sent
        std::int64_t sent = 0;      // where in the signal that begins
        std::int64_t missing = 0;   // samples after the hit; 0: no piece is open
        bool seen = false;          // by the detector: the first of `values`
        // In samples.
        std::size_t before = 0;
        std::int64_t after = 1;
        std::int64_t holdOff = 1;
        // Results; times in samples of the last signal.
        std::int64_t hits = 0;
        std::int64_t cutShort = 0;
        std::int64_t firstHit = 0;
        std::int64_t lastHit = 0;
    };

    bool FindCondition(const TCSI_Unit& unit, double rate, tc::TriggerCondition& condition,
                       CString& error) const;
    bool Begin(Channel& channel, CString& error) const;
    int Take(unsigned input);
    int Work(unsigned input);
    int Capture(unsigned input);
    void Hit(Channel& channel);
    static void PassBy(Channel& channel, int count);
    static void AddHistory(Channel& channel, std::vector<double>& to);
    int Send(unsigned output, bool last);

    std::vector<Channel> channels;
    TCTypeInfo outgoing;  // of the block that is sent; kept, so that a long name costs no memory each time
};
