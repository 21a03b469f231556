// Paths: arithmetic, tokens and TCFilePath. Parts of an input: a base folder and a path.
#include <algorithm>
#include <cstring>

#include "fuzz/Fuzz.h"
#include "sigweave/services/PathArithmetic.h"
#include "sigweave/services/PathTokens.h"
#include "sigweave/services/TCFilePath.h"

namespace {

// Variables that contain each other; and no home, so that no folder can be made.
bool PrepareEnvironment() {
    clearenv();
    setenv("HOME", "/dev/null/home", 1);
    setenv("A", "a", 1);
    setenv("B", "<%C%>", 1);
    setenv("C", "%B%%A%", 1);
    setenv("D", "%D", 1);
    setenv("L", std::string(300, 'l').c_str(), 1);
    setenv("P", "c:\\p", 1);
    setenv("E", "", 1);
    return true;
}

void CheckArithmetic(const char* base, const char* path) {
    const TCString absolute = MakeAbsPath(base, path);
    fuzz::Require(absolute.GetLength() <= 259, "a path has at most 259 bytes");
    fuzz::Require(absolute.Find('/') < 0, "and no slashes");
    fuzz::RequireSame(MakeAbsPath(CString(base), CString(path)), fuzz::Bytes(absolute),
                      "both kinds of texts give one path");
    const TCString relative = MakeRelPath(base, path);
    fuzz::Require(relative.GetLength() <= 259, "a relative path has at most 259 bytes");
    const bool isWhole = std::string_view(base).size() + std::string_view(path).size() < 250;
    if (!isWhole || !TCFilePath::IsAbsolute(base)) return;
    // A lone separator becomes the empty path.
    fuzz::Require(MakeAbsPath(base, absolute) == (absolute == "\\" ? TCString() : absolute),
                  "an absolute path stays");
    fuzz::Require(MakeAbsPath(base, relative).CompareNoCase(absolute) == 0,
                  "a relative path leads to the same place");
}

void CheckTokens(const std::string& path) {
    for (const bool folders : {false, true}) {
        std::string resolved = path;
        const int count = tc::ResolvePathTokens(resolved, {.folders = folders});
        fuzz::Require(count >= 0 && std::count(resolved.begin(), resolved.end(), '%') <= 1,
                      "no token is left");
        TCString same(path.c_str());
        fuzz::Require(TCFilePath::Resolve(same, folders, true) == count, "both kinds of texts resolve");
        fuzz::RequireSame(fuzz::Bytes(same), resolved, "to the same");
    }
}

// With a whole absolute folder; a relative one leads elsewhere from each place.
void CheckSettings(const TCFilePath& file, const char* base) {
    const TCString relative = file.GetRelPath();
    if (!TCFilePath::IsAbsolute(base) || std::strchr(base, '%') != nullptr || relative.GetLength() > 200)
        return;
    TCFilePath again(base);
    again.SetPath(relative);
    fuzz::RequireSame(fuzz::Bytes(again.GetRelPath()), fuzz::Bytes(relative),
                      "what settings store stays the same");
}

void CheckFilePath(const char* base, const char* path) {
    TCFilePath file(base);
    file.EnableResolveCSIDL(true);
    file.EnableResolveEnvironment(true);
    file.SetPath(path);
    fuzz::Require(file.HasChanged() == !file.IsEmpty() && !file.HasChanged(), "a change is told once");
    const std::string absolute(file.GetAbsPath());
    const std::string folder(file.GetDirectory());
    const std::string name(file.GetFileName());
    fuzz::Require(absolute == folder + name || absolute == folder + "\\" + name,
                  "folder and name are the path");
    const std::string extension(file.GetFileExt());
    const std::string title(file.GetFileTitle());
    fuzz::Require(name == title + extension || name == title + "." + extension,
                  "title and extension are the name");
    CheckSettings(file, base);
    TCString compact(path);
    TCFilePath::MakeCompactPath(compact, 100, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool isPrepared = PrepareEnvironment();
    fuzz::Require(isPrepared, "there is an environment");
    fuzz::Parts parts(data, size);
    const std::string base = parts.Next();
    const std::string path = parts.Next();
    CheckArithmetic(base.c_str(), path.c_str());
    CheckTokens(path);
    CheckFilePath(base.c_str(), path.c_str());
    return 0;
}
