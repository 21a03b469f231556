// Messages of the studio's page: a message, then the text of a graph that its changes are made in.
#include "fuzz/Fuzz.h"
#include "host/GraphFile.h"
#include "studio/server/Command.h"
#include "studio/server/Gate.h"

namespace {

using studio::Command;
using studio::Edit;

void CheckLimits(const Command& command) {
    fuzz::Require(command.id >= 0 && command.name.size() <= 1000, "names and numbers are bounded");
    for (const studio::Wish& wish : command.wishes) {
        fuzz::Require(wish.seconds > 0.0 && wish.seconds <= 1e6, "windows are bounded");
        fuzz::Require(wish.samples >= 0 && wish.samples <= 65536, "samples are bounded");
    }
}

// A change that is refused leaves the text alone; one that is made reads back without new syntax mistakes.
void MakeChanges(const Command& command, std::string text) {
    for (const Edit& edit : command.edits) {
        const std::string before = text;
        std::string error;
        host::Mistakes old;
        host::Mistakes now;
        host::GraphFile::Parse("g", before, old);
        if (EditGraph(edit, text, error)) {
            const bool isEmpty = host::GraphFile::Parse("g", text, now).GetInstances().empty();
            fuzz::Require(!old.IsEmpty() || now.IsEmpty() || isEmpty, "a good text stays good");
        } else {
            fuzz::RequireSame(text, before, "a refused change changes nothing");
            fuzz::Require(!error.empty(), "a refusal has a reason");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view all(reinterpret_cast<const char*>(data), size);
    const std::size_t split = std::min(all.find('\0'), all.size());
    Command command;
    std::string error;
    if (ReadCommand(all.substr(0, split), command, error)) {
        CheckLimits(command);
        MakeChanges(command, std::string(all.substr(std::min(split + 1, all.size()))));
    } else {
        fuzz::Require(!error.empty() && command.edits.empty(), "what is refused has a reason and no content");
    }
    const studio::Gate gate("secret", 80);
    const studio::Visitor visitor{"GET", all, all, all, all, true};
    fuzz::Require(gate.Judge(visitor) != studio::Gate::Answer::Serve || all.find("secret") != all.npos,
                  "nobody comes in without the token");
    return 0;
}
