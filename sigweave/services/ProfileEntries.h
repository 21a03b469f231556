#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "sigweave/platform/Export.h"

namespace tc {

enum class Hive { Machine, User };

// One entry of the settings profile, its section counted from the registry path.
struct ProfileEntry {
    std::string section;
    std::string name;
    // Missing for the row of a section without entries.
    std::optional<std::variant<std::int32_t, std::string>> value;
};

// For programs that show a whole hive: everything below the registry path, ordered by section and name. A
// hive that nobody has written yet is empty; missing when there is a file that cannot be read as a hive. Any
// thread.
TC_API std::optional<std::vector<ProfileEntry>> ReadProfile(Hive hive);

// As the functions of Profile.h, and whether it is on the disk.
TC_API bool SaveProfileEntry(Hive hive, const char* section, const char* entry,
                             const std::variant<std::int32_t, std::string>& value);
TC_API bool DeleteProfileEntry(Hive hive, const char* section, const char* entry);

// The file of a hive, whether it exists or not; empty when the environment leaves no place for it.
TC_API std::string ProfilePath(Hive hive);

}  // namespace tc
