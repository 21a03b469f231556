#include "host/Console.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>

#include "host/Guard.h"
#include "host/Messages.h"
#include "host/RunLog.h"
#include "sigweave/platform/Process.h"
#include "sigweave/services/Bilingual.h"

namespace host::console {
namespace {

using tc::Bilingual;

constexpr const char* CLEAR_LINE = "\r\033[K";

std::mutex mutex;
std::string progress;
std::map<std::string, std::string> instances;
std::function<std::string()> currentSpeaker;

void Write(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

}  // namespace

void Say(const std::string& line) {
    Tell(line + "\n");
}

void Tell(const std::string& lines) {
    if (lines.empty()) return;
    const std::lock_guard lock(mutex);
    Write(progress.empty() ? lines : CLEAR_LINE + lines + progress);
}

void Error(const std::string& text) {
    Say(std::string(ERROR_WORD.Text()) + ": " + text);
    runlog::FromHost(TCLogFile::ERROR, text);
    messages::Add({Severity::Error, "", text, {}, true});
}

void Warning(const std::string& text) {
    Say(std::string(WARNING_WORD.Text()) + ": " + text);
    runlog::FromHost(TCLogFile::WARNING, text);
    messages::Add({Severity::Warning, "", text, {}, true});
}

bool Print(const std::string& text) {
    const bool written =
        std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
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

namespace {

// The instance's name in the graph, else the module's.
std::string InstanceName(const std::string& moduleName) {
    const std::lock_guard lock(mutex);
    const auto found = instances.find(moduleName);
    return found != instances.end() ? found->second : moduleName;
}

Severity SeverityOf(const Bilingual* word) {
    if (word == &ERROR_WORD) return Severity::Error;
    return word == &WARNING_WORD ? Severity::Warning : Severity::Note;
}

}  // namespace

void FromModule(const Bilingual* severity, TCLogFile::LOG_LEVEL level, const char* module, const char* text) {
    const std::string name = FullName(module != nullptr ? module : Bilingual("a module", "ein Modul").Text());
    const char* const told = text != nullptr ? text : Bilingual("(no text)", "(ohne Text)").Text();
    if (severity != nullptr) Say(std::string(severity->Text()) + ": " + name + ": " + told);
    runlog::FromModule(level, name, told);
    if (severity != nullptr)
        messages::Add({SeverityOf(severity), InstanceName(Text(module)), told, {}, true});
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
