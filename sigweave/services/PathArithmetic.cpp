#include "sigweave/services/PathArithmetic.h"

#include <vector>

#include "sigweave/platform/CodePage.h"

namespace tc {

namespace {

constexpr std::size_t LONGEST_PATH = 259;
constexpr char SEPARATOR = '\\';
constexpr auto NOWHERE = std::string_view::npos;

// Calls `visit` with each whole character and where it begins, until it answers false. In some character sets
// the second byte of a character may look like a backslash.
template <typename Visit>
void EachCharacter(std::string_view text, Visit visit) {
    for (std::size_t at = 0; at < text.size();) {
        const Character character = CharacterAt(text.data() + at, text.data() + text.size());
        const auto bytes = static_cast<std::size_t>(character.bytes);
        if (!visit(at, text.substr(at, bytes))) return;
        at += bytes;
    }
}

std::string_view CutAtBound(std::string_view text) {
    std::size_t length = 0;
    EachCharacter(text, [&](std::size_t at, std::string_view character) {
        if (at + character.size() > LONGEST_PATH) return false;
        length = at + character.size();
        return true;
    });
    return text.substr(0, length);
}

std::size_t FindSeparator(std::string_view text, std::size_t start) {
    std::size_t found = NOWHERE;
    EachCharacter(text.substr(start), [&](std::size_t at, std::string_view character) {
        if (character.front() == SEPARATOR) found = start + at;
        return found == NOWHERE;
    });
    return found;
}

bool EndsWithSeparator(std::string_view text) {
    return !text.empty() && LastSeparator(text) == text.size() - 1;
}

std::string_view WithoutEndSeparator(std::string_view text) {
    return EndsWithSeparator(text) ? text.substr(0, text.size() - 1) : text;
}

// Resolves "." and "..", segment by segment.
class CanonicalPath {
 public:
    explicit CanonicalPath(std::string_view prepared) {
        const std::string_view input = CutAtBound(prepared);
        std::size_t at = PathRootLength(input);
        path = input.substr(0, at);
        // A drive's own folder: its point follows no backslash and stays.
        const std::string_view first = input.substr(at, 2);
        if (at > 0 && !EndsWithSeparator(path) && (first == "." || first == ".\\")) {
            segments.push_back(at);
            path += first;
            at += first.size();
        }
        while (at < input.size()) {
            const std::size_t end = FindSeparator(input, at);
            const std::size_t next = end == NOWHERE ? input.size() : end + 1;
            Add(input.substr(at, end == NOWHERE ? NOWHERE : end - at), input.substr(at, next - at));
            at = next;
        }
        path = CutAtBound(path);
    }

    std::string path;

 private:
    void Add(std::string_view segment, std::string_view withSeparator) {
        if (segment == ".") return;
        if (segment == "..") return Climb();
        if (!segment.empty()) segments.push_back(path.size());
        path += withSeparator;
    }

    void Climb() {
        if (segments.empty()) {
            path += "..\\";
            return;
        }
        path.resize(segments.back());
        segments.pop_back();
    }

    std::vector<std::size_t> segments;  // where those begin that ".." may remove
};

std::string Canonical(std::string_view prepared) {
    return CanonicalPath(prepared).path;
}

// So that a relative path shows that it is one. A token stays in front: it may become a root.
std::string MarkRelative(std::string path) {
    if (path.empty() || PathRootLength(path) != 0 || path.front() == '.' || path.front() == '%') return path;
    return std::string(CutAtBound(".\\" + path));
}

std::string AbsolutePath(const char* basePath, const char* path) {
    const std::string given = PreparePath(path);
    std::string result = Canonical(given);
    if (!given.empty() && PathRootLength(given) == 0) {
        std::string folder = PreparePath(basePath);
        if (!EndsWithSeparator(folder)) folder += SEPARATOR;
        result = Canonical(folder + result);
    }
    return std::string(WithoutEndSeparator(result));
}

// What follows the folder and its backslash; npos: the path lies elsewhere.
std::size_t RestBelow(std::string_view folder, std::string_view path) {
    const std::size_t end = PrefixNoCase(path, folder);
    const bool goesOn = end != NOWHERE && path.substr(end).starts_with(SEPARATOR);
    return goesOn && PathRootLength(path.substr(end + 1)) == 0 ? end + 1 : NOWHERE;
}

std::string RelativePath(const char* basePath, const char* path) {
    const std::string given = PreparePath(path);
    if (given.empty()) return {};
    const std::string folder = Canonical(PreparePath(basePath));
    const bool joins = PathRootLength(given) == 0 && !folder.empty();
    std::string full = joins ? AbsolutePath(basePath, given.c_str()) : Canonical(given);
    if (full.empty()) return ".";  // a base folder without a name
    if (folder.empty()) return MarkRelative(std::move(full));
    const bool isClosed = EndsWithSeparator(full);
    const std::size_t rest = RestBelow(WithoutEndSeparator(folder), isClosed ? full : full + SEPARATOR);
    if (rest == NOWHERE) return MarkRelative(std::move(full));
    return rest >= full.size() ? "." : MarkRelative(full.substr(rest));
}

}  // namespace

std::string PreparePath(const char* path) {
    std::string prepared;
    bool afterSeparator = false;
    EachCharacter(CutAtBound(path != nullptr ? path : ""), [&](std::size_t at, std::string_view character) {
        const bool isSeparator = character == "/" || character.front() == SEPARATOR;
        // The pair at the beginning of a network path stays.
        if (isSeparator && afterSeparator && at > 1) return true;
        isSeparator ? prepared += SEPARATOR : prepared += character;
        afterSeparator = isSeparator;
        return true;
    });
    return prepared;
}

std::size_t PathRootLength(std::string_view prepared) {
    if (prepared.starts_with("\\\\")) {
        const std::size_t end = FindSeparator(prepared, 2);
        return end == NOWHERE ? prepared.size() : end + 1;
    }
    const char first = prepared.empty() ? '\0' : prepared.front();
    const bool isLetter = (first >= 'A' && first <= 'Z') || (first >= 'a' && first <= 'z');
    if (isLetter && prepared.substr(1).starts_with(':')) return 2;
    return first == SEPARATOR ? 1 : 0;
}

bool HasOneOf(std::string_view text, std::string_view set) {
    bool found = false;
    EachCharacter(text, [&](std::size_t, std::string_view character) {
        found = set.find(character.front()) != std::string_view::npos;
        return !found;
    });
    return found;
}

std::size_t LastSeparator(std::string_view prepared) {
    std::size_t last = NOWHERE;
    EachCharacter(prepared, [&](std::size_t at, std::string_view character) {
        if (character.front() == SEPARATOR) last = at;
        return true;
    });
    return last;
}

}  // namespace tc

TCString MakeAbsPath(const char* basePath, const char* path) {
    return tc::AbsolutePath(basePath, path).c_str();
}

CString MakeAbsPath(const CString& basePath, const CString& path) {
    return tc::AbsolutePath(basePath.c_str(), path.c_str());
}

TCString MakeRelPath(const char* basePath, const char* path) {
    return tc::RelativePath(basePath, path).c_str();
}

CString MakeRelPath(const CString& basePath, const CString& path) {
    return tc::RelativePath(basePath.c_str(), path.c_str());
}
