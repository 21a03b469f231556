#pragma once

#include <cstdint>
#include <memory>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// One parameter text (optional [sections], name=value lines, comments), parsed into a table of typed
// parameters and edited in place: comments, order and layout stay as they are, and the table agrees with the
// text after every edit.
//
// The syntax is configurable: the strings that introduce a parameter, end it, split name from value and start
// a comment. Operations answer success; the reason of a failure stands in `GetErrorText`. Copies are deep.
// For one thread at a time.
class TC_API TCProcessParameters {
 public:
    // NO_VALUE: the name stands alone. STRING: no number, or written in quotation marks.
    enum ParamValType { NO_VALUE = 0, INTEGER = 1, FLOAT = 2, STRING = 3 };

    // Delimiter "\r\n" (both characters together), split string "=", comment starts "#" and ";".
    TCProcessParameters();
    // Each character of each string becomes one entry of its list; null adds nothing.
    TCProcessParameters(bool unquote, bool decimalComma, const char* prefixes, const char* delimiters,
                        const char* splitStrs, const char* commentStarts);
    TCProcessParameters(const TCProcessParameters& other);
    TCProcessParameters& operator=(const TCProcessParameters& other);
    ~TCProcessParameters();

    void Init(bool unquote, bool decimalComma, const char* prefixes, const char* delimiters,
              const char* splitStrs, const char* commentStarts);
    // Each adds one whole string.
    void AddParamPrefix(const char* prefix);
    void AddParamDelimiter(const char* delimiter);
    void AddParamSplitStr(const char* splitStr);
    void AddCommentStart(const char* commentStart);
    // Values in quotation marks are unescaped.
    void UnQuote(bool unquote);
    void DecimalComma(bool decimalComma);

    // Replaces the text; the number of parameters, or -1.
    int ParseParamString(const char* text);
    int ParseParamString(int argc, const char** argv);
    void Reset();
    const TCString& BuildParamString() const;
    const TCString& GetErrorText() const;

    int GetParamCount() const;
    // An index out of range answers empty texts, NO_VALUE and 0.
    const TCString& GetParamName(int index) const;
    const TCString& GetParamSection(int index) const;
    ParamValType GetParamValType(int index) const;
    int GetParamValInt(int index) const;
    double GetParamValDbl(int index) const;
    const TCString& GetParamValStr(int index) const;
    // Where the parameter starts in the text (a byte index); -1 out of range.
    int GetParamPosition(int index) const;
    // Sections in the order of the text; 0 is the unnamed one before the first header, with position -1.
    int GetSectionCount() const;
    const TCString& GetSectionName(int section) const;
    int GetSectionPosition(int section) const;

    // The index of the first match, or -1. A null section searches all.
    int FindParameter(const char* name, const char* section) const;
    int FindParameterNoCase(const char* name, const char* section) const;

    // Replace the value in the text; false for an index out of range.
    bool SetParamValInt(int index, int value);
    bool SetParamValDbl(int index, double value, StringFormat format, int precision);
    bool SetParamValStr(int index, const char* value);
    bool ClearParamVal(int index);
    // Adds a parameter without a value, and its section when that is missing; answers its index. Without
    // `allowDuplicate` a parameter of that name is answered instead.
    int InsertParameter(const char* name, const char* section, bool allowDuplicate);
    bool DeleteParameter(int index);
    bool DeleteSection(const char* section);
    // Whether the table agrees with the text.
    bool CheckConsistency() const;

 private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};
