#include "sigweave/services/UserFolders.h"

#include <cstdlib>

namespace tc {

namespace {

struct Row {
    UserFolder folder;
    const char* variable;
    const char* belowHome;
};

constexpr Row ROWS[] = {{UserFolder::Config, "XDG_CONFIG_HOME", "/.config"},
                        {UserFolder::Data, "XDG_DATA_HOME", "/.local/share"},
                        {UserFolder::Cache, "XDG_CACHE_HOME", "/.cache"},
                        {UserFolder::State, "XDG_STATE_HOME", "/.local/state"}};

// Folders that are not absolute are to be ignored.
std::string AbsoluteFolder(const char* variable) {
    std::string folder = EnvironmentText(variable);
    if (!folder.starts_with('/')) return {};
    while (folder.size() > 1 && folder.ends_with('/')) folder.pop_back();
    return folder;
}

}  // namespace

std::string EnvironmentText(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string UserFolderPath(UserFolder folder) {
    const std::string home = AbsoluteFolder("HOME");
    for (const Row& row : ROWS) {
        if (row.folder != folder) continue;
        const std::string own = AbsoluteFolder(row.variable);
        if (!own.empty() || home.empty()) return own;
        return home + row.belowHome;
    }
    return home;
}

}  // namespace tc
