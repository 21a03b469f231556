#pragma once

#include <cstdint>
#include <string>

#include "sigweave/persistence/TCXML.h"
#include "sigweave/persistence/XmlRecord.h"
#include "sigweave/platform/Export.h"
#include "sigweave/signal/TCIOStream.h"

// A recording: the blocks of one stream as an XML document that comes back bit for bit. It is the document of
// TCIOStream::StreamToXML, with many blocks and some additions that XMLToStream passes over:
//
//   Port/Type               the first child of the root: the type string of the port that was recorded; the
//                           attribute Items is its number of items
//   Unit/@Factor,           where the text of a unit does not restore it: the factor as an exact hexadecimal
//   Unit/@Exponents         double, and the seven exponents. The text is then one that can be read
//   @NotFinite              of Double and of the numbers in TypeInfo: the bits of the infinite and
//                           not-a-number values among them, in their order, as hexadecimal digits; the text
//                           has -1.#IND for each
//
// Blocks that hold addresses are refused, written or read: they would mean nothing. Memory is that for one
// block, however long the recording is. Each object is used by one thread.
namespace tc {

// From `Open` on the file is a whole document at any time, whatever happens to the program.
class TC_API StreamRecordWriter {
 public:
    // Creates or replaces the file. With a null type string there is no Port element. All operations answer
    // whether they succeeded; `GetError` then says why not, with the file's name.
    bool Open(const char* path, const char* typeString, int itemCount);
    // The two halves of it, see XmlRecordWriter: a file that is there is as it was until `Begin`.
    bool Prepare(const char* path, bool mayReplace);
    bool Begin(const char* typeString, int itemCount);
    // Takes the next block that waits at the input and appends it.
    bool Append(TCIOStream& input);
    bool Close();
    const std::string& GetError() const { return error; }

 private:
    TC_LOCAL bool AppendType(const char* typeString, int itemCount);
    TC_LOCAL bool Fail(const std::string& reason);

    XmlRecordWriter file;
    TCXML xml;
    std::string path;
    std::string error;
};

class TC_API StreamRecordReader {
 public:
    StreamRecordReader();
    ~StreamRecordReader();

    // Reads as far as it takes to know the type. False with the reason in `GetError`, which names the file
    // and, from the first block on, the block (counted from 1).
    bool Open(const char* path);
    // The type string of the recorded port and its number of items. Without a Port element it follows from
    // the first block; empty and 0 without blocks too.
    const std::string& GetTypeString() const { return typeString; }
    int GetItemCount() const { return itemCount; }

    // 1 when there was a further block; 0 at the end; -1 when it cannot be read, which ends the reading.
    int Next();
    // The block read last; it may be changed. Valid until the next read.
    TCIOStream::Block& GetBlock() { return *block; }
    // Its number, counted from 1.
    std::int64_t GetBlockNumber() const { return number; }
    const std::string& GetError() const { return error; }

 private:
    TC_LOCAL int Read();
    TC_LOCAL int Take();
    TC_LOCAL bool ReadType();
    TC_LOCAL int Fail(const std::string& reason);

    XmlRecordReader file;
    TCXML xml;
    TCIOStream writer;
    TCIOStream queue;
    TCIOStream::Block* block = nullptr;
    std::string path;
    std::string typeString;
    int itemCount = 0;
    std::int64_t number = 0;
    bool waiting = false;  // a block was read when the file was opened
    bool failed = false;
    std::string error;
};

}  // namespace tc
