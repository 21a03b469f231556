#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "sigweave/platform/Export.h"
#include "sigweave/signal/TCIOStream.h"

namespace tc {

// What a recording says of the run that made it: names and values, as "graph" and its text, in UTF-8.
using RecordingFacts = std::vector<std::pair<std::string, std::string>>;

// Writes blocks of several streams to one recording (docs/recordings.md): a file that only ever grows, which
// another process may read at any moment, and which has every block whose `Append` returned, whatever happens
// to the program then. Blocks come back bit for bit; those that hold addresses are refused. Memory is that
// for one block, or for several with 256 KB together. Used by one thread.
//
//   Prepare -> AddSignal... -> Begin -> Append... -> Close
//
// Operations answer whether they succeeded; `GetError` then says why not, with the file's name.
class TC_API RecordingWriter {
 public:
    RecordingWriter();
    ~RecordingWriter();  // closes
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    // Makes sure that the file can be written and that nobody else does it, and changes nothing of it until
    // `Begin`. Without `mayReplace` both fail when it is there.
    bool Prepare(const char* path, bool mayReplace);
    // Declares a signal by the name of its port and the port's type string (null: none) and number of items;
    // answers its number, counted from 0. At most 65,535.
    int AddSignal(const std::string& port, const char* typeString, int itemCount);
    // Creates the file, or puts it in the place of the old one, with these facts.
    bool Begin(const RecordingFacts& facts);
    // From now on what was written is on the disk after that many seconds at the latest. Between Begin and
    // Close; once. Failures are reported by the next operation.
    bool SyncEvery(double seconds);
    // Puts on the disk what all recordings of this process have so far, and waits for it. False, with the
    // reason and the file's name, when that fails for one. Any thread.
    static bool SyncAll(std::string& error);
    // Takes the next block that waits at the input and writes it. A block that cannot be packed is taken too.
    bool Append(int signal, TCIOStream& input);
    // The same for blocks that come together, by few writes: the next block of each input, which are numbered
    // as the signals are; null: none of that signal. Ends with the first failure; what comes after it still
    // waits.
    bool AppendEach(std::span<TCIOStream* const> inputs);
    // Ends the file. A file that is not ended can be read as well.
    bool Close();
    // Of that signal, so far.
    std::int64_t GetBlockCount(int signal) const;
    const std::string& GetError() const { return error; }

 private:
    struct TC_LOCAL Impl;
    struct TC_LOCAL Begun;
    TC_LOCAL bool Gather(int signal, TCIOStream& input);
    TC_LOCAL bool WriteGathered();
    TC_LOCAL bool FailToWrite();
    TC_LOCAL bool Fail(const std::string& reason);

    std::unique_ptr<Impl> impl;
    std::string error;
};

}  // namespace tc
