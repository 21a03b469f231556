#include "sigweave/module/SettingsArchive.h"

#include <cstdint>
#include <cstring>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "sigweave/services/Bilingual.h"

namespace tc {
namespace {

// Stored: never change. FNV-1a, of which 31 bits make a number.
int NumberOf(std::string_view name) {
    std::uint32_t hash = 2166136261U;
    for (const char byte : name) hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
    return static_cast<int>(hash & 0x7FFFFFFFU);
}

bool IsAllowed(const TCModuleParameter& parameter, const TCString& value, TCString& error) {
    if (std::strlen(value) != static_cast<std::size_t>(value.GetLength())) {
        error = Bilingual("%1: a value cannot hold a zero byte; remove it",
                          "%1: ein Wert kann kein Nullbyte enthalten; entfernen Sie es")
                    .With({parameter.name})
                    .c_str();
        return false;
    }
    if (parameter.Allows(value)) return true;
    error = parameter.DescribeRefusal(value);
    return false;
}

}  // namespace

bool SerializeSettings(ArchiveParser& archive, TCBaseModuleEx& module, TCString& error) {
    std::set<int> numbers;
    std::vector<std::pair<const char*, TCString>> loaded;
    for (const TCModuleParameter& parameter : module.GetParameters()) {
        int number = NumberOf(parameter.name);
        while (!numbers.insert(number).second) number = (number + 1) & 0x7FFFFFFF;
        TCString value = module.GetParameter(parameter.name);
        const bool isThere = !value.IsEmpty() || parameter.defaultValue != nullptr;
        if (parameter.secret || (archive.IsStoring() && !isThere)) continue;
        const bool done = archive.String(number, parameter.name, value);
        if (archive.IsStoring()) {
            if (done) continue;
            error = Bilingual("%1: cannot be stored", "%1: lässt sich nicht speichern")
                        .With({parameter.name})
                        .c_str();
            return false;
        }
        if (!done) continue;
        if (!IsAllowed(parameter, value, error)) return false;
        loaded.emplace_back(parameter.name, value);
    }
    for (const auto& [name, value] : loaded) module.SetParameter(name, value, error);
    return true;
}

}  // namespace tc
