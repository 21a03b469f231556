#include "studio/server/GraphDocument.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "host/GraphFile.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace studio {
namespace {

namespace fs = std::filesystem;
using tc::Bilingual;

constexpr Bilingual OUTSIDE("%1 was changed by another program",
                            "%1 wurde von einem anderen Programm geändert");
constexpr Bilingual FOLDER(
    "%1 is a folder; name a graph file, or one that is to be made, as in: sigweave studio %1/new.graph",
    "%1 ist ein Ordner; nennen Sie eine Graphdatei oder eine, die entstehen soll, etwa: sigweave studio "
    "%1/neu.graph");
constexpr Bilingual NO_FOLDER(
    "%1 cannot be made, for there is no folder %2; make it first, or name another one",
    "%1 kann nicht entstehen, denn es gibt keinen Ordner %2; legen Sie ihn an, oder "
    "nennen Sie einen anderen");
constexpr Bilingual BAD_NAME(
    "'%1' is no name for a file in this folder; write one without slashes",
    "'%1' ist kein Name für eine Datei in diesem Ordner; schreiben Sie einen ohne Schrägstrich");
constexpr Bilingual THERE("there is a file %1 already; choose another name",
                          "es gibt schon eine Datei %1; wählen Sie einen anderen Namen");

}  // namespace

bool GraphDocument::ReadFile(std::string& content, bool& found, std::string& error) const {
    std::error_code failed;
    found = fs::exists(path, failed);
    content.clear();
    if (!found) return true;
    if (fs::is_directory(path, failed)) {
        error = FOLDER.With({path});
        return false;
    }
    if (!fs::is_regular_file(path, failed)) {
        error = Bilingual("%1 is no ordinary file", "%1 ist keine gewöhnliche Datei").With({path});
        return false;
    }
    host::Mistakes mistakes;
    content = host::GraphFile::ReadText(path, mistakes);
    if (mistakes.IsEmpty()) return true;
    error = path + ": " + mistakes.InOrder().front().text;
    return false;
}

bool GraphDocument::Open(const std::string& filePath, std::string& error) {
    path = filePath;
    if (!ReadFile(stored, exists, error)) return false;
    const fs::path folder = fs::path(path).parent_path();
    if (std::error_code failed; !exists && !folder.empty() && !fs::is_directory(folder, failed)) {
        error = NO_FOLDER.With({path, folder.string()});
        return false;
    }
    text = stored;
    ++version;
    return true;
}

GraphDocument::Step GraphDocument::Difference(const std::string& from, const std::string& to) {
    const std::size_t shorter = std::min(from.size(), to.size());
    std::size_t head = 0;
    while (head < shorter && from[head] == to[head]) ++head;
    std::size_t tail = 0;
    while (tail < shorter - head && from[from.size() - 1 - tail] == to[to.size() - 1 - tail]) ++tail;
    return {head, to.substr(head, to.size() - head - tail), from.substr(head, from.size() - head - tail), {}};
}

void GraphDocument::Change(const std::string& newText, const std::string& run) {
    if (newText == text) return;
    std::string before = text;
    if (!run.empty() && !undo.empty() && undo.back().run == run) {
        const Step& last = undo.back();
        before.replace(last.at, last.now.size(), last.before);
        undo.pop_back();
    }
    undo.push_back(Difference(before, newText));
    undo.back().run = run;
    redo.clear();
    text = newText;
    ++version;
}

void GraphDocument::Take(std::vector<Step>& from, std::vector<Step>& to) {
    if (from.empty()) return;
    Step step = std::move(from.back());
    from.pop_back();
    text.replace(step.at, step.now.size(), step.before);
    std::swap(step.now, step.before);
    step.run.clear();
    to.push_back(std::move(step));
    ++version;
}

void GraphDocument::Undo() {
    Take(undo, redo);
}

void GraphDocument::Redo() {
    Take(redo, undo);
}

bool GraphDocument::HasChangedOutside() const {
    std::string content;
    std::string ignored;
    bool found = false;
    return !ReadFile(content, found, ignored) || found != exists || content != stored;
}

bool GraphDocument::Write(std::string& error) {
    errno = 0;
    const auto file = tc::ReplacedFile::Open(path);
    if (file != nullptr && std::fwrite(text.data(), 1, text.size(), file->Get()) == text.size() &&
        file->Commit()) {
        stored = text;
        exists = true;
        return true;
    }
    error = tc::WhyNotWritten(path, std::generic_category().message(errno));
    return false;
}

GraphDocument::Saving GraphDocument::Save(bool force, std::string& error) {
    if (!force && HasChangedOutside()) {
        error = OUTSIDE.With({path});
        return Saving::ChangedOutside;
    }
    return Write(error) ? Saving::Done : Saving::Failed;
}

GraphDocument::Saving GraphDocument::SaveAs(const std::string& name, std::string& error) {
    const fs::path old(path);
    const bool isPlain =
        !name.empty() && name != "." && name != ".." && name.size() <= 200 &&
        name.find_first_of("/\\") == name.npos &&
        std::ranges::none_of(name, [](char c) { return static_cast<unsigned char>(c) < ' '; });
    std::error_code failed;
    const std::string wanted = (old.parent_path() / name).string();
    if (!isPlain || fs::symlink_status(wanted, failed).type() != fs::file_type::not_found) {
        error = (isPlain ? THERE : BAD_NAME).With({isPlain ? wanted : name});
        return Saving::Failed;
    }
    path = wanted;
    if (Write(error)) return Saving::Done;
    path = old.string();
    return Saving::Failed;
}

bool GraphDocument::Reload(std::string& error) {
    std::string content;
    bool found = false;
    if (!ReadFile(content, found, error)) return false;
    stored = content;
    exists = found;
    if (found) Change(content);
    ++version;
    return true;
}

}  // namespace studio
