#include "modules/common/RecordFiles.h"

#include <filesystem>

namespace tc {

std::string RecordFile(const std::string& name, int number, bool isOnly) {
    const std::size_t place = name.rfind(RECORD_NUMBER);
    const std::string digits = std::to_string(number);
    if (place != std::string::npos)
        return std::string(name).replace(place, std::string(RECORD_NUMBER).size(), digits);
    if (isOnly) return name;
    const std::filesystem::path path(name);
    return (path.parent_path() / (path.stem().string() + "-" + digits + path.extension().string())).string();
}

}  // namespace tc
