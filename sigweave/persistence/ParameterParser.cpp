#include "sigweave/persistence/ParameterParser.h"

#include <algorithm>
#include <utility>

#include "sigweave/foundation/StringConversion.h"
#include "sigweave/persistence/ParameterValue.h"

namespace tc {
namespace {

bool IsLineEnd(char c) {
    return c == '\r' || c == '\n';
}

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
    found = ParameterRecord();
    found.first = parameter.first;
    found.start = parameter.start;
    section = parameter.section;
    p = begin + parameter.start;
}

bool ParameterParser::FindNext() {
    while (p != end) {
        if (const std::ptrdiff_t delimiter = syntax.delimiters.MatchAt(p, end); delimiter != 0)
            p += delimiter;
        else if (syntax.commentStarts.MatchAt(p, end) != 0)
            p = std::find_if(p, end, IsLineEnd);
        else if (*p != '[')
            return ReadPrefix();
        else if (!ReadSection())
            return false;
    }
    return false;
}

bool ParameterParser::Read() {
    found.section = section;
    ReadName();
    if (!ReadValue()) return false;
    table.parameters.push_back(std::move(found));
    return true;
}

bool ParameterParser::Fail(const TCString& message) {
    error = message;
    return false;
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
    found = ParameterRecord();
    found.first = IndexOf(p);
    p += prefix;
    found.start = IndexOf(p);
    return true;
}

void ParameterParser::ReadName() {
    const char* start = p;
    while (p != end && syntax.splitStrs.MatchAt(p, end) == 0 && syntax.delimiters.MatchAt(p, end) == 0) ++p;
    found.nameEnd = IndexOf(p - 1);
    found.name = TextOf(start, p);
}

bool ParameterParser::ReadValue() {
    const std::ptrdiff_t split = syntax.splitStrs.MatchAt(p, end);
    p += split;
    if (split == 0 || syntax.delimiters.MatchAt(p, end) != 0) return true;
    const TCString where = " at parameter " + found.name;
    if (p == end) return Fail("Value is missing" + where);
    const char* start = p;
    if (IsQuotationMark(*p)) {
        p = FindEndOfQuoted(p);
        if (p == nullptr) return Fail("Ending quotation mark is missing" + where);
        if (syntax.delimiters.MatchAt(p, end) == 0)
            return Fail("Parameter delimiter is missing after ending quotation mark" + where);
    } else {
        p = FindEndOfPlain(p);
    }
    found.valueStart = IndexOf(start);
    found.valueEnd = IndexOf(p - 1);
    return StoreValue({start, static_cast<std::size_t>(p - start)});
}

// Behind the closing mark, or null.
const char* ParameterParser::FindEndOfQuoted(const char* value) const {
    const char mark = *value;
    for (const char* q = value + 1; q != end; ++q) {
        // Deliberate: two backslashes before the mark hide it as well, for the texts that are stored that
        // way.
        if (syntax.unquote && *q == '\\' && q + 1 != end && q[1] == mark)
            ++q;
        else if (*q == mark)
            return q + 1;
    }
    return nullptr;
}

// At the delimiter or the end. Where parameters have prefixes, a delimiter without one behind it belongs to
// the value.
const char* ParameterParser::FindEndOfPlain(const char* value) const {
    for (const char* q = value; q != end; ++q) {
        const std::ptrdiff_t delimiter = syntax.delimiters.MatchAt(q, end);
        if (delimiter == 0) continue;
        const char* next = q + delimiter;
        if (syntax.prefixes.IsEmpty() || next == end || syntax.prefixes.MatchAt(next, end) != 0) return q;
    }
    return end;
}

bool ParameterParser::StoreValue(std::string_view written) {
    const ValueNumbers numbers = ReadNumbers(written, syntax.decimalComma);
    found.type = numbers.type;
    found.integer = numbers.integer;
    found.real = numbers.real;
    const bool quoted = IsQuotationMark(written.front());
    const std::string_view inner = quoted ? written.substr(1, written.size() - 2) : written;
    found.value = TCString(inner.data(), static_cast<int>(inner.size()));
    if (!quoted || !syntax.unquote) return true;
    TCString plain;
    if (!UnQuoteEscapeChar(plain, found.value))
        return Fail("Error at unquoting value of parameter " + found.name);
    found.value = std::move(plain);
    return true;
}

}  // namespace tc
