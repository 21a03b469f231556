#pragma once

#include <memory>
#include <string>

#include "sigweave/platform/Export.h"

class TCXML;

namespace tc {

// Writes a document of many parts, one part at a time, with memory for one part only. From `Open` on the file
// is a whole document at any time, also after the process was killed: a part appears in it at once.
// Used by one thread; the file is closed by the destructor.
class TC_API XmlRecordWriter {
 public:
    XmlRecordWriter();
    ~XmlRecordWriter();
    XmlRecordWriter(const XmlRecordWriter&) = delete;
    XmlRecordWriter& operator=(const XmlRecordWriter&) = delete;

    // Creates the file, or puts a new one in its place (who reads the old one keeps it), and writes an empty
    // document with that root. All operations answer whether they succeeded; `GetError` then says why not, as
    // for a file that is being written already.
    bool Open(const char* path, const char* root);
    // The children of the root element of `part` become further children of the root.
    bool Append(TCXML& part);
    bool Close();
    const std::string& GetError() const { return error; }

 private:
    struct Impl;
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
    struct Impl;
    std::unique_ptr<Impl> impl;
    std::string error;
};

}  // namespace tc
