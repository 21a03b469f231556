#pragma once

#include <string>

#include "sigweave/services/TCLogFile.h"

namespace host {

struct LogOptions {
    std::string pattern;  // of TCLogFile; empty: no log
    std::string level = "trace";
    int splitKilobytes = 0;  // 0: one file
};

// The messages of modules and the host and the course of a run, in a log file of the process. Any thread;
// nothing happens while the log is closed.
namespace runlog {

// The words for levels, the most serious first.
inline constexpr const char* LEVELS[] = {"emergency", "critical", "error", "warning",
                                         "notice",    "trace",    "data"};

// The file that a log with these options would be written to now; empty for one with a fresh name.
std::string FileOf(const LogOptions& options);
// What comes from now on is kept for the log that is opened next, or until `Close`.
void Hold();
// Writes what is as serious as the level of the options or more. False, with the reason in `error`, when the
// file cannot be written.
bool Open(const LogOptions& options, std::string& error);
// Warns when the log has become incomplete.
void Close();

void FromHost(TCLogFile::LOG_LEVEL level, const std::string& text);
void FromModule(TCLogFile::LOG_LEVEL level, const std::string& module, const std::string& text);
// Of an instance, or of the whole run when the name is empty.
void StateOf(const std::string& instance, const std::string& state);

}  // namespace runlog
}  // namespace host
