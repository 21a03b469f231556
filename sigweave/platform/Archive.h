#pragma once

#include <iosfwd>
#include <string>

#include "sigweave/platform/Export.h"

// What an archive throws when a text is not there or not readable. The causes are stored in settings of
// hosts (never change, only append).
class TC_API CArchiveException {
 public:
    enum Cause { none = 0, endOfFile = 3 };

    explicit CArchiveException(int cause, std::string fileName = {});

    int m_cause;
    std::string m_strFileName;  // empty when no file is known
};

// Lines of text over a standard stream, in one direction. It does not own the stream, which must outlive it.
class TC_API CArchive {
 public:
    explicit CArchive(std::ostream& out) : output(&out) {}
    explicit CArchive(std::istream& in) : input(&in) {}

    bool IsStoring() const { return output != nullptr; }
    bool IsLoading() const { return input != nullptr; }

    // As it is, without adding a line end. Ignored by an archive that loads.
    void WriteString(const char* text);
    // One line, without its end (line feed, or carriage return and line feed). False, and an empty line, at
    // the end of the text and for an archive that stores.
    bool ReadString(std::string& line);
    // The same into a buffer of `maxLength` + 1 bytes; what does not fit is left for the next read. Answers
    // the buffer, or null.
    char* ReadString(char* buffer, unsigned maxLength);

 private:
    std::ostream* output = nullptr;
    std::istream* input = nullptr;
};
