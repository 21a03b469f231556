#pragma once

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>
#include <mutex>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

namespace tc {

class OutputFile;

// A value that one thread sets under a lock while others look at it without.
template <typename T>
class Watched {
 public:
    Watched() = default;
    Watched(const Watched& other) : value(other) {}
    Watched& operator=(const Watched& other) { return *this = static_cast<T>(other); }
    Watched& operator=(T newValue) {
        value.store(newValue, std::memory_order_relaxed);
        return *this;
    }
    operator T() const { return value.load(std::memory_order_relaxed); }

 private:
    std::atomic<T> value{};
};

}  // namespace tc

// A text log: a line per call, into one file at a time.
//
//     TCLogFile log;
//     log.Open(1, 0x7F, "/var/log/measuring/", false, false, 1024);
//     log.Log(1, TCLogFile::NOTICE, "Filter", "corner frequency %g Hz", frequency);
//
//     2024-03-05 07:08:09.012345,  4711, Logging, Notice   , Filter, corner frequency 50 Hz
//
// A line has the local time, the thread, the name of the log type, the level, the source and the text; it
// ends in CR LF. Log types say which part of a program speaks: bit n is type 2^n, and type 0 is of no part.
// The masks of types and levels decide what is written. Library entries have type 0 and level TRACE.
//
// Any thread may log; every line reaches the file whole, with the call, and is on the disk with it when the
// log flushes. A copy writes into the same open file and has a lock of its own; the file is closed with the
// last of them. While a log has a file open for writing, others that share nothing with it are refused it;
// reading it is free. A child after a fork goes on in the parent's file; who closes it in one of the two
// leaves it to the other.
//
// Nothing throws or is reported: failures (also of a line that memory cannot hold) answer false, and so does
// what the masks keep out.
class TC_API TCLogFile {
 public:
    // A bit each (never change, only append).
    enum LOG_LEVEL : unsigned {
        EMERGENCY = 1,
        CRITICAL = 2,
        ERROR = 4,
        WARNING = 8,
        NOTICE = 16,
        TRACE = 32,
        DATA = 64
    };

    // Closed, and nothing enabled.
    TCLogFile();
    TCLogFile(const TCLogFile& other);
    // The file that was open here is released.
    TCLogFile& operator=(const TCLogFile& other);
    // Closes the log.
    virtual ~TCLogFile();

    // Opens the file, or changes the settings of the open one. `fileName` is a pattern with the tokens of
    // TCFormatTime; empty or ending in a slash or backslash it gets a default name followed by the time.
    // When it expands to another name than that of the open file, that one is closed. `append` keeps what an
    // existing file holds; `flush` brings every line to the disk, which takes milliseconds.
    //
    // A name that another log has just taken, and that holds the time, is expanded again.
    //
    // At `splitSizeKB` the log goes on in a new file: the pattern is expanded anew, and without a time in it
    // the file is begun anew. 0 and, deliberately for settings that rely on the overflow, all sizes whose
    // bytes wrap to a negative number of 32 bits or to 0 never split. A file that cannot be opened, here or
    // at a split, leaves the log closed.
    bool Open(unsigned long logType, unsigned long logLevel, const char* fileName, bool flush, bool append,
              int splitSizeKB);
    // False only when the system reports that something was lost.
    bool Close();

    // By the rules of printf; besides them %lpPtr writes the low 32 bits of a pointer, as 0x0012abcd: it is
    // replaced by 0x%08x first, deliberately also after another percent sign. CR, LF and tab become <\r>,
    // <\n> and <\t>. Without text (a null format) the line ends after the source.
    bool Log(unsigned long logType, LOG_LEVEL level, const char* source, const char* format, ...);
    bool LogV(unsigned long logType, LOG_LEVEL level, const char* source, const char* format, va_list args);
    // A line whose text ends in the length, then the bytes as they are, then CR LF. The text, written as it
    // is, must end in ">": rx> with 12 bytes is written as rx:12>. Null data is left out.
    bool LogBinary(unsigned long logType, LOG_LEVEL level, const char* source, const char* text, int length,
                   const void* data);

    // Whether a call would be written now. Takes no lock.
    bool IsLogEnabled(unsigned long logType, LOG_LEVEL level) const;

    // Names the types 2^0, 2^1 and so on, at most 32; the others keep theirs. Names are padded to the same
    // length, so that the columns of the file line up.
    void SetLogTypeNames(const char** names, unsigned long count);
    // Names the type of the highest bit, for type 0 that of bit 0. Where it has a name already, this one
    // stays, and the answer is whether the shorter of the two is how the other begins. False for types beyond
    // 32 bits.
    bool AddLogTypeName(unsigned long logType, const char* name);

 protected:
    // The steps of writing. They take no lock: a derived class calls them only while nobody else logs.

    bool OpenFile(const char* name);
    bool CloseFile();
    bool Write(const void* bytes, int count);
    // Writes the line and splits the file where it is due.
    bool WriteLine(unsigned long logType, LOG_LEVEL level, const char* source, const char* text);
    // Valid until the next line is made.
    const TCString& MakeLine(unsigned long logType, LOG_LEVEL level, const char* source, const char* text);
    // The time stamp of a line that is made now. Valid until the next one.
    const TCString& GetDateTime();
    const char* FormatLogType(unsigned long logType) const;
    const char* FormatLogLevel(LOG_LEVEL level) const;
    void MakeEqualLength();
    bool CheckSplitLogFile();
    static void ReplaceNonPrintableCharacters(TCString& text);

 private:
    static constexpr std::size_t TYPES = 32;

    // What a copy takes over.
    struct State {
        std::shared_ptr<tc::OutputFile> file;  // null: closed
        // Whether there is a file, between calls. It does not waver when one file follows another: callers
        // that look at it without the lock would lose their lines.
        tc::Watched<bool> open;
        tc::Watched<std::uint32_t> typeMask;
        tc::Watched<std::uint32_t> levelMask;
        bool flush = false;
        bool append = false;
        TCString pattern;
        TCString currentName;
        TCString dateTime;
        std::int64_t dateTimeSecond = -1;  // that the stamp's beginning shows
        int dateTimePrefix = 0;            // length of that beginning
        std::array<TCString, TYPES> typeNames;
        TCString generalName = "Logging";
        TCString line;
        TCString text;
        TCString format;
        std::int64_t splitLimit = 0;  // bytes; not positive: never
        std::int64_t bytesWritten = 0;
    };

    class TC_LOCAL Registry;

    TC_LOCAL State CopyState() const;
    TC_LOCAL bool OpenCurrent();
    TC_LOCAL TCString ExpandPattern() const;
    TC_LOCAL bool WriteParts(std::initializer_list<std::string_view> parts);
    TC_LOCAL bool LogLocked(unsigned long logType, LOG_LEVEL level, const char* source, const char* format,
                            ...);
    TC_LOCAL bool LogLockedV(unsigned long logType, LOG_LEVEL level, const char* source, const char* format,
                             va_list args);
    TC_LOCAL bool CloseLocked();
    TC_LOCAL bool ReleaseFile();
    TC_LOCAL bool GoOnIn(const TCString& next);

    State state;
    mutable std::mutex lock;
};
