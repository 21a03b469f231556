#include "host/ProfileCommand.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/Commands.h"
#include "host/Console.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/persistence/ParameterQuote.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"
#include "sigweave/services/ProfileEntries.h"

namespace host {
namespace {

using tc::Bilingual;

using console::Print;
using Value = std::variant<std::int32_t, std::string>;
using Entries = std::vector<tc::ProfileEntry>;

bool SameName(const std::string& a, const std::string& b) {
    return TCString(a.c_str()).CompareNoCase(b.c_str()) == 0;
}

std::string WriteValue(const Value& value, bool quoted) {
    if (const auto* number = std::get_if<std::int32_t>(&value)) return std::to_string(*number);
    const std::string& text = std::get<std::string>(value);
    return quoted ? std::string(tc::QuoteParameter(text.c_str())) : text;
}

std::optional<std::int32_t> ReadInteger(const std::string& text) {
    std::int32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
}

// One hive, and the messages about it.
class HiveCommand {
 public:
    explicit HiveCommand(const ProfileOptions& commandOptions)
        : options(commandOptions),
          hive(options.machine ? tc::Hive::Machine : tc::Hive::User),
          profile((options.machine ? MACHINE_PROFILE : USER_PROFILE).Text()) {}

    int List() {
        if (!Read()) return EXIT_INCOMPLETE;
        std::string text;
        const std::string* section = nullptr;
        for (const tc::ProfileEntry& entry : entries) {
            if (!options.section.empty() && !SameName(entry.section, options.section)) continue;
            if (section == nullptr || !SameName(*section, entry.section)) {
                text += (text.empty() ? "[" : "\n[") + entry.section + "]\n";
                section = &entry.section;
            }
            if (entry.value) text += entry.name + "=" + WriteValue(*entry.value, true) + "\n";
        }
        if (section == nullptr && !options.section.empty()) return TellNoSection();
        return Print(text) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
    }

    int Get() {
        if (!Read()) return EXIT_INCOMPLETE;
        const tc::ProfileEntry* entry = Find();
        if (entry == nullptr) return TellNoEntry();
        return Print(WriteValue(*entry->value, false) + "\n") ? EXIT_COMPLETE : EXIT_INCOMPLETE;
    }

    int Set() {
        const std::optional<std::int32_t> number =
            options.type == ProfileOptions::Type::Text ? std::nullopt : ReadInteger(options.value);
        if (!number && options.type == ProfileOptions::Type::Integer) {
            console::Error(
                Bilingual("'%1' is no integer from -2147483648 to 2147483647; give one, or --type text",
                          "'%1' ist keine ganze Zahl von -2147483648 bis 2147483647; geben Sie eine an, oder "
                          "--type text")
                    .With({options.value}));
            return EXIT_WRONG_INPUT;
        }
        const Value value = number ? Value(*number) : Value(options.value);
        if (!Read()) return EXIT_INCOMPLETE;
        return tc::SaveProfileEntry(hive, Section(), Entry(), value) ? EXIT_COMPLETE : TellNotWritten();
    }

    int Delete() {
        if (!Read()) return EXIT_INCOMPLETE;
        if (Find() == nullptr) return TellNoEntry();
        return tc::DeleteProfileEntry(hive, Section(), Entry()) ? EXIT_COMPLETE : TellNotWritten();
    }

 private:
    const char* Section() const { return options.section.c_str(); }
    const char* Entry() const { return options.entry.c_str(); }

    bool Read() {
        const std::string path = tc::ProfilePath(hive);
        auto read = path.empty() ? std::nullopt : tc::ReadProfile(hive);
        if (path.empty())
            console::Error(Bilingual("there is no place for %1; set HOME or SIGWEAVE_USER_HIVE",
                                     "für %1 gibt es keinen Ort; setzen Sie HOME oder SIGWEAVE_USER_HIVE")
                               .With({profile}));
        else if (!read)
            console::Error(Bilingual("%1 cannot be read: '%2' is no profile, or may not be read; move it "
                                     "away, or correct its permissions",
                                     "%1 ist nicht lesbar: '%2' ist kein Profil oder darf nicht gelesen "
                                     "werden; verschieben Sie die Datei, oder ändern Sie ihre Rechte")
                               .With({profile, path}));
        if (read) entries = std::move(*read);
        return read.has_value();
    }

    const tc::ProfileEntry* Find() const {
        const auto found = std::ranges::find_if(entries, [this](const tc::ProfileEntry& entry) {
            return entry.value && SameName(entry.section, options.section) &&
                   SameName(entry.name, options.entry);
        });
        return found != entries.end() ? &*found : nullptr;
    }

    int TellNoSection() const {
        CStringArray sections;
        for (const tc::ProfileEntry& entry : entries)
            if (!entry.section.empty() && (sections.empty() || sections.back() != entry.section))
                sections.push_back(entry.section);
        console::Error(Bilingual("%1 has no section '%2'; %3", "%1 hat keinen Abschnitt '%2'; %3")
                           .With({profile, options.section, tc::SuggestNames(options.section, sections)}));
        return EXIT_INCOMPLETE;
    }

    int TellNoEntry() const {
        CStringArray names;
        bool hasSection = false;
        for (const tc::ProfileEntry& entry : entries) {
            if (!SameName(entry.section, options.section)) continue;
            hasSection = true;
            if (entry.value) names.push_back(entry.name);
        }
        if (!hasSection) return TellNoSection();
        console::Error(
            Bilingual("section '%1' of %2 has no entry '%3'; %4",
                      "%2 hat im Abschnitt '%1' keinen Eintrag '%3'; %4")
                .With({options.section, profile, options.entry, tc::SuggestNames(options.entry, names)}));
        return EXIT_INCOMPLETE;
    }

    int TellNotWritten() const {
        console::Error(Bilingual("%1 cannot be written: '%2'; see that you may write that file and its "
                                 "folder, and that there is room on the disk",
                                 "%1 ist nicht beschreibbar: '%2'; prüfen Sie die Rechte an der Datei und "
                                 "ihrem Ordner und den Platz auf dem Datenträger")
                           .With({profile, tc::ProfilePath(hive)}));
        return EXIT_INCOMPLETE;
    }

    const ProfileOptions& options;
    tc::Hive hive;
    std::string profile;
    Entries entries;
};

}  // namespace

int RunProfileCommand(const ProfileOptions& options) {
    HiveCommand command(options);
    switch (options.action) {
        case ProfileOptions::Action::Get:
            return command.Get();
        case ProfileOptions::Action::Set:
            return command.Set();
        case ProfileOptions::Action::Delete:
            return command.Delete();
        case ProfileOptions::Action::List:
            break;
    }
    return command.List();
}

}  // namespace host
