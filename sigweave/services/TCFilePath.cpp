#include "sigweave/services/TCFilePath.h"

#include <filesystem>
#include <string>
#include <string_view>

#include "sigweave/platform/CodePage.h"
#include "sigweave/platform/PathText.h"
#include "sigweave/services/PathArithmetic.h"
#include "sigweave/services/PathTokens.h"

namespace {

TCPathChooser* pathChooser = nullptr;

constexpr std::string_view ELLIPSIS = "...";
constexpr const char* HERE = ".";

TCString ToTCString(std::string_view text) {
    return TCString().AllocCopy(text);
}

// --- Compact paths, in characters

std::size_t CountCharacters(std::string_view text) {
    std::size_t count = 0;
    for (const char *p = text.data(), *end = p + text.size(); p < end; ++count)
        p += tc::CharacterAt(p, end).bytes;
    return count;
}

std::string_view FirstCharacters(std::string_view text, std::size_t count) {
    const char* p = text.data();
    const char* const end = p + text.size();
    for (; count > 0 && p < end; --count) p += tc::CharacterAt(p, end).bytes;
    return {text.data(), p};
}

// The name after as much of its folder as there is room for.
std::string Compact(std::string_view path, std::size_t room) {
    if (CountCharacters(path) <= room) return std::string(path);
    // The backslash at the end of a folder belongs to its name.
    const std::size_t last = tc::LastSeparator(path.substr(0, path.size() - 1));
    const std::size_t split = last == std::string_view::npos ? 0 : last;
    const std::string end = std::string(ELLIPSIS).append(path.substr(split));
    const std::size_t needed = CountCharacters(end);
    if (split > 0 && needed <= room)
        return std::string(FirstCharacters(path.substr(0, split), room - needed)) + end;
    const std::string_view name = path.substr(last == std::string_view::npos ? 0 : last + 1);
    if (CountCharacters(name) <= room) return std::string(name);
    const std::size_t kept = room > ELLIPSIS.size() ? room - ELLIPSIS.size() : 0;
    return std::string(FirstCharacters(name, kept)).append(ELLIPSIS);
}

// Where the point before the extension is; npos: there is none. A hidden file's point is part of its title.
std::size_t ExtensionPoint(const TCString& name) {
    const std::size_t point = tc::ViewOf(name).rfind('.');
    return point != 0 ? point : std::string_view::npos;
}

}  // namespace

void TCSetPathChooser(TCPathChooser* chooser) {
    pathChooser = chooser;
}

void TCFilePath::SetPath(const char* newPath) {
    path = RelativeToBase(newPath);
}

// A path that climbs out of a relative base folder keeps its "..": without, it would name a place below it.
TCString TCFilePath::RelativeToBase(const char* given) const {
    const TCString base = BaseFolder();
    TCString relative = MakeRelPath(base, given);
    const bool isSame = IsAbsolute(relative) || MakeAbsPath(base, relative) == MakeAbsPath(base, given);
    return isSame ? relative : MakeAbsPath(HERE, given);
}

TCString TCFilePath::BaseFolder() const {
    TCString folder = defaultFolder;
    Resolve(folder, true, true);
    return folder;
}

TCString TCFilePath::GetAbsPath() const {
    TCString resolved = path;
    Resolve(resolved, resolveFolders, resolveEnvironment);
    const TCString base = BaseFolder();
    return MakeAbsPath(base.IsEmpty() ? TCString(HERE) : base, resolved);
}

TCString TCFilePath::GetRelPath() const {
    return RelativeToBase(path);
}

TCString TCFilePath::GetDirectory() const {
    const TCString full = GetAbsPath();
    const std::size_t root = tc::PathRootLength(tc::ViewOf(full));
    const std::size_t last = tc::LastSeparator(tc::ViewOf(full));
    if (last == std::string_view::npos || last < root) return ToTCString(tc::ViewOf(full).substr(0, root));
    return ToTCString(tc::ViewOf(full).substr(0, last));
}

TCString TCFilePath::GetFileName() const {
    const TCString full = GetAbsPath();
    const std::size_t root = tc::PathRootLength(tc::ViewOf(full));
    const std::size_t last = tc::LastSeparator(tc::ViewOf(full));
    return ToTCString(
        tc::ViewOf(full).substr(last == std::string_view::npos || last < root ? root : last + 1));
}

TCString TCFilePath::GetFileTitle() const {
    const TCString name = GetFileName();
    return ToTCString(tc::ViewOf(name).substr(0, ExtensionPoint(name)));
}

TCString TCFilePath::GetFileExt() const {
    const TCString name = GetFileName();
    const std::size_t point = ExtensionPoint(name);
    return point == std::string_view::npos ? TCString() : ToTCString(tc::ViewOf(name).substr(point + 1));
}

bool TCFilePath::HasChanged() {
    const bool changed = path != known;
    known = path;
    return changed;
}

TCFilePath::DialogResult TCFilePath::Ask(TCPathQuestion question) {
    if (pathChooser == nullptr) return NOT_AVAILABLE;
    const auto orEmpty = [](const char* text) { return text != nullptr ? text : ""; };
    const std::string proposal = tc::NativePath(GetAbsPath());
    question.title = orEmpty(question.title);
    question.filter = orEmpty(question.filter);
    question.proposal = proposal.c_str();
    CString chosen;
    if (!pathChooser->Choose(question, chosen)) return CANCELLED;
    if (tc::HasOneOf(chosen, "\r\n*?\"<>|")) return REFUSED_NAME;
    SetPath(chosen.c_str());
    return CHOSEN;
}

TCFilePath::DialogResult TCFilePath::DoFileDialog(bool open, const char* title, const char* filter,
                                                  CWnd* parent) {
    const auto kind = open ? TCPathQuestion::OPEN_FILE : TCPathQuestion::SAVE_FILE;
    return Ask({kind, title, filter, nullptr, parent});
}

TCFilePath::DialogResult TCFilePath::DoFileOpenDialog(const char* title, const char* filter, CWnd* parent) {
    return DoFileDialog(true, title, filter, parent);
}

TCFilePath::DialogResult TCFilePath::DoFileSaveDialog(const char* title, const char* filter, CWnd* parent) {
    return DoFileDialog(false, title, filter, parent);
}

TCFilePath::DialogResult TCFilePath::DoFolderDialog(const char* title, CWnd* parent) {
    return Ask({TCPathQuestion::FOLDER, title, nullptr, nullptr, parent});
}

bool TCFilePath::CreateRecursiveDirectory(const char* folder) {
    const std::string native = tc::NativePath(folder);
    std::error_code error;
    std::filesystem::create_directories(native, error);
    return std::filesystem::is_directory(native, error);
}

int TCFilePath::Resolve(TCString& path, bool resolveCSIDL, bool resolveEnvironment) {
    std::string text(tc::ViewOf(path));
    const int count = Resolve(text, resolveCSIDL, resolveEnvironment);
    path.AllocCopy(text);
    return count;
}

int TCFilePath::Resolve(CString& path, bool resolveCSIDL, bool resolveEnvironment) {
    return tc::ResolvePathTokens(path, {resolveCSIDL, resolveEnvironment});
}

bool TCFilePath::IsAbsolute(const char* path) {
    return tc::PathRootLength(tc::PreparePath(path)) != 0;
}

bool TCFilePath::MakeCompactPath(TCString& path, int width, HWND window) {
    const CDC* context = window != nullptr ? window->GetDC() : TCGetScreenDC();
    const int characterWidth = context != nullptr ? context->GetAverageCharWidth() : 0;
    if (characterWidth <= 0) return false;
    const auto room = static_cast<std::size_t>(width > 0 ? width / characterWidth : 0);
    const std::string prepared = tc::PreparePath(path);
    const std::string compact = Compact(prepared, room);
    path.AllocCopy(compact);
    return CountCharacters(compact) <= room;
}
