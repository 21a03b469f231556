#pragma once

#include <memory>
#include <string>

#include "sigweave/platform/Export.h"

class TCXML;

namespace tc {

// Writes a document of many parts, one part at a time, with memory for one part only. From `Open` on the file
// is a whole document at any time, also for who reads it meanwhile and after the process was killed: a part
// appears in it at once. Until `Close` an instruction <?part follows the document, with room for what comes
// (docs/recordings.md). A part that holds an instruction itself is no such thing while it is written.
// Used by one thread; the file is closed by the destructor.
class TC_API XmlRecordWriter {
 public:
    XmlRecordWriter();
    ~XmlRecordWriter();
    XmlRecordWriter(const XmlRecordWriter&) = delete;
    XmlRecordWriter& operator=(const XmlRecordWriter&) = delete;

    // Creates the file, or puts a new one in its place (see ReplacedFile: its mode and owner stay, and who
    // reads the old one keeps it), with an empty document of that root. All operations answer whether they
    // succeeded; `GetError` then says why not, as for a file that is being written already. The old file is
    // whole then.
    bool Open(const char* path, const char* root);
    // The first half of it: makes sure that the file can be written, and that nobody else does it, and
    // changes nothing of it until `Begin`. Without `mayReplace` both fail when it is there.
    bool Prepare(const char* path, const char* root, bool mayReplace);
    bool Begin();
    // The children of the root element of `part` become further children of the root.
    bool Append(TCXML& part);
    // Takes the room away, unless somebody reads the file just then.
    bool Close();
    const std::string& GetError() const { return error; }

 private:
    struct TC_LOCAL Impl;
    std::unique_ptr<Impl> impl;
    std::string error;
};

// Reads such a document, or any other, one child element of the root at a time.
class TC_API XmlRecordReader {
 public:
    XmlRecordReader();
    ~XmlRecordReader();
    XmlRecordReader(const XmlRecordReader&) = delete;
    XmlRecordReader& operator=(const XmlRecordReader&) = delete;

    // False when the file cannot be opened, or has no root element of that name.
    bool Open(const char* path, const char* root);
    // Makes `part` a document of the root with the next child element alone. 1 when there was one, 0 at the
    // end of a whole document, -1 when the document is damaged or cut off there.
    int Next(TCXML& part);
    const std::string& GetError() const { return error; }

 private:
    struct TC_LOCAL Impl;
    std::unique_ptr<Impl> impl;
    std::string error;
};

}  // namespace tc
