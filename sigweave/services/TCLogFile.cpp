#include "sigweave/services/TCLogFile.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <new>
#include <set>
#include <string_view>
#include <thread>
#include <utility>

#include "sigweave/platform/Fork.h"
#include "sigweave/platform/OutputFile.h"
#include "sigweave/platform/PathText.h"
#include "sigweave/platform/Thread.h"
#include "sigweave/services/PrintText.h"
#include "sigweave/services/SystemTime.h"
#include "sigweave/services/TCFormatTime.h"

namespace {

using namespace std::string_view_literals;

constexpr const char* DEFAULT_NAME = "TCLogFile_%yyyy-%MM-%dd_%hh-%mm-%ss.%Us.txt";
constexpr std::string_view SEPARATOR = ", ";
constexpr std::string_view LINE_END = "\r\n";
constexpr int THREAD_WIDTH = 5;
constexpr int MICROSECOND_WIDTH = 6;

constexpr const char* LEVEL_NAMES[] = {"Emergency", "Critical ", "Error    ", "Warning  ",
                                       "Notice   ", "Trace    ", "Data     "};
constexpr const char* NO_LEVEL_NAME = "         ";

std::string_view View(const char* text) {
    return text != nullptr ? text : "";
}

char* Put(char* at, std::string_view text) {
    return std::copy(text.begin(), text.end(), at);
}

// Right-aligned.
char* PutNumber(char* at, unsigned number, int width, char fill) {
    char digits[16];
    char* const last = std::end(digits);
    char* first = last;
    do {
        *--first = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    while (last - first < width) *--first = fill;
    return std::copy(first, last, at);
}

// The slot of the highest bit; that of type 0 is 0.
std::size_t SlotOf(unsigned long logType) {
    return static_cast<std::size_t>(std::bit_width(logType | 1)) - 1;
}

// In 32 bits, deliberately: settings rely on the overflow to switch the splitting off.
std::int64_t SplitLimit(int splitSizeKB) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(splitSizeKB) * 1024U);
}

// To sleep and be woken takes longer than to write a line, so a thread first looks now and then. Not all the
// time: meanwhile the other one writes several lines with what it has in its cache.
std::unique_lock<std::mutex> LockSoon(std::mutex& mutex) {
    constexpr int LOOKS = 20;
    constexpr int YIELDS_BETWEEN = 20;
    for (int look = 0; look < LOOKS; ++look) {
        if (std::unique_lock guard(mutex, std::try_to_lock); guard) return guard;
        for (int i = 0; i < YIELDS_BETWEEN; ++i) std::this_thread::yield();
    }
    return std::unique_lock(mutex);
}

}  // namespace

// All logs of the process. A fork waits until nobody writes, so that the child finds whole lines and free
// locks.
class TCLogFile::Registry {
 public:
    Registry() noexcept { tc::AtFork(LockAll, UnlockAll, UnlockAll); }

    void Add(TCLogFile* log) {
        const std::lock_guard guard(lock);
        logs.insert(log);
    }
    void Remove(TCLogFile* log) {
        const std::lock_guard guard(lock);
        logs.erase(log);
    }

    // Never destroyed: a log may outlive it.
    static Registry& The() {
        static Registry& registry = *new Registry;
        return registry;
    }

 private:
    static void LockAll() {
        The().lock.lock();
        for (TCLogFile* log : The().logs) log->lock.lock();
    }
    static void UnlockAll() {
        for (TCLogFile* log : The().logs) log->lock.unlock();
        The().lock.unlock();
    }

    std::mutex lock;
    std::set<TCLogFile*> logs;
};

TCLogFile::TCLogFile() {
    Registry::The().Add(this);
}

TCLogFile::TCLogFile(const TCLogFile& other) : state(other.CopyState()) {
    Registry::The().Add(this);
}

TCLogFile& TCLogFile::operator=(const TCLogFile& other) {
    if (this == &other) return *this;
    State copy = other.CopyState();
    const std::lock_guard guard(lock);
    state = std::move(copy);
    return *this;
}

TCLogFile::~TCLogFile() {
    Registry::The().Remove(this);
    Close();
}

TCLogFile::State TCLogFile::CopyState() const {
    const std::lock_guard guard(lock);
    return state;
}

// --- Opening and closing

bool TCLogFile::Open(unsigned long logType, unsigned long logLevel, const char* fileName, bool flush,
                     bool append, int splitSizeKB) try {
    const std::lock_guard guard(lock);
    state.pattern = fileName;
    if (state.pattern.IsEmpty() || tc::NativePath(state.pattern).ends_with('/'))
        state.pattern += DEFAULT_NAME;
    TCString expanded = ExpandPattern();
    if (state.file != nullptr && expanded != state.currentName) CloseLocked();
    state.currentName = expanded;
    state.typeMask = static_cast<std::uint32_t>(logType);
    state.levelMask = static_cast<std::uint32_t>(logLevel);
    state.flush = flush;
    state.append = append;
    state.splitLimit = SplitLimit(splitSizeKB);
    if (state.file == nullptr && !OpenCurrent()) return false;
    expanded = state.currentName;
    const TCString converted =
        expanded != state.pattern
            ? TCString::FormatS(", converted to '%s'", static_cast<const char*>(expanded))
            : TCString();
    LogLocked(0, TRACE, "TCLogFile::Open",
              "logType= %d, logLevel= %d, logFlush= %d, logAppend= %d, logFileName is '%s'%s",
              static_cast<int>(logType), static_cast<int>(logLevel), flush, append,
              static_cast<const char*>(state.pattern), static_cast<const char*>(converted));
    return true;
} catch (const std::bad_alloc&) {
    Close();
    return false;
}

// Several that are opened in the same microsecond mean the same file: only one gets it, the others the next.
bool TCLogFile::OpenCurrent() {
    while (!OpenFile(state.currentName)) {
        const int reason = errno;
        const TCString next = ExpandPattern();
        if (reason != EWOULDBLOCK || next == state.currentName) return false;
        state.currentName = next;
    }
    return true;
}

TCString TCLogFile::ExpandPattern() const {
    TCString name;
    return TCFormatTime::FormatTime(name, state.pattern, TCSystemTime(), 0);
}

bool TCLogFile::OpenFile(const char* name) {
    state.bytesWritten = 0;
    state.file = tc::OutputFile::Open(tc::NativePath(name).c_str(), state.append);
    state.open = state.file != nullptr;
    return state.open;
}

bool TCLogFile::Close() {
    const std::lock_guard guard(lock);
    const bool closed = CloseLocked();
    state.open = false;
    return closed;
}

bool TCLogFile::CloseLocked() {
    LogLocked(0, TRACE, "TCLogFile::Close", nullptr);
    return ReleaseFile();
}

bool TCLogFile::CloseFile() {
    const bool closed = ReleaseFile();
    state.open = false;
    return closed;
}

// A file that a copy still writes into is only let go.
bool TCLogFile::ReleaseFile() {
    const std::shared_ptr<tc::OutputFile> file = std::move(state.file);
    return file == nullptr || file.use_count() > 1 || file->Close();
}

// --- Logging

bool TCLogFile::IsLogEnabled(unsigned long logType, LOG_LEVEL level) const {
    return state.open && (logType == 0 || (state.typeMask & logType) != 0) && (state.levelMask & level) != 0;
}

bool TCLogFile::Log(unsigned long logType, LOG_LEVEL level, const char* source, const char* format, ...) {
    if (!IsLogEnabled(logType, level)) return false;
    va_list args;
    va_start(args, format);
    const bool done = LogV(logType, level, source, format, args);
    va_end(args);
    return done;
}

bool TCLogFile::LogV(unsigned long logType, LOG_LEVEL level, const char* source, const char* format,
                     va_list args) {
    if (!IsLogEnabled(logType, level)) return false;
    const std::unique_lock guard = LockSoon(lock);
    return LogLockedV(logType, level, source, format, args);
}

bool TCLogFile::LogLocked(unsigned long logType, LOG_LEVEL level, const char* source, const char* format,
                          ...) {
    va_list args;
    va_start(args, format);
    const bool done = LogLockedV(logType, level, source, format, args);
    va_end(args);
    return done;
}

bool TCLogFile::LogLockedV(unsigned long logType, LOG_LEVEL level, const char* source, const char* format,
                           va_list args) try {
    if (state.file == nullptr || !IsLogEnabled(logType, level)) return false;
    if (format == nullptr) return WriteLine(logType, level, source, nullptr);
    if (!tc::PrintText(state.text, format, args)) {
        state.format = format;
        state.format.Replace("%lpPtr", "0x%08x");
        state.text.FormatV(state.format, args);
    }
    ReplaceNonPrintableCharacters(state.text);
    return WriteLine(logType, level, source, state.text);
} catch (const std::bad_alloc&) {
    return false;
}

bool TCLogFile::LogBinary(unsigned long logType, LOG_LEVEL level, const char* source, const char* text,
                          int length, const void* data) try {
    if (!IsLogEnabled(logType, level) || !View(text).ends_with('>')) return false;
    const std::lock_guard guard(lock);
    if (!IsLogEnabled(logType, level)) return false;
    state.text = text;
    state.text.SetLength(state.text.GetLength() - 1);
    state.text += TCString::FormatS(":%d>", length);
    const TCString& line = MakeLine(logType, level, source, state.text);
    const bool hasData = data != nullptr && length > 0;
    const std::string_view bytes(static_cast<const char*>(data),
                                 hasData ? static_cast<std::size_t>(length) : 0);
    return WriteParts({tc::ViewOf(line), bytes, LINE_END}) && CheckSplitLogFile();
} catch (const std::bad_alloc&) {
    return false;
}

void TCLogFile::ReplaceNonPrintableCharacters(TCString& text) {
    if (std::strpbrk(text, "\r\n\t") == nullptr) return;
    text.Replace("\r", "<\\r>");
    text.Replace("\n", "<\\n>");
    text.Replace("\t", "<\\t>");
}

bool TCLogFile::WriteLine(unsigned long logType, LOG_LEVEL level, const char* source, const char* text) {
    return WriteParts({tc::ViewOf(MakeLine(logType, level, source, text))}) && CheckSplitLogFile();
}

bool TCLogFile::Write(const void* bytes, int count) {
    return WriteParts({{static_cast<const char*>(bytes), static_cast<std::size_t>(count)}});
}

// Counted before they are written, and also when that fails.
bool TCLogFile::WriteParts(std::initializer_list<std::string_view> parts) {
    for (const std::string_view part : parts) state.bytesWritten += static_cast<std::int64_t>(part.size());
    if (state.file == nullptr || !state.file->Write(parts)) return false;
    return !state.flush || state.file->Flush();
}

bool TCLogFile::CheckSplitLogFile() {
    constexpr const char* SOURCE = "TCLogFile::CheckSplitLogFile";
    if (state.splitLimit <= 0 || state.bytesWritten < state.splitLimit) return true;
    const TCString last = state.currentName;
    const TCString next = ExpandPattern();
    const auto write = [&](const char* format, const TCString& name) {
        const TCString text = TCString::FormatS(format, static_cast<const char*>(name));
        return WriteParts({tc::ViewOf(MakeLine(0, TRACE, SOURCE, text))});
    };
    if (!write("Splitting logfile, next file is '%s'", next)) return false;
    state.open = GoOnIn(next);
    if (!state.open) return false;
    state.currentName = next;
    return write("Splitted logfile, last file was '%s'", last);
}

// A file that copies write into, too, can follow itself only while it stays open.
bool TCLogFile::GoOnIn(const TCString& next) {
    if (next != state.currentName || state.file.use_count() == 1) return ReleaseFile() && OpenFile(next);
    state.bytesWritten = 0;
    if (state.append || state.file->Empty()) return true;
    ReleaseFile();
    return false;
}

// --- The line

const TCString& TCLogFile::MakeLine(unsigned long logType, LOG_LEVEL level, const char* source,
                                    const char* text) {
    constexpr std::size_t FIXED = 128;  // of separators, numbers and level
    const std::string_view stamp = tc::ViewOf(GetDateTime());
    const std::string_view type = View(FormatLogType(logType));
    const std::string_view sourceText = View(source);
    const std::string_view message = View(text);
    const std::size_t room = FIXED + stamp.size() + type.size() + sourceText.size() + message.size();
    char* const begin = state.line.GetBuffer(static_cast<int>(std::min<std::size_t>(room, INT32_MAX)));
    char* at = Put(Put(begin, stamp), SEPARATOR);
    at = Put(PutNumber(at, static_cast<unsigned>(tc::CurrentThreadId()), THREAD_WIDTH, ' '), SEPARATOR);
    at = Put(Put(at, type), SEPARATOR);
    at = Put(Put(at, FormatLogLevel(level)), SEPARATOR);
    at = Put(at, sourceText);
    if (!message.empty()) at = Put(Put(at, SEPARATOR), message);
    at = Put(at, LINE_END);
    state.line.ReleaseBuffer(static_cast<int>(at - begin));
    return state.line;
}

// A second is converted once. Fractions that round up to a whole second are written with seven digits,
// deliberately: readers of logs know them.
const TCString& TCLogFile::GetDateTime() {
    constexpr int MICROSECOND_ROOM = 8;
    const double now = TCSystemTime() / 1000;
    const double second = std::floor(now);
    if (static_cast<std::int64_t>(second) != state.dateTimeSecond) {
        state.dateTimeSecond = static_cast<std::int64_t>(second);
        TCFormatTime::FormatTime(state.dateTime, "%yyyy-%MM-%dd %hh:%mm:%ss.", second * 1000, 0);
        state.dateTimePrefix = state.dateTime.GetLength();
    }
    char* const begin = state.dateTime.GetBuffer(state.dateTimePrefix + MICROSECOND_ROOM);
    const auto microseconds = static_cast<unsigned>((now - second) * 1e6 + 0.5);
    const char* const end = PutNumber(begin + state.dateTimePrefix, microseconds, MICROSECOND_WIDTH, '0');
    state.dateTime.ReleaseBuffer(static_cast<int>(end - begin));
    return state.dateTime;
}

const char* TCLogFile::FormatLogLevel(LOG_LEVEL level) const {
    const bool known = std::has_single_bit(static_cast<unsigned>(level)) && level <= DATA;
    return known ? LEVEL_NAMES[std::countr_zero(static_cast<unsigned>(level))] : NO_LEVEL_NAME;
}

// --- Names of types

const char* TCLogFile::FormatLogType(unsigned long logType) const {
    if (logType == 0) return state.generalName;
    const std::size_t slot = SlotOf(logType);
    return slot < TYPES ? static_cast<const char*>(state.typeNames[slot]) : "Unknown log type";
}

void TCLogFile::SetLogTypeNames(const char** names, unsigned long count) try {
    if (names == nullptr) return;
    const std::lock_guard guard(lock);
    for (std::size_t slot = 0; slot < std::min<std::size_t>(count, TYPES); ++slot)
        state.typeNames[slot] = names[slot];
    MakeEqualLength();
} catch (const std::bad_alloc&) {
}

bool TCLogFile::AddLogTypeName(unsigned long logType, const char* name) try {
    const std::size_t slot = SlotOf(logType);
    if (slot >= TYPES) return false;
    const std::lock_guard guard(lock);
    TCString& known = state.typeNames[slot];
    if (known.IsEmpty()) {
        known = name;
        MakeEqualLength();
        return true;
    }
    TCString trimmed = known;
    trimmed.TrimRight(' ');
    const std::string_view a = tc::ViewOf(trimmed);
    const std::string_view b = View(name);
    const std::size_t common = std::min(a.size(), b.size());
    return a.substr(0, common) == b.substr(0, common);
} catch (const std::bad_alloc&) {
    return false;
}

void TCLogFile::MakeEqualLength() {
    int longest = 0;
    for (const TCString& name : state.typeNames) longest = std::max(longest, name.GetLength());
    const auto pad = [longest](TCString& name) {
        if (name.GetLength() < longest) name += TCString(' ', longest - name.GetLength());
    };
    for (TCString& name : state.typeNames)
        if (!name.IsEmpty()) pad(name);
    pad(state.generalName);
}
