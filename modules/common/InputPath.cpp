#include "modules/common/InputPath.h"

#include <filesystem>

#include "sigweave/services/Bilingual.h"

namespace tc {

std::string WhyNoInput(const std::string& path) {
    static constexpr Bilingual MISSING("%1 does not exist; check the path",
                                       "%1 gibt es nicht; prüfen Sie den Pfad");
    static constexpr Bilingual FOLDER("%1 is a folder; name a file in it",
                                      "%1 ist ein Ordner; nennen Sie eine Datei darin");
    static constexpr Bilingual EMPTY("%1 is empty; copy or record it again",
                                     "%1 ist leer; kopieren Sie sie neu, oder nehmen Sie sie neu auf");
    std::error_code ignored;
    const std::filesystem::file_status status = std::filesystem::status(path, ignored);
    if (!std::filesystem::exists(status)) return MISSING.With({path});
    if (std::filesystem::is_directory(status)) return FOLDER.With({path});
    const bool isEmpty =
        std::filesystem::is_regular_file(status) && std::filesystem::file_size(path, ignored) == 0;
    return isEmpty ? EMPTY.With({path}) : "";
}

std::string WhyNoInputFile(const std::string& path) {
    static constexpr Bilingual NO_FILE("%1 is a pipe or a device; store what it brings in a file first",
                                       "%1 ist eine Pipe oder ein Gerät; speichern Sie die Daten zuerst in "
                                       "einer Datei");
    std::error_code ignored;
    const std::string reason = WhyNoInput(path);
    return reason.empty() && !std::filesystem::is_regular_file(path, ignored) ? NO_FILE.With({path}) : reason;
}

std::string NotReadable(const std::string& path) {
    return Bilingual("%1 cannot be opened; check its permissions",
                     "%1 lässt sich nicht öffnen; prüfen Sie die Rechte")
        .With({path});
}

}  // namespace tc
