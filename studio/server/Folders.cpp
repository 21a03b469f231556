#include "studio/server/Folders.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "sigweave/services/Bilingual.h"

namespace studio {
namespace {

namespace fs = std::filesystem;
using tc::Bilingual;
using Json = nlohmann::ordered_json;

constexpr Bilingual NOT_SEEN(
    "'%1' is in none of the folders that were named with --folder when the studio was started",
    "'%1' ist in keinem der Ordner, die beim Start des Studios mit --folder genannt wurden");
constexpr Bilingual NOT_READ("the folder '%1' cannot be read: %2",
                             "der Ordner '%1' lässt sich nicht lesen: %2");

struct Entry {
    std::string name;
    std::string path;
    bool isFolder;
};

Json ToJson(const std::vector<Entry>& entries) {
    Json json = Json::array();
    for (const Entry& entry : entries)
        json.push_back({{"name", entry.name}, {"path", entry.path}, {"folder", entry.isFolder}});
    return json;
}

}  // namespace

Folders::Folders(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        std::error_code failed;
        const fs::path canonical = fs::canonical(path, failed);
        if (!failed && fs::is_directory(canonical, failed)) roots.push_back(canonical.string());
    }
}

bool Folders::MayBeSeen(const std::string& canonical) const {
    return std::ranges::any_of(roots, [&](const std::string& root) {
        return canonical == root || root == "/" || canonical.starts_with(root + "/");
    });
}

Json Folders::List(const std::string& wanted) const {
    std::vector<Entry> entries;
    if (wanted.empty()) {
        for (const std::string& root : roots) entries.push_back({root, root, true});
        return {{"ok", true}, {"path", ""}, {"entries", ToJson(entries)}};
    }
    std::error_code failed;
    const std::string path = fs::canonical(wanted, failed).string();
    if (failed || !MayBeSeen(path)) return {{"ok", false}, {"text", NOT_SEEN.With({wanted})}};
    bool more = false;
    for (fs::directory_iterator at(path, failed); !failed && at != fs::directory_iterator();
         at.increment(failed)) {
        const std::string name = at->path().filename().string();
        std::error_code ignored;
        const fs::path real = fs::canonical(at->path(), ignored);
        const auto type = fs::status(real, ignored).type();
        const bool isKnown = type == fs::file_type::directory || type == fs::file_type::regular;
        if (ignored || !isKnown || name.starts_with('.') || !MayBeSeen(real.string())) continue;
        more = entries.size() >= MOST_ENTRIES;
        if (more) break;
        entries.push_back(
            {name, path == "/" ? "/" + name : path + "/" + name, type == fs::file_type::directory});
    }
    if (failed) return {{"ok", false}, {"text", NOT_READ.With({wanted, failed.message()})}};
    std::ranges::sort(entries, [](const Entry& a, const Entry& b) {
        return a.isFolder != b.isFolder ? a.isFolder : a.name < b.name;
    });
    Json answer = {{"ok", true}, {"path", path}, {"entries", ToJson(entries)}, {"more", more}};
    const bool isRoot = std::ranges::find(roots, path) != roots.end();
    const std::string up = fs::path(path).parent_path().string();
    answer["up"] = isRoot && !(path != "/" && MayBeSeen(up)) ? "" : up;
    return answer;
}

}  // namespace studio
