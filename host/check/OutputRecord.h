#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/signal/TCIOStream.h"

namespace host::check {

// What a module made in a run, taken apart into facts that can be compared: the blocks of each output and the
// results. Times count from the first block of the output, since they may be those of the run.
class OutputRecord {
 public:
    // Takes every block that waits there.
    void Take(std::size_t output, TCIOStream& stream);
    void TakeResults(const TCBaseModuleEx& module);

    // The first difference as a sentence; empty when there is none.
    std::string DifferenceTo(const OutputRecord& later) const;
    // What is wrong with the order of the states of the blocks, as a sentence. With `whole`, signals must
    // have ended.
    std::string WrongStates(bool whole) const;
    // The first output all of whose blocks have metadata without a name, and whether they have no unit
    // either.
    struct Nameless {
        std::size_t output = 0;
        bool unitToo = false;
    };
    std::optional<Nameless> FirstNameless() const;

 private:
    struct Fact {
        std::string what;
        std::string value;
        double time = 0.0;  // of a timestamp, in place of the value
    };
    struct Output {
        double firstTime = 0.0;
        bool hasTime = false;
        int blocks = 0;
        int named = 0;
        int withUnit = 0;
        std::vector<Fact> facts;
        std::vector<TCBLOCKSTATUS> states;
    };

    void AddMetadata(Output& output, const std::string& where, const TCTypeInfo& info);
    void AddSegment(Output& output, const std::string& where, const TCIOStream::DataSegment& segment);
    void AddBlock(Output& output, const std::string& where, const TCIOStream::Block& block);

    std::vector<Output> outputs;
    std::vector<Fact> results;
};

}  // namespace host::check
