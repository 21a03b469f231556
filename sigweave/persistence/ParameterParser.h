#pragma once

#include <string_view>
#include <vector>

#include "sigweave/foundation/TCString.h"
#include "sigweave/persistence/ParameterSyntax.h"
#include "sigweave/persistence/TCProcessParameters.h"

namespace tc {

// Indexes are those of bytes of the text; ends are those of the last byte.
struct SectionRecord {
    int first = -1;  // of the name between the brackets; -1 for the unnamed section
    int last = -1;
    TCString name;
};

// The texts of names and values stay in the text.
struct ParameterRecord {
    static constexpr int NO_VALUE = -2;

    int section = 0;
    int first = 0;  // of the prefix, or `start` without prefixes
    int start = 0;
    int nameEnd = -1;
    int valueStart = -1;  // with the quotation marks
    int valueEnd = NO_VALUE;
    int integer = 0;
    double real = 0.0;
    TCProcessParameters::ParamValType type = TCProcessParameters::NO_VALUE;
    bool escaped = false;       // the value is to be unescaped
    bool decimalComma = false;  // how the value was read as a number

    bool HasValue() const { return valueEnd != NO_VALUE; }
};

struct ParameterTable {
    std::vector<ParameterRecord> parameters;
    std::vector<SectionRecord> sections;
};

// Reads a parameter text into a table, one parameter at a time. What comes next depends on nothing but the
// place in the text (and the number of the section), so reading may begin at any parameter's start. The
// syntax, the text and the table must outlive it.
class ParameterParser {
 public:
    ParameterParser(const ParameterSyntax& usedSyntax, std::string_view text, ParameterTable& filledTable)
        : syntax(usedSyntax),
          begin(text.data()),
          end(text.data() + text.size()),
          p(begin),
          table(filledTable) {}

    // Everything from here to the end; false when the text breaks the syntax.
    bool ReadAll();
    // Goes on at a parameter that is already known.
    void GoTo(const ParameterRecord& parameter);
    // Moves to the next parameter, adding the sections on the way; false at the end or on an error.
    bool FindNext();
    // Where the parameter found starts.
    int Start() const { return start; }
    // Adds the parameter found; false on an error.
    bool Read();

    // Empty while all is well.
    const TCString& GetError() const { return error; }

 private:
    int IndexOf(const char* place) const { return static_cast<int>(place - begin); }
    bool Fail(const TCString& message);
    bool FailHere(const char* message);
    bool ReadSection();
    bool ReadPrefix();
    void ReadName();
    bool ReadValue();
    const char* FindEndOfPlain(const char* value) const;
    bool StoreValue(std::string_view written);
    TCString FoundName() const;

    const ParameterSyntax& syntax;
    const char* begin;
    const char* end;
    const char* p;
    ParameterTable& table;
    int section = 0;
    int first = 0;
    int start = 0;
    ParameterRecord* found = nullptr;  // the last one of the table while it is read
    TCString error;
};

}  // namespace tc
