#include "host/ProfileCommand.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/Commands.h"
#include "host/Console.h"
#include "sigweave/foundation/NearNames.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/persistence/ParameterQuote.h"
#include "sigweave/services/Profile.h"
#include "sigweave/services/ProfileEntries.h"

namespace host {
namespace {

using console::Print;
using Value = std::variant<std::int32_t, std::string>;
using Entries = std::vector<tc::ProfileEntry>;

bool SameName(const std::string& a, const std::string& b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
    return std::ranges::equal(a, b, {}, lower, lower);
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

// One hive, and what is told about it.
class HiveCommand {
 public:
    explicit HiveCommand(const ProfileOptions& commandOptions)
        : options(commandOptions),
          hive(options.machine ? tc::Hive::Machine : tc::Hive::User),
          profile(options.machine ? "the machine's profile" : "the user's profile") {}

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
            console::Error("'" + options.value +
                           "' is no integer from -2147483648 to 2147483647; give one, or --type text");
            return EXIT_WRONG_INPUT;
        }
        const Value value = number ? Value(*number) : Value(options.value);
        if (!Read()) return EXIT_INCOMPLETE;
        number ? (options.machine ? SaveMachineProfileInt : SaveUserProfileInt)(Section(), Entry(), *number)
               : (options.machine ? SaveMachineProfileString : SaveUserProfileString)(Section(), Entry(),
                                                                                      options.value.c_str());
        if (!Read()) return EXIT_INCOMPLETE;
        const tc::ProfileEntry* saved = Find();
        return saved != nullptr && saved->value == value ? EXIT_COMPLETE : TellNotWritten();
    }

    int Delete() {
        if (!Read()) return EXIT_INCOMPLETE;
        if (Find() == nullptr) return TellNoEntry();
        (options.machine ? DeleteMachineProfileString : DeleteUserProfileString)(Section(), Entry());
        if (!Read()) return EXIT_INCOMPLETE;
        return Find() == nullptr ? EXIT_COMPLETE : TellNotWritten();
    }

 private:
    const char* Section() const { return options.section.c_str(); }
    const char* Entry() const { return options.entry.c_str(); }

    bool Read() {
        const std::string path = tc::ProfilePath(hive);
        auto read = path.empty() ? std::nullopt : tc::ReadProfile(hive);
        if (path.empty())
            console::Error("there is no place for " + profile + "; set HOME or SIGWEAVE_USER_HIVE");
        else if (!read)
            console::Error(profile + " cannot be read: '" + path +
                           "' is no profile, or may not be read; move it away, or correct its permissions");
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
            if (sections.empty() || sections.back() != entry.section) sections.push_back(entry.section);
        console::Error(profile + " has no section '" + options.section + "'; " +
                       tc::SuggestNames(options.section, sections));
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
        console::Error("section '" + options.section + "' of " + profile + " has no entry '" + options.entry +
                       "'; " + tc::SuggestNames(options.entry, names));
        return EXIT_INCOMPLETE;
    }

    int TellNotWritten() const {
        console::Error(
            profile + " cannot be written: '" + tc::ProfilePath(hive) +
            "'; see that you may write that file and its folder, and that there is room on the disk");
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
