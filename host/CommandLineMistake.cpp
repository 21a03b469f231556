#include "host/CommandLineMistake.h"

#include <array>
#include <optional>

#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr std::size_t MOST_INSERTS = 4;
using Inserts = std::array<std::string, MOST_INSERTS>;

// The parser's text, with a star for each insert, and ours.
struct Form {
    std::string_view pattern;
    Bilingual told;
};

// The first that fits counts.
constexpr Form FORMS[] = {
    {"A subcommand is required",
     {"a command is missing after this one", "nach diesem Befehl fehlt noch einer"}},
    {"* is required", {"%1 is required", "%1 fehlt"}},
    {"The following argument was not expected: *", {"'%1' was not expected", "'%1' wurde nicht erwartet"}},
    {"The following arguments were not expected: *",
     {"'%1' were not expected", "'%1' wurden nicht erwartet"}},
    {"*: Value * not in range * to *",
     {"%1: '%2' is not allowed; allowed are %3 to %4", "%1: '%2' ist nicht erlaubt; erlaubt sind %3 bis %4"}},
    {"*: * not in {*}",
     {"%1: '%2' is not allowed; allowed are %3", "%1: '%2' ist nicht erlaubt; erlaubt sind %3"}},
    {"*: 1 required * missing", {"%1 needs %2 after it", "nach %1 fehlt %2"}},
    {"*: At Most 1 required but received *",
     {"%1 may be given once only", "%1 darf nur einmal angegeben werden"}},
    {"* was given a disallowed flag override", {"--%1 takes no value", "--%1 nimmt keinen Wert an"}},
    {"* excludes *", {"%1 and %2 exclude each other", "%1 und %2 schließen einander aus"}},
    {"* requires *", {"%1 needs %2 too", "%1 braucht auch %2"}},
    {"Could not convert: * = *", {"%1: '%2' cannot be read", "%1: '%2' ist nicht lesbar"}},
};

std::optional<Inserts> Match(std::string_view text, std::string_view pattern) {
    Inserts inserts;
    const std::size_t first = pattern.find('*');
    if (!text.starts_with(pattern.substr(0, first))) return std::nullopt;
    if (first == pattern.npos) return text == pattern ? std::optional(inserts) : std::nullopt;
    text.remove_prefix(first);
    pattern.remove_prefix(first + 1);
    for (std::string& insert : inserts) {
        const std::size_t next = pattern.find('*');
        const std::string_view fixed = pattern.substr(0, next);
        const std::size_t end = next != pattern.npos    ? text.find(fixed)
                                : text.ends_with(fixed) ? text.size() - fixed.size()
                                                        : text.npos;
        if (end == text.npos) return std::nullopt;
        insert = text.substr(0, end);
        if (next == pattern.npos) return inserts;
        text.remove_prefix(end + fixed.size());
        pattern.remove_prefix(next + 1);
    }
    return std::nullopt;
}

}  // namespace

std::string ExplainCommandLine(std::string_view complaint) {
    for (const Form& form : FORMS)
        if (const auto found = Match(complaint, form.pattern))
            return form.told.With({(*found)[0], (*found)[1], (*found)[2], (*found)[3]});
    return std::string(complaint);
}

}  // namespace host
