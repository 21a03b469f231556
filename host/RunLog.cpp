#include "host/RunLog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>

#include "host/Console.h"
#include "sigweave/services/Bilingual.h"

namespace host::runlog {
namespace {

using tc::Bilingual;

enum LogType : unsigned long { HOST = 1, MODULE = 2, STATE = 4 };

constexpr const char* TYPE_NAMES[] = {"Host", "Module", "State"};
constexpr unsigned long ALL_TYPES = HOST | MODULE | STATE;

TCLogFile logFile;
std::atomic<bool> incomplete{false};

// The level and all that are more serious; levels are bits in the order of the words.
unsigned long MaskOf(const std::string& level) {
    const auto index = std::find(std::begin(LEVELS), std::end(LEVELS), level) - std::begin(LEVELS);
    return (2UL << index) - 1;
}

void Write(LogType type, TCLogFile::LOG_LEVEL level, const std::string& source, const std::string& text) {
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

std::string Open(const LogOptions& options) {
    if (options.pattern.empty()) return "";
    const char* names[std::size(TYPE_NAMES)];
    std::copy(std::begin(TYPE_NAMES), std::end(TYPE_NAMES), names);
    logFile.SetLogTypeNames(names, std::size(names));
    incomplete = false;
    if (logFile.Open(ALL_TYPES, MaskOf(options.level), options.pattern.c_str(), false, true,
                     options.splitKilobytes))
        return "";
    const std::string reason = ReasonOf(errno);
    return Bilingual("the log '%1' cannot be written: %2", "das Protokoll '%1' ist nicht beschreibbar: %2")
        .With({options.pattern, reason});
}

void Close() {
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
