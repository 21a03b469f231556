#include "sigweave/services/SpecialFolders.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "sigweave/services/UserFolders.h"

namespace tc {

namespace {

struct Row {
    const char* token;
    int number;
    std::string (*find)(const char* name);
    const char* name;
};

// --- The user's own folders, whose names are in the user's language

struct PersonalFolder {
    std::string_view name;
    const char* usual;
};

constexpr PersonalFolder PERSONAL_FOLDERS[] = {
    {"DESKTOP", "/Desktop"},    {"DOCUMENTS", "/Documents"}, {"MUSIC", "/Music"},   {"PICTURES", "/Pictures"},
    {"PUBLICSHARE", "/Public"}, {"TEMPLATES", "/Templates"}, {"VIDEOS", "/Videos"},
};

// What the shell reads between the quotation marks in which the text begins; missing without the second one.
std::optional<std::string> Quoted(std::string_view text) {
    std::string content;
    for (std::size_t at = 1; at < text.size() && text.front() == '"'; ++at) {
        if (text[at] == '"') return content;
        if (text[at] == '\\' && at + 1 < text.size()) ++at;
        content += text[at];
    }
    return std::nullopt;
}

// The value of a line NAME="$HOME/folder" or NAME="/folder" of the user's list; empty for any other value.
std::string ListedFolder(std::string_view value, const std::string& home) {
    constexpr std::string_view HOME = "$HOME";
    const std::optional<std::string> folder = Quoted(value);
    if (!folder) return {};
    if (!value.substr(1).starts_with("$HOME/")) return folder->starts_with('/') ? *folder : std::string();
    return home.empty() ? home : home + folder->substr(HOME.size());
}

std::string Personal(const char* name) {
    const std::string home = UserFolderPath(UserFolder::Home);
    const std::string start = std::string("XDG_") + name + "_DIR=";
    std::ifstream list(UserFolderPath(UserFolder::Config) + "/user-dirs.dirs");
    for (std::string line; std::getline(list, line);) {
        if (!line.starts_with(start)) continue;
        const std::string folder = ListedFolder(std::string_view(line).substr(start.size()), home);
        if (!folder.empty()) return folder;
    }
    const auto* usual = std::ranges::find(PERSONAL_FOLDERS, name, &PersonalFolder::name);
    return home.empty() || usual == std::end(PERSONAL_FOLDERS) ? "" : home + usual->usual;
}

// --- All others

template <UserFolder FOLDER>
std::string Below(const char* name) {
    const std::string folder = UserFolderPath(FOLDER);
    return folder.empty() ? folder : folder + name;
}

constexpr auto* Home = Below<UserFolder::Home>;
constexpr auto* InConfig = Below<UserFolder::Config>;
constexpr auto* InData = Below<UserFolder::Data>;
constexpr auto* InCache = Below<UserFolder::Cache>;
constexpr auto* InState = Below<UserFolder::State>;

std::string Fixed(const char* name) {
    return name;
}

std::string Nowhere(const char*) {
    return {};
}

// The numbers are those under which the folders are known elsewhere.
constexpr Row FOLDERS[] = {
    {"CSIDL_DESKTOP", 0x00, Personal, "DESKTOP"},
    {"CSIDL_INTERNET", 0x01, Nowhere, ""},
    {"CSIDL_PROGRAMS", 0x02, InData, "/applications"},
    {"CSIDL_CONTROLS", 0x03, Nowhere, ""},
    {"CSIDL_PRINTERS", 0x04, Nowhere, ""},
    {"CSIDL_PERSONAL", 0x05, Personal, "DOCUMENTS"},
    {"CSIDL_FAVORITES", 0x06, Nowhere, ""},
    {"CSIDL_STARTUP", 0x07, InConfig, "/autostart"},
    {"CSIDL_RECENT", 0x08, Nowhere, ""},
    {"CSIDL_SENDTO", 0x09, Nowhere, ""},
    {"CSIDL_BITBUCKET", 0x0A, InData, "/Trash/files"},
    {"CSIDL_STARTMENU", 0x0B, InData, "/applications"},
    {"CSIDL_MYDOCUMENTS", 0x0C, Personal, "DOCUMENTS"},
    {"CSIDL_MYMUSIC", 0x0D, Personal, "MUSIC"},
    {"CSIDL_MYVIDEO", 0x0E, Personal, "VIDEOS"},
    {"CSIDL_DESKTOPDIRECTORY", 0x10, Personal, "DESKTOP"},
    {"CSIDL_DRIVES", 0x11, Nowhere, ""},
    {"CSIDL_NETWORK", 0x12, Nowhere, ""},
    {"CSIDL_NETHOOD", 0x13, Nowhere, ""},
    {"CSIDL_FONTS", 0x14, Fixed, "/usr/share/fonts"},
    {"CSIDL_TEMPLATES", 0x15, Personal, "TEMPLATES"},
    {"CSIDL_COMMON_STARTMENU", 0x16, Fixed, "/usr/share/applications"},
    {"CSIDL_COMMON_PROGRAMS", 0x17, Fixed, "/usr/share/applications"},
    {"CSIDL_COMMON_STARTUP", 0x18, Fixed, "/etc/xdg/autostart"},
    {"CSIDL_COMMON_DESKTOPDIRECTORY", 0x19, Nowhere, ""},
    {"CSIDL_APPDATA", 0x1A, InConfig, ""},
    {"CSIDL_PRINTHOOD", 0x1B, Nowhere, ""},
    {"CSIDL_LOCAL_APPDATA", 0x1C, InData, ""},
    {"CSIDL_ALTSTARTUP", 0x1D, InConfig, "/autostart"},
    {"CSIDL_COMMON_ALTSTARTUP", 0x1E, Fixed, "/etc/xdg/autostart"},
    {"CSIDL_COMMON_FAVORITES", 0x1F, Nowhere, ""},
    {"CSIDL_INTERNET_CACHE", 0x20, InCache, ""},
    {"CSIDL_COOKIES", 0x21, Nowhere, ""},
    {"CSIDL_HISTORY", 0x22, InState, ""},
    {"CSIDL_COMMON_APPDATA", 0x23, Fixed, "/var/lib"},
    {"CSIDL_WINDOWS", 0x24, Fixed, "/usr"},
    {"CSIDL_SYSTEM", 0x25, Fixed, "/usr/lib"},
    {"CSIDL_PROGRAM_FILES", 0x26, Fixed, "/opt"},
    {"CSIDL_MYPICTURES", 0x27, Personal, "PICTURES"},
    {"CSIDL_PROFILE", 0x28, Home, ""},
    {"CSIDL_SYSTEMX86", 0x29, Fixed, "/usr/lib"},
    {"CSIDL_PROGRAM_FILESX86", 0x2A, Fixed, "/opt"},
    {"CSIDL_PROGRAM_FILES_COMMON", 0x2B, Fixed, "/usr/share"},
    {"CSIDL_PROGRAM_FILES_COMMONX86", 0x2C, Fixed, "/usr/share"},
    {"CSIDL_COMMON_TEMPLATES", 0x2D, Fixed, "/usr/share/templates"},
    {"CSIDL_COMMON_DOCUMENTS", 0x2E, Personal, "PUBLICSHARE"},
    {"CSIDL_COMMON_ADMINTOOLS", 0x2F, Fixed, "/usr/sbin"},
    {"CSIDL_ADMINTOOLS", 0x30, InData, "/applications"},
    {"CSIDL_CONNECTIONS", 0x31, Nowhere, ""},
    {"CSIDL_COMMON_MUSIC", 0x35, Personal, "PUBLICSHARE"},
    {"CSIDL_COMMON_PICTURES", 0x36, Personal, "PUBLICSHARE"},
    {"CSIDL_COMMON_VIDEO", 0x37, Personal, "PUBLICSHARE"},
    {"CSIDL_RESOURCES", 0x38, Fixed, "/usr/share"},
    {"CSIDL_RESOURCES_LOCALIZED", 0x39, Fixed, "/usr/share/locale"},
    {"CSIDL_COMMON_OEM_LINKS", 0x3A, Nowhere, ""},
    {"CSIDL_CDBURN_AREA", 0x3B, Nowhere, ""},
    {"CSIDL_COMPUTERSNEARME", 0x3D, Nowhere, ""},
    {"CSIDL_FLAG_CREATE", 0x8000, Nowhere, ""},
};

// Each number once: 0x00 to 0x3D but for five that mean nothing, and the flag.
constexpr std::uint64_t NUMBERS = [] {
    std::uint64_t numbers = 0;
    for (const Row& row : FOLDERS) numbers |= row.number < 64 ? std::uint64_t{1} << row.number : 0;
    return numbers;
}();
static_assert(std::size(FOLDERS) == 58 && std::end(FOLDERS)[-1].number == 0x8000);
static_assert(NUMBERS == 0x2FE3'FFFF'FFFF'7FFF);

}  // namespace

std::string SpecialFolderPath(const std::string& token, bool create) {
    const auto* row = std::ranges::find_if(FOLDERS, [&](const Row& each) { return token == each.token; });
    if (row == std::end(FOLDERS)) return {};
    std::string path = row->find(row->name);
    std::error_code ignored;
    if (create && !path.empty()) std::filesystem::create_directories(path, ignored);
    return path;
}

}  // namespace tc
