#pragma once

#include <cstdint>
#include <memory>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

namespace tc {
class ParameterText;
}

// One parameter text (optional [sections], name=value lines, comments), parsed into a table of typed
// parameters and edited in place: comments, order and layout stay as they are, and the table agrees with the
// text after every edit.
//
//     # a comment, to the end of its line
//     gain=2.5
//     [left channel]
//     label="one, two"
//
// The syntax is configurable: the strings that introduce a parameter (prefixes), end it (delimiters), split
// name from value and start a comment. Of several that fit at one place the longest counts. Edits write the
// first of each list. The syntax may be changed at any time. What is read already keeps its place and type;
// edits go by the new syntax. Only a text that would fall into other parameters by it keeps the strings with
// which it was parsed until the next parse.
//
// A name runs to the split string, a value to the delimiter; blanks belong to both. A value in quotation
// marks (both kinds) may hold delimiters and needs a delimiter right after it. With prefixes, a plain value
// may hold delimiters too, because a delimiter then ends it only before a prefix or at the end; a section
// header or comment after a plain value is then part of the value.
//
// Operations answer success. `GetErrorText` says why a text could not be parsed; the table then holds
// what precedes the error, and every edit is refused until a text is parsed or `Reset`. An edit that the
// syntax cannot express without changing something else (a section name with a closing bracket, say) answers
// false or -1 and changes nothing. References that are handed out are valid until the next parse or edit.
// Copies are deep. For one thread at a time.
class TC_API TCProcessParameters {
 public:
    // How the text of a value reads (stored; never change). Independent of the locale.
    enum ParamValType {
        NO_VALUE = 0,  // the name is alone, or nothing follows the split string
        INTEGER = 1,   // all of it is a decimal integer
        FLOAT = 2,  // all of it is a decimal number, or what `SetParamValDbl` writes: "inf", "-nan" and so on
        STRING = 3  // anything else, and whatever is written in quotation marks
    };

    // Delimiter "\r\n" (both characters together), split string "=", comment starts "#" and ";".
    TCProcessParameters();
    // Each character of each string becomes one entry of its list; null adds nothing.
    TCProcessParameters(bool unquote, bool decimalComma, const char* prefixes, const char* delimiters,
                        const char* splitStrs, const char* commentStarts);
    TCProcessParameters(const TCProcessParameters& other);
    TCProcessParameters& operator=(const TCProcessParameters& other);
    ~TCProcessParameters();

    // Sets the whole syntax anew, as the constructor does. The text stays.
    void Init(bool unquote, bool decimalComma, const char* prefixes, const char* delimiters,
              const char* splitStrs, const char* commentStarts);
    // Each adds one whole string; null and empty ones are ignored.
    void AddParamPrefix(const char* prefix);
    void AddParamDelimiter(const char* delimiter);
    void AddParamSplitStr(const char* splitStr);
    void AddCommentStart(const char* commentStart);
    // Values in quotation marks are written with backslash escapes (see UnQuoteEscapeChar). A mark after a
    // backslash does not end the value, even when that backslash is escaped itself: write a backslash at the
    // end of a value as \x5c.
    void UnQuote(bool unquote);
    // The decimal sign of values is the comma, in reading (a point then makes a text of the value) and in
    // `SetParamValDbl`.
    void DecimalComma(bool decimalComma);

    // Replaces the text; the number of parameters, or -1. A null text is an empty one.
    int ParseParamString(const char* text);
    // A command line as `main` gets it: `argv[0]` is passed over, the first delimiter is put after each of
    // the others, and values that hold a delimiter are put in quotation marks.
    int ParseParamString(int argc, const char** argv);
    // Forgets text, table and error; the syntax stays.
    void Reset();
    const TCString& BuildParamString() const;
    // Empty when the last parse succeeded.
    const TCString& GetErrorText() const;

    // --- Reading: an index out of range answers empty texts, NO_VALUE, 0 and position -1 ---

    int GetParamCount() const;
    const TCString& GetParamName(int index) const;
    // Empty for the unnamed section.
    const TCString& GetParamSection(int index) const;
    ParamValType GetParamValType(int index) const;
    // The number that the value begins with, limited to the range of int; 0 when there is none, as for every
    // value in quotation marks.
    int GetParamValInt(int index) const;
    double GetParamValDbl(int index) const;
    // Without quotation marks and escapes; may hold zero bytes.
    const TCString& GetParamValStr(int index) const;
    // Where the parameter's name starts in the text (a byte index).
    int GetParamPosition(int index) const;
    // Sections in the order of the text; 0 is the unnamed one before the first header, with position -1.
    int GetSectionCount() const;
    const TCString& GetSectionName(int section) const;
    // Where the header's opening bracket is.
    int GetSectionPosition(int section) const;

    // The index of the first match, or -1. A null section searches all, an empty one the unnamed section.
    // Takes time in proportion to the number of parameters.
    int FindParameter(const char* name, const char* section) const;
    int FindParameterNoCase(const char* name, const char* section) const;

    // --- Editing: false (or -1) for an index out of range and for what the syntax cannot express ---

    // Replace the value in the text.
    bool SetParamValInt(int index, int value);
    // `precision` is limited to 0 to 700.
    bool SetParamValDbl(int index, double value, StringFormat format, int precision);
    // The value (null: the empty one) is written as it is unless it holds a delimiter; then it is written in
    // quotation marks. Deliberately, for callers that quote their values themselves, one in quotation marks
    // is read without them, and an empty one is no value. Every other one reads back as given: what would
    // else be read as something different, as a text that begins with a mark, is quoted too. With unescaping,
    // marks and backslashes in it are escaped then. Without, the kind of mark that it does not hold is taken,
    // and a value with both kinds is refused.
    bool SetParamValStr(int index, const char* value);
    // Removes the value and its split string; the name stays.
    bool ClearParamVal(int index);
    // Adds a parameter without a value after the last one of its section (for an empty section, after the
    // header; for the last section, at the end of the text), and the section at the end of the text when it
    // is missing; answers its index. Null and empty name the unnamed section; of sections of one name, the
    // first is meant. A prefix and a missing delimiter before it are written too. Without `allowDuplicate` a
    // parameter of that name is answered instead.
    int InsertParameter(const char* name, const char* section, bool allowDuplicate);
    // Removes the parameter with its prefix and the delimiter after it.
    bool DeleteParameter(int index);
    // Removes the first section of that name: its parameters, its header and the delimiters after them.
    // Comments stay. False when there is none.
    bool DeleteSection(const char* section);
    // Whether the table is what parsing the text gives.
    bool CheckConsistency() const;

 private:
    std::unique_ptr<tc::ParameterText> impl;
};
