#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sigweave/foundation/TCString.h"
#include "sigweave/persistence/ParameterParser.h"
#include "sigweave/persistence/ParameterSyntax.h"

namespace tc {

// What an edit of the text is meant to do to the table.
struct TableChange {
    struct Parameter {
        std::string name;
        std::optional<std::string> value;
        int section = 0;
    };

    int parameter = 0;  // index of the first one removed, and of the one added
    int removedParameters = 0;
    std::optional<Parameter> addedParameter;
    std::optional<int> removedSection;
    std::optional<std::string> addedSection;  // after all others
};

// A parameter text and the table that was read from it. Edits replace characters and read only the
// surroundings anew. An edit that would not do exactly what it is meant to do (because the syntax reads the
// new text in another way) is undone, so that the table always is what reading the whole text gives.
//
// The syntax may change at any time. What is read already stays as it is; edits write and read in the new
// syntax, but for a text that would fall into other parameters by it: that one keeps the strings with which
// it was read.
class ParameterText {
 public:
    ParameterText() { Clear(); }

    ParameterSyntax& NewSyntax() {
        isNewSyntax = true;
        return newSyntax;
    }
    // That of the text.
    const ParameterSyntax& Syntax() const { return syntax; }
    // To be called before an edit: the text takes the new syntax if it may.
    void TakeSyntax();

    void Clear();
    // The number of parameters, or -1.
    int Parse(const char* newText);
    const TCString& Text() const { return text; }
    std::string_view View() const { return ViewOf(text); }
    const TCString& GetError() const { return error; }
    const ParameterTable& Table() const { return table; }
    // As it is written in the text.
    std::string_view NameOf(const ParameterRecord& parameter) const;
    // Copies that are made when they are asked for; the index must be one of the table. A name lives until a
    // parameter comes or goes, a value until it is changed.
    const TCString& Name(int index) const;
    const TCString& Value(int index) const;
    int ParameterCount() const { return static_cast<int>(table.parameters.size()); }
    int SectionCount() const { return static_cast<int>(table.sections.size()); }

    // Replaces `removed` characters at `at`. False when nothing was changed: the change would not be as
    // meant, or the text could not be read from the start.
    bool Edit(int at, int removed, std::string_view inserted, const TableChange& change);
    bool IsConsistent() const;

    // After the parameter, its split string included.
    int EndOf(const ParameterRecord& parameter) const;
    // After the delimiter at `place`; `place` when there is none.
    int BehindDelimiter(int place) const;

 private:
    // The part of the table that an edit concerns.
    struct Window {
        int firstParameter = 0;
        int endParameter = 0;
        int firstSection = 1;
        int endSection = 0;
    };

    // Reads all of the text; false when it breaks the syntax.
    bool ReadAll(const ParameterSyntax& with, ParameterTable& fresh, TCString& failure) const;
    bool ReadsTheSame(const ParameterTable& fresh) const;
    void Splice(int at, int removed, std::string_view inserted);
    std::optional<Window> ReadAround(int at, int removed, int inserted, const TableChange& change,
                                     ParameterTable& fresh) const;
    bool IsAsMeant(ParameterTable& fresh, const Window& window, const TableChange& change, int at,
                   int shift) const;
    std::vector<SectionRecord> SectionsMeant(const ParameterTable& fresh, const Window& window,
                                             const TableChange& change, int at, int shift) const;
    bool IsTheAdded(const ParameterRecord& parameter, const TableChange::Parameter& added) const;
    std::string_view WrittenValue(const ParameterRecord& parameter) const;
    TCString ReadValue(const ParameterRecord& parameter) const;
    void ForgetCopies(const TableChange& change);
    void Store(ParameterTable&& fresh, const Window& window, int shift);

    ParameterSyntax newSyntax;
    bool isNewSyntax = false;
    ParameterSyntax syntax;
    TCString text;
    TCString error;
    ParameterTable table;
    mutable std::unordered_map<int, TCString> names;
    mutable std::unordered_map<int, TCString> values;
};

}  // namespace tc
