#include "studio/server/PageFiles.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "sigweave/services/Bilingual.h"

namespace studio {
namespace {

namespace fs = std::filesystem;
using tc::Bilingual;

constexpr std::uintmax_t MOST_BYTES = 16 << 20;

constexpr struct {
    const char* ending;
    const char* type;
} TYPES[] = {{".html", "text/html; charset=utf-8"},
             {".js", "text/javascript; charset=utf-8"},
             {".css", "text/css; charset=utf-8"},
             {".svg", "image/svg+xml"},
             {".png", "image/png"},
             {".woff2", "font/woff2"},
             {".txt", "text/plain; charset=utf-8"}};

const char* TypeOf(const fs::path& path) {
    for (const auto& [ending, type] : TYPES)
        if (path.extension() == ending) return type;
    return nullptr;
}

}  // namespace

bool PageFiles::Read(const std::string& folder, std::string& error) {
    std::error_code failed;
    for (auto entry = fs::recursive_directory_iterator(folder, failed);
         !failed && entry != fs::recursive_directory_iterator(); entry.increment(failed)) {
        const char* const type = TypeOf(entry->path());
        if (type == nullptr || !entry->is_regular_file(failed) || entry->is_symlink(failed)) continue;
        if (entry->file_size(failed) > MOST_BYTES) continue;
        std::ostringstream bytes;
        bytes << std::ifstream(entry->path(), std::ios::binary).rdbuf();
        const std::string name = "/" + entry->path().lexically_relative(folder).generic_string();
        files[name] = {type, bytes.str(), name.starts_with("/assets/")};
    }
    if (files.contains("/index.html")) return true;
    error = Bilingual(
                "the page is not in the folder %1; build it with './run studio', or name its folder "
                "with --page",
                "die Seite liegt nicht im Ordner %1; bauen Sie sie mit './run studio', oder nennen Sie "
                "ihren Ordner mit --page")
                .With({folder});
    return false;
}

const PageFile* PageFiles::Find(std::string_view target) const {
    std::string_view path = target.substr(0, target.find('?'));
    if (path == "/") path = "/index.html";
    const auto found = files.find(path);
    return found != files.end() ? &found->second : nullptr;
}

}  // namespace studio
