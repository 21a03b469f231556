#pragma once

#include <functional>
#include <string>

#include "host/Interruption.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/TCLogFile.h"

namespace host {

// Control characters of a text, which could command a terminal, are shown by their numbers, as \u001b;
// standard output has them so when it is a terminal, and else as they are. Everything that is said while the
// program works goes to standard error through here, so that standard output has only the report. Whole
// lines only, from any thread; on a terminal one progress line stays below them. Messages of errors and
// modules also go to the log of the run.
namespace console {

// How serious a message is.
inline constexpr tc::Bilingual ERROR_WORD("error", "Fehler");
inline constexpr tc::Bilingual WARNING_WORD("warning", "Warnung");
inline constexpr tc::Bilingual NOTE_WORD("note", "Hinweis");

void Say(const std::string& line);
// Lines with their ends; none for an empty text.
void Tell(const std::string& lines);
void Error(const std::string& text);
void Warning(const std::string& text);

// Writes to standard output. True when all of it was written; a full disk or a closed pipe is reported as
// an error.
bool Print(const std::string& text);

// Text of a module: shown with the instance's name in the graph when the module's display name is known, else
// with the display name. `severity` is one of the words above; null leaves the text to the log of the run.
void FromModule(const tc::Bilingual* severity, TCLogFile::LOG_LEVEL level, const char* module,
                const char* text);
void NameInstance(const std::string& moduleName, const std::string& instance);
// Says whose work the thread of the run is doing, for texts that come without a name; null: nobody's.
void SetSpeaker(std::function<std::string()> speaker);
std::string Speaker();
// "levels (Statistics)", or the module's name alone.
std::string FullName(const std::string& moduleName);

// From now on nothing is written to standard error and nobody is asked: for programs that show messages in
// another place. Messages still are collected, and go to the log.
void BeSilent();

// Whether a question can be asked: a person reads standard error and types on standard input.
bool CanAsk();
// False for every answer but yes, in English or German, and when nobody can answer.
bool Ask(const std::string& question);

// Asks for a line on a terminal, without its end; what is typed for a hidden one does not appear. False when
// the input has ended or the wish for an end is raised, also if that was just before.
bool ReadLine(const std::string& prompt, bool hidden, const Interruption& wish, std::string& line);

// Draws the line anew, or with an empty text takes it away. Nothing happens when standard error is no
// terminal.
void ShowProgress(const std::string& text);

}  // namespace console
}  // namespace host
