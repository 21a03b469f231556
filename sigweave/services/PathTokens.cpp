#include "sigweave/services/PathTokens.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <vector>

#include "sigweave/services/SpecialFolders.h"

namespace tc {

namespace {

// Missing for an unknown name.
using Lookup = std::optional<std::string> (*)(const std::string& name);

constexpr std::size_t LONGEST_TEXT = 32'767;
constexpr int MOST_VALUES = 1000;

void Trim(std::string& text, const char* set) {
    text.erase(0, text.find_first_not_of(set));
    text.erase(text.find_last_not_of(set) + 1);
}

// `token` begins with the percent sign, which is trimmed last. So the flag is deliberately understood only
// after a folder's name, not before it, for the settings that were written so.
template <bool MAY_CREATE>
std::optional<std::string> FolderOf(const std::string& token) {
    constexpr std::string_view CREATE = "CSIDL_FLAG_CREATE";
    std::string name = token;
    bool create = false;
    for (auto at = name.find(CREATE); at != std::string::npos; at = name.find(CREATE)) {
        name.erase(at, CREATE.size());
        create = true;
    }
    if (create) Trim(name, "|&");
    Trim(name, "%");
    std::string folder = SpecialFolderPath(name, create && MAY_CREATE);
    if (folder.empty()) return std::nullopt;
    return folder;
}

std::optional<std::string> VariableOf(const std::string& token) {
    const char* value = std::getenv(token.c_str() + 1);
    if (value == nullptr) return std::nullopt;
    return value;
}

// The tokens of one kind in one path, replaced from the left, values included.
class Resolver {
 public:
    Resolver(std::string& text, Lookup tokenLookup, CStringArray* unknownNames)
        : path(text), lookup(tokenLookup), unknown(unknownNames) {}

    // `start` is a percent sign and how the names begin that are looked for.
    int ResolveAll(const char* start) {
        for (auto begin = path.find(start); begin != std::string::npos; begin = path.find(start)) {
            const auto end = path.find('%', begin + 1);
            if (end == std::string::npos) break;
            Resolve(begin, end);
        }
        return count;
    }

 private:
    // A value under way: the token that it came from, and how many bytes of the path follow it.
    struct Value {
        std::string token;
        std::size_t tail;
    };

    void Resolve(std::size_t begin, std::size_t end) {
        const std::string token = path.substr(begin, end - begin);
        const std::size_t tail = path.size() - (end + 1);
        const std::optional<std::string> value =
            ComesFromItself(token, begin, tail) ? std::nullopt : lookup(token);
        if (!value && unknown != nullptr) unknown->push_back(token.substr(1));
        const bool isKept =
            value && !value->empty() && count < MOST_VALUES && path.size() + value->size() <= LONGEST_TEXT;
        path.replace(begin, end + 1 - begin, isKept ? *value : std::string());
        if (!isKept) return;
        ++count;
        values.push_back({token, tail});
    }

    bool ComesFromItself(const std::string& token, std::size_t begin, std::size_t tail) {
        while (!values.empty() && path.size() - begin <= values.back().tail) values.pop_back();
        // The token may reach beyond the value in which it begins.
        for (Value& value : values) value.tail = std::min(value.tail, tail);
        return std::ranges::find(values, token, &Value::token) != values.end();
    }

    std::string& path;
    Lookup lookup;
    CStringArray* unknown;
    std::vector<Value> values;  // each within the one before
    int count = 0;
};

}  // namespace

int ResolvePathTokens(std::string& path, PathTokens which, CStringArray* unknown) {
    if (path.size() > LONGEST_TEXT) return 0;
    int count = 0;
    const Lookup folderOf = which.create ? FolderOf<true> : FolderOf<false>;
    if (which.folders) count += Resolver(path, folderOf, unknown).ResolveAll("%CSIDL_");
    if (which.environment) count += Resolver(path, VariableOf, unknown).ResolveAll("%");
    return count;
}

}  // namespace tc
