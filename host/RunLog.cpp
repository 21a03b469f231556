#include "host/RunLog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "host/Console.h"
#include "sigweave/platform/PathText.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/SystemTime.h"
#include "sigweave/services/TCFormatTime.h"

namespace host::runlog {
namespace {

using tc::Bilingual;

enum LogType : unsigned long { HOST = 1, MODULE = 2, STATE = 4 };

constexpr const char* TYPE_NAMES[] = {"Host", "Module", "State"};
constexpr unsigned long ALL_TYPES = HOST | MODULE | STATE;

struct Entry {
    LogType type;
    TCLogFile::LOG_LEVEL level;
    std::string source;
    std::string text;
};

TCLogFile logFile;
std::mutex heldLock;
std::optional<std::vector<Entry>> held;
std::atomic<bool> incomplete{false};

// The level and all that are more serious; levels are bits in the order of the words.
unsigned long MaskOf(const std::string& level) {
    const auto index = std::find(std::begin(LEVELS), std::end(LEVELS), level) - std::begin(LEVELS);
    return (2UL << index) - 1;
}

bool IsHeld(LogType type, TCLogFile::LOG_LEVEL level, const std::string& source, const std::string& text) {
    const std::lock_guard guard(heldLock);
    if (held) held->push_back({type, level, source, text});
    return held.has_value();
}

std::vector<Entry> TakeHeld() {
    const std::lock_guard guard(heldLock);
    std::vector<Entry> entries = held ? std::move(*held) : std::vector<Entry>();
    held.reset();
    return entries;
}

void Write(LogType type, TCLogFile::LOG_LEVEL level, const std::string& source, const std::string& text) {
    if (IsHeld(type, level, source, text)) return;
    if (!logFile.IsLogEnabled(type, level)) return;
    if (!logFile.Log(type, level, source.c_str(), "%s", text.c_str())) incomplete = true;
}

std::string ReasonOf(int error) {
    if (error == EWOULDBLOCK)
        return Bilingual("another program is writing it", "ein anderes Programm schreibt gerade darin")
            .Text();
    return std::generic_category().message(error);
}

}  // namespace

std::string FileOf(const LogOptions& options) {
    if (options.pattern.empty() || options.pattern.ends_with('/') || options.pattern.ends_with('\\'))
        return {};
    TCString name;
    TCFormatTime::FormatTime(name, TCString(options.pattern.c_str()), TCSystemTime(), 0);
    return tc::NativePath(name);
}

void Hold() {
    const std::lock_guard guard(heldLock);
    held.emplace();
}

bool Open(const LogOptions& options, std::string& error) {
    const std::vector<Entry> entries = TakeHeld();
    if (options.pattern.empty()) return true;
    const char* names[std::size(TYPE_NAMES)];
    std::copy(std::begin(TYPE_NAMES), std::end(TYPE_NAMES), names);
    logFile.SetLogTypeNames(names, std::size(names));
    incomplete = false;
    if (logFile.Open(ALL_TYPES, MaskOf(options.level), options.pattern.c_str(), false, true,
                     options.splitKilobytes)) {
        for (const Entry& entry : entries) Write(entry.type, entry.level, entry.source, entry.text);
        return true;
    }
    const std::string reason = ReasonOf(errno);
    error = Bilingual("the log '%1' cannot be written: %2; name another place with --log",
                      "das Protokoll '%1' ist nicht beschreibbar: %2; nennen Sie mit --log einen anderen Ort")
                .With({options.pattern, reason});
    return false;
}

void Close() {
    TakeHeld();
    if (!logFile.Close()) incomplete = true;
    if (incomplete.exchange(false))
        console::Warning(Bilingual("the log is incomplete: a line could not be written; is the disk full?",
                                   "das Protokoll ist unvollständig: eine Zeile ließ sich nicht schreiben; "
                                   "ist der Datenträger voll?")
                             .Text());
}

void FromHost(TCLogFile::LOG_LEVEL level, const std::string& text) {
    Write(HOST, level, "sigweave", text);
}

void FromModule(TCLogFile::LOG_LEVEL level, const std::string& module, const std::string& text) {
    Write(MODULE, level, module, text);
}

void StateOf(const std::string& instance, const std::string& state) {
    Write(STATE, TCLogFile::NOTICE, instance.empty() ? "run" : instance, state);
}

}  // namespace host::runlog
