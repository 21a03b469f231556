#include "sigweave/persistence/ParameterParser.h"

#include <algorithm>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/persistence/ParameterQuote.h"
#include "sigweave/persistence/ParameterValue.h"

namespace tc {
namespace {

TCString TextOf(const char* from, const char* to) {
    return TCString(from, static_cast<int>(to - from));
}

}  // namespace

bool ParameterParser::ReadAll() {
    while (FindNext())
        if (!Read()) return false;
    return error.IsEmpty();
}

void ParameterParser::GoTo(const ParameterRecord& parameter) {
    first = parameter.first;
    start = parameter.start;
    section = parameter.section;
    p = begin + parameter.start;
}

bool ParameterParser::FindNext() {
    while (p != end) {
        if (const std::ptrdiff_t delimiter = syntax.delimiters.MatchAt(p, end); delimiter != 0)
            p += delimiter;
        else if (const std::ptrdiff_t comment = syntax.commentStarts.MatchAt(p, end); comment != 0)
            p = std::find_if(p + comment, end, IsLineEnd);
        else if (*p != '[')
            return ReadPrefix();
        else if (!ReadSection())
            return false;
    }
    return false;
}

bool ParameterParser::Read() {
    found = &table.parameters.emplace_back();
    found->section = section;
    found->first = first;
    found->start = start;
    ReadName();
    if (ReadValue()) return true;
    table.parameters.pop_back();
    return false;
}

bool ParameterParser::Fail(const TCString& message) {
    error = message;
    return false;
}

bool ParameterParser::FailHere(const char* message) {
    return Fail(message + (" at parameter " + FoundName()));
}

bool ParameterParser::ReadSection() {
    const char* stop = std::find_if(p, end, [](char c) { return c == ']' || IsLineEnd(c); });
    if (stop == end || *stop != ']')
        return Fail("Section end character is missing at section " + TextOf(p, stop) + "...");
    table.sections.push_back({IndexOf(p + 1), IndexOf(stop - 1), TextOf(p + 1, stop)});
    ++section;
    p = stop + 1;
    return true;
}

bool ParameterParser::ReadPrefix() {
    const std::ptrdiff_t prefix = syntax.prefixes.MatchAt(p, end);
    if (prefix == 0 && !syntax.prefixes.IsEmpty()) return Fail("Parameter prefix character is missing!");
    first = IndexOf(p);
    p += prefix;
    start = IndexOf(p);
    return true;
}

void ParameterParser::ReadName() {
    while (p != end && syntax.splitStrs.MatchAt(p, end) == 0 && syntax.delimiters.MatchAt(p, end) == 0) ++p;
    found->nameEnd = IndexOf(p - 1);
}

bool ParameterParser::ReadValue() {
    const std::ptrdiff_t split = syntax.splitStrs.MatchAt(p, end);
    p += split;
    if (split == 0 || syntax.delimiters.MatchAt(p, end) != 0) return true;
    if (p == end) return FailHere("Value is missing");
    const char* value = p;
    if (IsQuotationMark(*p)) {
        const std::size_t length = FindQuotedEnd({p, static_cast<std::size_t>(end - p)}, syntax.unquote);
        if (length == std::string_view::npos) return FailHere("Ending quotation mark is missing");
        p += length;
        if (syntax.delimiters.MatchAt(p, end) == 0)
            return FailHere("Parameter delimiter is missing after ending quotation mark");
    } else {
        p = FindEndOfPlain(p);
    }
    found->valueStart = IndexOf(value);
    found->valueEnd = IndexOf(p - 1);
    return StoreValue({value, static_cast<std::size_t>(p - value)});
}

// At the delimiter or the end. Where parameters have prefixes, a delimiter without one after it belongs to
// the value.
const char* ParameterParser::FindEndOfPlain(const char* value) const {
    for (const char* q = value;; ++q) {
        q = syntax.delimiters.FindFrom(q, end);
        if (q == end || syntax.prefixes.IsEmpty()) return q;
        const char* next = q + syntax.delimiters.MatchAt(q, end);
        if (next == end || syntax.prefixes.MatchAt(next, end) != 0) return q;
    }
}

bool ParameterParser::StoreValue(std::string_view written) {
    const ValueNumbers numbers = ReadNumbers(written, syntax.decimalComma);
    found->type = numbers.type;
    found->integer = numbers.integer;
    found->real = numbers.real;
    found->decimalComma = syntax.decimalComma;
    found->escaped = syntax.unquote && IsQuotationMark(written.front()) && written.find('\\') != written.npos;
    TCString value;
    if (!found->escaped || ReadText(value, written, true)) return true;
    return Fail("Error at unquoting value of parameter " + FoundName());
}

TCString ParameterParser::FoundName() const {
    return TextOf(begin + found->start, begin + found->nameEnd + 1);
}

}  // namespace tc
