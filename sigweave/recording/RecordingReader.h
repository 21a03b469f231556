#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sigweave/platform/Export.h"
#include "sigweave/recording/RecordingWriter.h"
#include "sigweave/signal/TCIOStream.h"

namespace tc {

// What a recording says of one of its signals. Where the beginning of the file is lost, what is not known is
// empty, and the name is "signal" with the number in the file.
struct RecordingSignal {
    int channel = 0;            // its number in the file, from 1
    std::string name;           // of the signal, by its first block; else of the port; UTF-8
    std::string port;           // of the recorder; UTF-8
    std::string type;           // the port's type string; where it is lost, one that the first block fits
    int items = 0;              // and its number of items; 0: not known
    std::string unit;           // as TCSI_Unit::ToString writes it
    double rate = 0.0;          // samples per second; 0: not known
    std::int64_t blocks = 0;    // the number of its last block, counted from 1
    std::int64_t samples = 0;   // elements in the first arrays of its blocks
    std::uint64_t endTime = 0;  // time of its last block in nanoseconds since 1970
};

// Where something of a recording is lost.
struct RecordingDamage {
    enum Kind {
        NO_RECORD,  // these bytes are nothing, and whole blocks follow
        BLOCK,      // the place of a block is whole, and the block is not
        MISSING     // blocks of a signal are not there, up to `block`; the bytes are those of the one after
    };
    Kind kind = NO_RECORD;
    std::int64_t offset = 0;  // in bytes from the beginning of the file
    std::int64_t size = 0;    // in bytes
    int signal = -1;          // index among the signals; -1: not known
    std::int64_t block = 0;   // of that signal, counted from 1; 0: not known
    std::int64_t count = 0;   // of blocks that are missing
};

// Reads recordings (docs/recordings.md), also damaged ones, ones that were cut off and ones that another
// process is writing. Nothing in the file is trusted: lengths and offsets are checked before they are used,
// no memory is taken beyond what is there, and each block is checked as it is read. Used by one thread.
class TC_API RecordingReader {
 public:
    enum class Opening {
        BY_INDEX,  // signals and counts come from the last index that can be found, and what follows it
        BY_SCAN    // from every record of the file
    };

    RecordingReader();
    ~RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    // All others wait for it. False with the reason in `GetError`, which names the file, when it cannot be
    // read or is no recording.
    bool Open(const char* path, Opening opening = Opening::BY_INDEX);

    void Close();

    // By index; more may follow while blocks are read, when the beginning of the file is damaged.
    const std::vector<RecordingSignal>& GetSignals() const;
    // Empty when they are lost.
    const RecordingFacts& GetFacts() const;
    std::string GetFact(const char* name) const;  // empty: there is none
    std::int64_t GetFileSize() const;
    // Whether the recorder closed the file.
    bool IsClosed() const;
    // Bytes at the end of the file, behind the last whole record, that are none.
    std::int64_t GetBytesBehind() const;
    // Whether a program has the file open for writing.
    bool IsBeingWritten() const;

    // Goes on to the next block, of whichever signal. 1: there was one. 0: there is none, or none yet (see
    // Refresh). -1: something is lost there, as `GetError` and the last of `GetDamages` say; the next call
    // goes on with what follows.
    int Next();
    // The same without reading the block: what is damaged within it is not found.
    int NextPlace();
    // The one read or found last: the index of its signal; its number there, counted from 1; where its
    // packed frame is in the file, in bytes; and its time in nanoseconds since 1970.
    int GetSignal() const;
    std::int64_t GetBlockNumber() const;
    std::int64_t GetFrameOffset() const;
    std::int64_t GetFrameSize() const;
    std::uint64_t GetTime() const;
    // After NextPlace, elements in the first arrays of the signal's blocks up to this one with it; where
    // blocks are lost, those that the next index knows of are counted from there on.
    std::int64_t GetSampleCount() const;
    // The block read last; it may be changed. Valid until the next read. Not after NextPlace.
    TCIOStream::Block& GetBlock();
    // Those that were met since Open or Rewind, in the order of the file.
    const std::vector<RecordingDamage>& GetDamages() const;
    // For people: what is lost, and where.
    std::string Describe(const RecordingDamage& damage) const;

    // Back to the first block.
    void Rewind();
    // The next block will be that one of the signal, counted from 1, or the one that holds the sample,
    // counted from 0; where that is lost, the one after it. False, and nothing changes, when there is none.
    // Takes a few reads where the file has its index.
    bool Seek(int signal, std::int64_t block);
    bool SeekSample(int signal, std::int64_t sample);
    // The file as memory that cannot be written, as long as it was when it was opened; null when the system
    // refuses that. From then on blocks are read there, which spares NextPlace and Seek the bytes of the
    // blocks that they pass. It stays as long as a copy of the pointer does. A recording only ever grows;
    // should somebody shorten it all the same, looking at bytes that are gone ends the process.
    std::shared_ptr<const char> Map();
    // Looks how long the file is now. False when it has become shorter: then only Open helps.
    bool Refresh();
    // Whether it has become shorter; what was mapped must not be looked at then.
    bool IsShorter() const;

    const std::string& GetError() const { return error; }

 private:
    struct TC_LOCAL Impl;
    TC_LOCAL void FindTypes();

    std::unique_ptr<Impl> impl;
    std::string error;
};

}  // namespace tc
