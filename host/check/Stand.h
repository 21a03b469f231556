#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/check/BlockMaker.h"
#include "host/check/CheckSubject.h"
#include "host/check/OutputRecord.h"

namespace host::check {

// The types of the lines to a module's inputs. Empty for a module without inputs.
using Wiring = std::vector<LineType>;

// "DOUBLE[]{TIME_DOMAIN}", or what there is to say of a module without inputs.
std::string ToText(const Wiring& wiring);

// How a module answered the call that begins a run, or one in it.
struct Answer {
    int code = 0;
    std::string call;  // "Init"
    std::string text;  // of the module, for a negative code

    bool IsRefusal() const { return code < 0; }
};

// A module alone with streams to feed it and to take what it makes, driven in the order of a host:
//
//   construct (settings applied) -> Wire -> Begin -> Feed, Pump -> End
//
// Throws a finding when the module breaks a rule: a negative code without a text, work without end, an answer
// that means nothing. Needs a main window.
class Stand {
 public:
    // Settings that are not given and have no default are made up, as far as they are no input files. With
    // `withSettings` false none is applied.
    explicit Stand(CheckSubject& checkSubject, int instance = 0, bool withSettings = true);
    ~Stand();
    Stand(const Stand&) = delete;
    Stand& operator=(const Stand&) = delete;

    TCBaseModule& Module() { return *module; }
    TCBaseModuleEx* Extended() { return extended; }  // null when it has no parameters
    // Whether it may need more than it has to begin a run: a file, or a parameter without default.
    bool NeedsMore() const { return needsMore; }
    // "file=output.csv", the settings that were made up.
    std::string MadeUp() const;
    bool IsSource() { return module->GetTypeOfModule() == 1; }

    // Asks for as many inputs as there are types, adds the lines and connects the streams, of all outputs
    // too. False when an input refuses its type.
    bool Wire(const Wiring& wiring);
    void Unwire();
    // The wirings that the inputs take, each type by itself; `inputs` is asked of modules that take any
    // number.
    static std::vector<Wiring> AcceptedWirings(CheckSubject& subject, int inputs);

    Answer Begin();
    // One block for an input. 1 when it was written, or the stream's answer.
    int Feed(unsigned input, BlockMaker& maker, const BlockPlan& plan);
    // Lets it work as long as it moves blocks; what it makes goes to `record` (null: nowhere). A source that
    // does not end is interrupted.
    Answer Pump(OutputRecord* record);
    // One Fetch and, when there is work, one Execute. `moved` says whether a block was taken or made.
    Answer Step(bool& hasWork, bool& moved);
    Answer End();
    // Begin, the blocks of all plans to every input with Pump after each, End. Stops at the first refusal.
    Answer Run(BlockMaker& maker, const std::vector<BlockPlan>& plans, OutputRecord* record);
    // What the module made since the last call.
    void Collect(OutputRecord* record);
    // Of the current run, on all outputs.
    int BlocksMade() const { return blocksMade; }

 private:
    void ApplySettings();
    void SetGivenValues();
    void MakeUpSettings();
    std::string GivenValue(const TCModuleParameter& parameter, const std::string& value) const;
    Answer Judge(const char* call, int code);
    int Waiting() const;
    int Made() const;

    CheckSubject& subject;
    std::vector<std::unique_ptr<TCIOStream>> feeders;    // by input; null where there is no line
    std::vector<std::unique_ptr<TCIOStream>> receivers;  // by output
    std::vector<TCIOStream*> queues;                     // the module's own streams of its inputs
    ModulePointer module;
    TCBaseModuleEx* extended = nullptr;
    bool needsMore = false;
    std::vector<const char*> madeUp;  // names of parameters
    Wiring lines;
    int blocksMade = 0;
};

}  // namespace host::check
