#include "host/Language.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "host/Console.h"
#include "host/ProfileCommand.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Language.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/Profile.h"
#include "sigweave/services/StringResources.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr const char* OPTION = "--language";
constexpr const char* SECTION = "Host";
constexpr const char* ENTRY = "Language";
constexpr const char* CODES[] = {"en", "de"};  // in the order of the string resources

std::optional<int> FindLanguage(const std::string& code) {
    const auto found = std::find(std::begin(CODES), std::end(CODES), code);
    if (found == std::end(CODES)) return std::nullopt;
    return static_cast<int>(found - std::begin(CODES));
}

// The value of the last option, which are all taken out; nothing when there is none.
std::optional<std::string> TakeOption(std::vector<std::string>& arguments) {
    const std::string withValue = std::string(OPTION) + "=";
    std::optional<std::string> value;
    for (auto argument = arguments.begin(); argument != arguments.end() && *argument != "--";) {
        if (argument->starts_with(withValue)) {
            value = argument->substr(withValue.size());
            argument = arguments.erase(argument);
        } else if (*argument == OPTION) {
            argument = arguments.erase(argument);
            value = argument != arguments.end() ? *argument : "";
            if (argument != arguments.end()) argument = arguments.erase(argument);
        } else {
            ++argument;
        }
    }
    return value;
}

bool IsLocaleGerman() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* name = std::getenv(variable);
        if (name != nullptr && *name != '\0') return tc::IsGermanLocaleName(name);
    }
    return false;
}

std::optional<int> LanguageOf(const TCString& stored, const Bilingual& profile) {
    const std::string code(stored);
    const std::optional<int> language = FindLanguage(code);
    if (!language && !code.empty())
        console::Warning(
            Bilingual("%1 has the unknown language '%2' in the entry %3 of the section %4; write en or de",
                      "%1 hat im Eintrag %3 des Abschnitts %4 die unbekannte Sprache '%2'; schreiben Sie en "
                      "oder de")
                .With({profile.Text(), code, ENTRY, SECTION}));
    return language;
}

std::optional<int> ProfileLanguage() {
    const std::optional<int> language = LanguageOf(LoadUserProfileString(SECTION, ENTRY), USER_PROFILE);
    return language ? language : LanguageOf(LoadMachineProfileString(SECTION, ENTRY), MACHINE_PROFILE);
}

}  // namespace

bool ChooseLanguage(std::vector<std::string>& arguments) {
    const std::optional<std::string> code = TakeOption(arguments);
    TCSetLoadStrResLanguage(IsLocaleGerman() ? 1 : 0);
    const std::optional<int> language = code ? FindLanguage(*code) : ProfileLanguage();
    if (language) TCSetLoadStrResLanguage(*language);
    if (language || !code) return true;
    console::Error(Bilingual("%1: there is no language '%2'; choose en or de",
                             "%1: die Sprache '%2' gibt es nicht; wählen Sie en oder de")
                       .With({OPTION, *code}));
    return false;
}

}  // namespace host
