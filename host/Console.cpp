#include "host/Console.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iostream>
#include <limits>
#include <map>
#include <mutex>
#include <string_view>

#include "host/Guard.h"
#include "host/Messages.h"
#include "host/RunLog.h"
#include "host/parts/TextCapture.h"
#include "sigweave/platform/Event.h"
#include "sigweave/platform/Process.h"
#include "sigweave/platform/StandardStreams.h"
#include "sigweave/services/Bilingual.h"

namespace host::console {
namespace {

using messages::Collection;
using tc::Bilingual;

constexpr const char* CLEAR_LINE = "\r\033[K";

std::mutex mutex;
std::atomic<bool> silenced{false};

std::string progress;
std::map<std::string, std::string> instances;
std::function<std::string()> currentSpeaker;

// The whole program, or this thread, whose messages are collected.
bool IsSilent() {
    return silenced || Collection::Current() != nullptr;
}

// False when not all of it was written.
bool WriteTo(StandardStream stream, const std::string& text) {
    std::FILE* const file = tc::KeptStream(stream);
    return file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size() &&
           std::fflush(file) == 0;
}

// How many bytes of a UTF-8 character come after this one.
std::size_t BytesAfter(unsigned char first) {
    return first < 0xC2 || first > 0xF4 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
}

std::string Escape(unsigned code) {
    char text[16];
    std::snprintf(text, sizeof text, "\\u%04x", code);
    return text;
}

// Texts may come from anywhere; what a terminal takes as a command is written by its number, as in JSON. Line
// ends and tabs stay.
std::string ForTerminal(std::string_view text) {
    std::string safe;
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const auto continues = [&](std::size_t i) { return (byte(i) & 0xC0U) == 0x80U; };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned code = byte(i);
        std::size_t after = BytesAfter(static_cast<unsigned char>(code));
        for (std::size_t k = 1; k <= after; ++k)
            if (!continues(i + k)) after = 0;
        const bool isLongControl = code == 0xC2 && after == 1 && byte(i + 1) < 0xA0;
        const bool isControl = (code < 0x20 && code != '\n' && code != '\t') || (code >= 0x7F && code < 0xA0);
        safe += isLongControl ? Escape(byte(i + 1))
                : isControl   ? Escape(code)
                              : std::string(text.substr(i, after + 1));
        i += after;
    }
    return safe;
}

void Write(const std::string& text) {
    WriteTo(StandardStream::Error, text);
}

// In the graph; empty when the module is not of it.
std::string FindInstance(const std::string& moduleName) {
    const Collection* const own = Collection::Current();
    const std::lock_guard lock(mutex);
    const std::map<std::string, std::string>& names = own != nullptr ? own->instances : instances;
    const auto found = names.find(moduleName);
    return found != names.end() ? found->second : std::string();
}

}  // namespace

void Say(const std::string& line) {
    Tell(line + "\n");
}

void Tell(const std::string& lines) {
    if (lines.empty() || IsSilent()) return;
    const std::lock_guard lock(mutex);
    const std::string text = ForTerminal(lines);
    Write(progress.empty() ? text : CLEAR_LINE + text + progress);
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

bool Print(const std::string& original) {
    std::fflush(stdout);  // what modules printed comes before it
    const std::string text = TCIsTerminal(StandardStream::Output) ? ForTerminal(original) : original;
    const bool written = WriteTo(StandardStream::Output, text);
    if (!written)
        Error(Bilingual(
                  "standard output cannot be written; is the disk full, or the reader gone?",
                  "die Standardausgabe ist nicht beschreibbar; ist der Datenträger voll oder der Leser fort?")
                  .Text());
    return written;
}

void NameInstance(const std::string& moduleName, const std::string& instance) {
    if (Collection* own = Collection::Current()) {
        own->instances[moduleName] = instance;
        return;
    }
    const std::lock_guard lock(mutex);
    instances[moduleName] = instance;
}

void SetSpeaker(std::function<std::string()> speaker) {
    Collection* const own = Collection::Current();
    (own != nullptr ? own->speaker : currentSpeaker) = std::move(speaker);
}

std::string Speaker() {
    const Collection* const own = Collection::Current();
    const std::function<std::string()>& speaker = own != nullptr ? own->speaker : currentSpeaker;
    return speaker ? speaker() : std::string();
}

std::string FullName(const std::string& moduleName) {
    const std::string instance = FindInstance(moduleName);
    return instance.empty() ? moduleName : instance + " (" + moduleName + ")";
}

namespace {

// The instance's name in the graph, else the module's.
std::string InstanceName(const std::string& moduleName) {
    const std::string instance = FindInstance(moduleName);
    return instance.empty() ? moduleName : instance;
}

Severity SeverityOf(const Bilingual* word) {
    if (word == &ERROR_WORD) return Severity::Error;
    return word == &WARNING_WORD ? Severity::Warning : Severity::Note;
}

}  // namespace

void FromModule(const Bilingual* severity, TCLogFile::LOG_LEVEL level, const char* module, const char* text) {
    const std::string name = FullName(module != nullptr ? module : Bilingual("a module", "ein Modul").Text());
    const char* const told = text != nullptr ? text : Bilingual("(no text)", "(ohne Text)").Text();
    if (std::vector<PartText>* const capture = TextCapture::Current()) {
        const int number = severity != nullptr ? static_cast<int>(SeverityOf(severity)) : -1;
        capture->push_back({PartText::Kind::Module, number, level, Text(module), told});
        return;
    }
    if (severity != nullptr) Say(std::string(severity->Text()) + ": " + name + ": " + told);
    runlog::FromModule(level, name, told);
    if (severity != nullptr)
        messages::Add({SeverityOf(severity), InstanceName(Text(module)), told, {}, true});
}

void BeSilent() {
    silenced = true;
}

bool CanAsk() {
    return !IsSilent() && TCIsTerminal(StandardStream::Input) && TCIsTerminal(StandardStream::Error);
}

bool Ask(const std::string& question) {
    if (!CanAsk()) return false;
    Write(ForTerminal(question) + Bilingual(" [y/N] ", " [j/N] ").Text());
    std::string answer;
    constexpr const char* YES[] = {"y", "Y", "yes", "j", "J", "ja"};
    return std::getline(std::cin, answer) &&
           std::find(std::begin(YES), std::end(YES), answer) != std::end(YES);
}

bool ReadLine(const std::string& prompt, bool hidden, const Interruption& wish, std::string& line) {
    const tc::HiddenTyping typing(hidden);  // first, for who sees the prompt may type at once
    Write(ForTerminal(prompt));
    // A signal between a look at the wish and the read would leave the read waiting.
    void* const awaited[] = {wish.Handle(), tc::StandardInputHandle()};
    tc::WaitForAnyHandle(awaited, std::numeric_limits<double>::infinity());
    const bool isRead = !wish.IsRaised() && std::getline(std::cin, line);
    if (isRead && line.ends_with('\r')) line.pop_back();
    if (hidden || !isRead) Write("\n");
    return isRead;
}

void ShowProgress(const std::string& text) {
    if (!TCIsTerminal(StandardStream::Error)) return;
    const std::lock_guard lock(mutex);
    if (ForTerminal(text) == progress) return;
    progress = ForTerminal(text);
    Write(CLEAR_LINE + progress);
}

}  // namespace host::console
