#include "host/Console.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>

#include "host/RunLog.h"
#include "sigweave/platform/Process.h"
#include "sigweave/platform/StandardStreams.h"
#include "sigweave/services/Bilingual.h"

namespace host::console {
namespace {

using tc::Bilingual;

constexpr const char* CLEAR_LINE = "\r\033[K";

std::mutex mutex;
std::string progress;
std::map<std::string, std::string> instances;
std::function<std::string()> currentSpeaker;

// False when not all of it was written.
bool WriteTo(StandardStream stream, const std::string& text) {
    std::FILE* const file = tc::KeptStream(stream);
    return file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size() &&
           std::fflush(file) == 0;
}

void Write(const std::string& text) {
    WriteTo(StandardStream::Error, text);
}

}  // namespace

void Say(const std::string& line) {
    const std::lock_guard lock(mutex);
    Write(progress.empty() ? line + "\n" : CLEAR_LINE + line + "\n" + progress);
}

void Error(const std::string& text) {
    Say(std::string(ERROR_WORD.Text()) + ": " + text);
    runlog::FromHost(TCLogFile::ERROR, text);
}

void Warning(const std::string& text) {
    Say(std::string(WARNING_WORD.Text()) + ": " + text);
    runlog::FromHost(TCLogFile::WARNING, text);
}

bool Print(const std::string& text) {
    std::fflush(stdout);  // what modules printed comes before it
    const bool written = WriteTo(StandardStream::Output, text);
    if (!written)
        Error(Bilingual(
                  "standard output cannot be written; is the disk full, or the reader gone?",
                  "die Standardausgabe ist nicht beschreibbar; ist der Datenträger voll oder der Leser fort?")
                  .Text());
    return written;
}

void NameInstance(const std::string& moduleName, const std::string& instance) {
    const std::lock_guard lock(mutex);
    instances[moduleName] = instance;
}

void SetSpeaker(std::function<std::string()> speaker) {
    currentSpeaker = std::move(speaker);
}

std::string Speaker() {
    return currentSpeaker ? currentSpeaker() : std::string();
}

std::string FullName(const std::string& moduleName) {
    const std::lock_guard lock(mutex);
    const auto found = instances.find(moduleName);
    return found != instances.end() ? found->second + " (" + moduleName + ")" : moduleName;
}

void FromModule(const Bilingual* severity, TCLogFile::LOG_LEVEL level, const char* module, const char* text) {
    const std::string name = FullName(module != nullptr ? module : Bilingual("a module", "ein Modul").Text());
    const char* const told = text != nullptr ? text : Bilingual("(no text)", "(ohne Text)").Text();
    if (severity != nullptr) Say(std::string(severity->Text()) + ": " + name + ": " + told);
    runlog::FromModule(level, name, told);
}

bool CanAsk() {
    return TCIsTerminal(StandardStream::Input) && TCIsTerminal(StandardStream::Error);
}

bool Ask(const std::string& question) {
    if (!CanAsk()) return false;
    Write(question + Bilingual(" [y/N] ", " [j/N] ").Text());
    std::string answer;
    constexpr const char* YES[] = {"y", "Y", "yes", "j", "J", "ja"};
    return std::getline(std::cin, answer) &&
           std::find(std::begin(YES), std::end(YES), answer) != std::end(YES);
}

void ShowProgress(const std::string& text) {
    if (!TCIsTerminal(StandardStream::Error)) return;
    const std::lock_guard lock(mutex);
    if (text == progress) return;
    progress = text;
    Write(CLEAR_LINE + progress);
}

}  // namespace host::console
