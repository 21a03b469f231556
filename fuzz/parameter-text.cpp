// TCProcessParameters: a parameter text, read and edited. Whatever is done, the table must be what reading
// the text anew gives. Parts of an input: flags, the four lists of the syntax, the text, and an edit each.
#include <cmath>

#include "fuzz/Fuzz.h"
#include "sigweave/persistence/TCProcessParameters.h"

namespace {

TCProcessParameters MakeParameters(fuzz::Parts& parts) {
    const std::string flags = parts.Next();
    const auto has = [&](char flag) { return flags.find(flag) != std::string::npos; };
    std::string lists[4];
    for (std::string& list : lists) list = parts.Next();
    TCProcessParameters parameters;
    if (!has('d'))
        parameters.Init(false, false, lists[0].c_str(), lists[1].c_str(), lists[2].c_str(), lists[3].c_str());
    parameters.UnQuote(has('u'));
    parameters.DecimalComma(has(','));
    if (has('p')) parameters.AddParamPrefix("--");
    if (has('l')) parameters.AddParamDelimiter("\r\n");
    if (has('s')) parameters.AddParamSplitStr(":=");
    if (has('c')) parameters.AddCommentStart("//");
    return parameters;
}

std::string Tell(const TCProcessParameters& parameters) {
    std::string told;
    for (int i = 0; i < parameters.GetParamCount(); ++i) {
        const double value = parameters.GetParamValDbl(i);
        told += "[" + fuzz::Bytes(parameters.GetParamSection(i)) + "]" +
                fuzz::Bytes(parameters.GetParamName(i)) + "=" + fuzz::Bytes(parameters.GetParamValStr(i)) +
                " " + std::to_string(parameters.GetParamValType(i)) + " " +
                std::to_string(parameters.GetParamValInt(i)) + " " + std::to_string(value) + " @" +
                std::to_string(parameters.GetParamPosition(i)) + "\n";
    }
    for (int i = 0; i < parameters.GetSectionCount(); ++i)
        told += fuzz::Bytes(parameters.GetSectionName(i)) + "@" +
                std::to_string(parameters.GetSectionPosition(i)) + "\n";
    return told;
}

void CheckTable(const TCProcessParameters& parameters) {
    TCProcessParameters again(parameters);
    fuzz::Require(again.ParseParamString(parameters.BuildParamString()) == parameters.GetParamCount(),
                  "an edited text can be read");
    fuzz::RequireSame(Tell(again), Tell(parameters), "the table is what reading the text gives");
    fuzz::Require(parameters.CheckConsistency(), "a table that agrees with its text is called consistent");
    for (int i = 0; i < parameters.GetParamCount(); ++i) {
        const int found = parameters.FindParameter(parameters.GetParamName(i), parameters.GetParamSection(i));
        fuzz::Require(found >= 0 && found <= i, "a parameter is found by its name and section");
    }
}

// An edit is a letter and its arguments, separated by commas.
class Edit {
 public:
    Edit(TCProcessParameters& edited, const std::string& words) : parameters(edited) {
        const std::size_t comma = words.find(',');
        letter = words.empty() ? '\0' : words[0];
        first = words.substr(words.empty() ? 0 : 1, comma == std::string::npos ? comma : comma - 1);
        second = comma == std::string::npos ? "" : words.substr(comma + 1);
        index = std::atoi(first.c_str());
        count = parameters.GetParamCount();
    }

    // Whether the edit was made.
    bool Make() {
        switch (letter) {
            case 'i':
                return MakeInt(std::atoi(second.c_str()));
            case 'f':
                return MakeDouble(std::atof(second.c_str()));
            case 's':
                return MakeText();
            case 'c':
                return parameters.ClearParamVal(index) &&
                       Keeps(parameters.GetParamValType(index) == TCProcessParameters::NO_VALUE, 0);
            case 'd':
                return parameters.DeleteParameter(index) && Keeps(true, -1);
            case 'x':
                return parameters.DeleteSection(first.c_str());
            default:
                return Insert(letter == 'N');
        }
    }

 private:
    bool Keeps(bool holds, int change) const {
        fuzz::Require(holds, "an edit does what it says");
        fuzz::Require(parameters.GetParamCount() == count + change, "and nothing else");
        return true;
    }

    bool MakeInt(int value) {
        return parameters.SetParamValInt(index, value) &&
               Keeps(parameters.GetParamValInt(index) == value &&
                         parameters.GetParamValType(index) == TCProcessParameters::INTEGER,
                     0);
    }

    bool MakeDouble(double value) {
        if (!parameters.SetParamValDbl(index, value, FORMAT_SIGNIFICANT, 15)) return false;
        const double read = parameters.GetParamValDbl(index);
        const double error = std::abs(read - value);
        return Keeps(!std::isfinite(value) || error <= std::abs(value) * 1e-14 || !std::isfinite(read), 0);
    }

    bool MakeText() {
        if (!parameters.SetParamValStr(index, second.c_str())) return false;
        const bool hasOwnMarks = second.size() > 1 && second.front() == second.back() &&
                                 (second.front() == '"' || second.front() == '\'');
        return Keeps(hasOwnMarks || fuzz::Bytes(parameters.GetParamValStr(index)) == second, 0);
    }

    bool Insert(bool allowDuplicate) {
        const int known = parameters.FindParameter(first.c_str(), second.c_str());
        const int inserted = parameters.InsertParameter(first.c_str(), second.c_str(), allowDuplicate);
        if (inserted < 0) return false;
        if (known >= 0 && !allowDuplicate) return Keeps(inserted == known, 0);
        return Keeps(fuzz::Bytes(parameters.GetParamName(inserted)) == first &&
                         fuzz::Bytes(parameters.GetParamSection(inserted)) == second &&
                         parameters.GetParamValType(inserted) == TCProcessParameters::NO_VALUE,
                     1);
    }

    TCProcessParameters& parameters;
    char letter;
    std::string first;
    std::string second;
    int index;
    int count;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    TCProcessParameters parameters = MakeParameters(parts);
    const int count = parameters.ParseParamString(parts.Next().c_str());
    fuzz::Require((count >= 0) == parameters.GetErrorText().IsEmpty(), "a failure has a message");
    if (count >= 0) CheckTable(parameters);
    while (!parts.AtEnd()) {
        const std::string before = fuzz::Bytes(parameters.BuildParamString());
        const bool made = Edit(parameters, parts.Next()).Make();
        const bool isSame = fuzz::Bytes(parameters.BuildParamString()) == before;
        fuzz::Require(made || isSame, "an edit that was refused changes nothing");
        fuzz::Require(count >= 0 || isSame, "a text with an error is not edited");
        if (made && count >= 0) CheckTable(parameters);
    }
    return 0;
}
