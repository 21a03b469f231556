#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/services/Bilingual.h"

// One declared parameter of a module. A module keeps a constant table of these; the texts must live as long
// as the module.
struct TC_API TCModuleParameter {
    // INTEGER: 32 bits. NUMBER: finite, with a point whatever the locale, and with a unit if one likes: "3
    // kHz" and "3k" are 3000 in Hz (see tc::ReadQuantity). CHOICE: one of the words of `choices`. SWITCH: yes
    // or no. FILE: the path of a file that is read; OUTPUT_FILE: of one that is written. A host resolves
    // tokens and backslashes in both, and takes a relative path in a graph file as relative to
    // that file's folder.
    enum Kind { INTEGER, NUMBER, TEXT, CHOICE, SWITCH, FILE, OUTPUT_FILE };
    // How a control goes from the minimum to the maximum.
    enum Scale { LINEAR, LOGARITHMIC };
    // The parameter counts only while another one, a CHOICE or a SWITCH, has one of the values: words between
    // '|'. Always where `parameter` is empty.
    struct Condition {
        const char* parameter = "";
        const char* values = "";
    };

    const char* name;
    Kind kind;
    const char* defaultValue;                  // as text, an allowed one; null: it must be given
    const char* unit = "";                     // SI text, for example "Hz"; empty: none
    tc::Bilingual help = "";                   // one line
    double minimum = -1.7976931348623157e308;  // of INTEGER and NUMBER, both ends allowed
    double maximum = 1.7976931348623157e308;
    const char* choices = "";  // of CHOICE: the allowed words, without quotes, between '|'

    // What a form needs beyond that. None of it changes which values are allowed.
    tc::Bilingual label = "";  // what people call it; empty: its name
    tc::Bilingual group = "";  // parameters of one group stand together; empty: in none
    Condition enabledWhen = {};
    const char* suggestions = "";  // values to offer, between '|', each an allowed one; others may be typed
    Scale scale = LINEAR;
    double step = 0.0;            // of INTEGER and NUMBER, in the unit; 0: none
    int digits = -1;              // digits to show after the point; -1: as many as the value has
    bool live = false;            // it may change in a run (see TCBaseModuleEx::SetLive)
    const char* fileFilter = "";  // of FILE and OUTPUT_FILE: "*.wav|*.flac"; empty: all files
    bool secret = false;          // no table, message, log or report shows its value

    bool Allows(const char* value) const;
    // For messages: "an integer from 1 to 1048576", "one of hann, hamming", "yes or no".
    TCString DescribeAllowed() const;
    // False, with `number` unchanged, for a text that is no number of the kind within the limits. Blanks
    // around the number are ignored. ReadNumber converts what has another unit to the declared one.
    bool ReadInteger(const char* value, int& number) const;
    bool ReadNumber(const char* value, double& number) const;
    // Whether a number in the declared unit, as a signal brings it, is a value: for an INTEGER a whole one,
    // for a SWITCH 0 (no) or 1 (yes); of other kinds none is. AsText is the value that it stands for.
    bool AllowsNumber(double number) const;
    TCString AsText(double number) const;
    // Of a value that is not allowed, in all of the program's messages: "corner: '3 V' is not valid; expected
    // a number (in Hz); the unit V does not fit; expected Hz". A secret value is not quoted.
    TCString DescribeRefusal(const char* value) const;
    // The position among the choices (no is 0, yes is 1 for a SWITCH), or -1.
    int FindChoice(const char* value) const;
};

namespace tc {

// One word of a CHOICE, and what it means to the module. The words are in one place, so that none can be
// added or moved in the parameter alone:
//
//     enum class Mode { CUT, PAD };
//     constexpr tc::Choice<Mode> MODES[] = {{"cut", Mode::CUT}, {"pad", Mode::PAD}};
//     ... {.name = "mode", .kind = TCModuleParameter::CHOICE, .defaultValue = "cut",
//          .choices = tc::CHOICE_WORDS<MODES>}
//     ... switch (ParamChoice<MODES>("mode"))
template <class Enum>
struct Choice {
    const char* word;
    Enum value;
};

// No word is empty, holds a '|', or is there twice, and no value either.
template <const auto& CHOICES>
consteval bool AreChoicesValid() {
    for (const auto& choice : CHOICES) {
        const std::string_view word(choice.word);
        if (word.empty() || word.find('|') != word.npos) return false;
        for (const auto& other : CHOICES)
            if (&other != &choice && (word == other.word || choice.value == other.value)) return false;
    }
    return true;
}

template <const auto& CHOICES>
consteval auto JoinChoices() {
    constexpr std::size_t LENGTH = [] {
        std::size_t length = 0;
        for (const auto& choice : CHOICES) length += std::string_view(choice.word).size() + 1;
        return length;
    }();
    std::array<char, LENGTH> joined{};
    std::size_t at = 0;
    for (const auto& choice : CHOICES) {
        if (at > 0) joined[at++] = '|';
        for (const char c : std::string_view(choice.word)) joined[at++] = c;
    }
    return joined;
}

template <const auto& CHOICES>
inline constexpr auto JOINED_CHOICES = JoinChoices<CHOICES>();

// The words of a table as TCModuleParameter::choices has them.
template <const auto& CHOICES>
requires(AreChoicesValid<CHOICES>()) inline constexpr const
    char* CHOICE_WORDS = JOINED_CHOICES<CHOICES>.data();

}  // namespace tc
