#include "sigweave/persistence/TCProcessParameters.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/persistence/ParameterQuote.h"
#include "sigweave/persistence/ParameterText.h"
#include "sigweave/persistence/ParameterValue.h"

namespace {

using tc::ParameterRecord;
using tc::ParameterText;
using tc::SectionRecord;
using tc::TableChange;
using tc::ViewOf;

constexpr int LONGEST_NUMBER = 1024;
// With it the longest double still fits: a sign, 309 digits, the decimal sign.
constexpr int MOST_DECIMALS = 700;

std::string_view ViewOf(const char* text) {
    return text != nullptr ? text : "";
}

// A default record for an index out of range.
template <typename Record>
const Record& RecordAt(const std::vector<Record>& records, int index) {
    static const Record none{};
    return index >= 0 && index < std::ssize(records) ? records[static_cast<std::size_t>(index)] : none;
}

const TCString& NoText() {
    static const TCString none;
    return none;
}

bool IsParameter(const ParameterText& text, int index) {
    return index >= 0 && index < text.ParameterCount();
}

// The first section of that name, or -1.
int FindSection(const ParameterText& text, std::string_view name) {
    const auto& sections = text.Table().sections;
    const auto at = std::ranges::find(sections, name, [](const SectionRecord& s) { return ViewOf(s.name); });
    return at == sections.end() ? -1 : static_cast<int>(at - sections.begin());
}

// The section's parameters, which are together: the index of the first and that after the last.
std::pair<int, int> ParametersOf(const ParameterText& text, int section) {
    const auto& parameters = text.Table().parameters;
    const auto run = std::ranges::equal_range(parameters, section, {}, &ParameterRecord::section);
    return {static_cast<int>(run.begin() - parameters.begin()),
            static_cast<int>(run.end() - parameters.begin())};
}

// The first parameter that fits; the section is looked at once for all of its parameters.
template <typename FitsName, typename FitsSection>
int Find(const ParameterText& text, FitsName fitsName, FitsSection fitsSection) {
    const tc::ParameterTable& table = text.Table();
    int known = -1;
    bool inSection = false;
    for (int i = 0; i < text.ParameterCount(); ++i) {
        const ParameterRecord& parameter = table.parameters[static_cast<std::size_t>(i)];
        if (parameter.section != known) {
            known = parameter.section;
            inSection = fitsSection(RecordAt(table.sections, known).name);
        }
        if (inSection && fitsName(i)) return i;
    }
    return -1;
}

// After the header's line: a comment and one delimiter.
int BehindHeader(const ParameterText& text, const SectionRecord& section) {
    const char* begin = text.Text();
    const char* end = begin + text.Text().GetLength();
    const char* behind = begin + section.last + 2;
    if (const std::ptrdiff_t comment = text.Syntax().commentStarts.MatchAt(behind, end); comment != 0)
        behind = std::find_if(behind + comment, end, tc::IsLineEnd);
    return text.BehindDelimiter(static_cast<int>(behind - begin));
}

// After what goes with a deleted parameter. A line end that is no delimiter and so begins the name ends the
// comment before it; the parameter's delimiter takes its place.
int BehindDeleted(const ParameterText& text, const ParameterRecord& parameter) {
    const std::string_view name = text.NameOf(parameter);
    const int end = text.EndOf(parameter);
    return !name.empty() && tc::IsLineEnd(name.front()) ? end : text.BehindDelimiter(end);
}

// Where a new parameter of the section may be, the best place first.
std::vector<int> PlacesIn(const ParameterText& text, int section) {
    const int end = text.Text().GetLength();
    const auto& [parameters, sections] = text.Table();
    const auto [first, last] = ParametersOf(text, section);
    const bool isLast = section + 1 == text.SectionCount();
    int inside = 0;
    if (first != last)
        inside = text.BehindDelimiter(text.EndOf(RecordAt(parameters, last - 1)));
    else if (section > 0)
        inside = BehindHeader(text, RecordAt(sections, section));
    else if (!isLast)
        inside = RecordAt(sections, 1).first - 1;
    return isLast ? std::vector{end, inside} : std::vector{inside};
}

std::string ParameterLine(const ParameterText& text, const std::string& name) {
    return std::string(text.Syntax().prefixes.First()).append(name).append(text.Syntax().delimiters.First());
}

bool InsertAt(ParameterText& text, int place, const std::string& name, int index, int section) {
    const bool onOwnLine = place == 0 || text.Syntax().delimiters.IsAtEndOf(
                                             text.View().substr(0, static_cast<std::size_t>(place)));
    const std::string lineEnd(onOwnLine ? "" : text.Syntax().delimiters.First());
    TableChange change;
    change.parameter = index;
    change.addedParameter = {name, std::nullopt, section};
    return text.Edit(place, 0, lineEnd + ParameterLine(text, name), change);
}

// One edit, so that a name which the syntax cannot carry leaves no empty section.
bool AppendWithSection(ParameterText& text, const std::string& name, std::string_view section) {
    const std::string delimiter(text.Syntax().delimiters.First());
    std::string added = text.Text().IsEmpty() ? "" : delimiter;
    added.append("[").append(section).append("]").append(delimiter).append(ParameterLine(text, name));
    TableChange change;
    change.parameter = text.ParameterCount();
    change.addedParameter = {name, std::nullopt, text.SectionCount()};
    change.addedSection = std::string(section);
    return text.Edit(text.Text().GetLength(), 0, added, change);
}

// `written` is the text after the split string, which is left out too without it; `meant` is
// the value that it says.
bool ReplaceValue(ParameterText& text, int index, std::optional<std::string_view> written,
                  std::optional<std::string_view> meant) {
    const ParameterRecord& parameter = RecordAt(text.Table().parameters, index);
    const int at = parameter.nameEnd + 1;
    const int end = text.EndOf(parameter);
    std::string inserted;
    if (written) inserted.append(text.Syntax().splitStrs.First()).append(*written);
    const bool needsDelimiter = written && (written->empty() || tc::IsQuotationMark(written->front()));
    if (needsDelimiter && text.BehindDelimiter(end) == end) inserted.append(text.Syntax().delimiters.First());
    TableChange change;
    change.parameter = index;
    change.removedParameters = 1;
    change.addedParameter = {std::string(text.NameOf(parameter)), {}, parameter.section};
    if (meant) change.addedParameter->value = *meant;
    return text.Edit(at, end - at, inserted, change);
}

bool SetNumber(ParameterText& text, int index, std::string_view number) {
    return IsParameter(text, index) && ReplaceValue(text, index, number, number);
}

// Deliberate: without a delimiter in it, a value that has its own quotation marks, and one that is empty,
// goes into the text as it is, for callers that quote their values themselves. False when the text does not
// allow that.
bool WriteAsItIs(ParameterText& text, int index, const std::string& value) {
    const tc::ParameterSyntax& syntax = text.Syntax();
    if (value.empty()) return ReplaceValue(text, index, value, std::nullopt);
    if (value.size() < 2 || !tc::IsQuotationMark(value.front()) || syntax.delimiters.IsIn(value))
        return false;
    TCString meant;
    return tc::ReadText(meant, value, syntax.unquote) && ReplaceValue(text, index, value, ViewOf(meant));
}

// One argument and the delimiter after it. The shell has taken the quotation marks away.
void AppendArgument(std::string& text, std::string_view argument, const tc::ParameterSyntax& syntax) {
    const char* end = argument.data() + argument.size();
    const char* p = argument.data();
    while (p != end && syntax.splitStrs.MatchAt(p, end) == 0) ++p;
    const char* value = p + syntax.splitStrs.MatchAt(p, end);
    const std::string_view bare(value, static_cast<std::size_t>(end - value));
    text.append(argument.data(), value);
    const std::vector<std::string> ways = tc::WaysToWrite(bare, syntax);
    const bool asItIs = bare.empty() || tc::IsQuotationMark(bare.front()) || ways.empty();
    text.append(asItIs ? bare : ways.front());
    text.append(syntax.delimiters.First());
}

}  // namespace

TCProcessParameters::TCProcessParameters() : impl(std::make_unique<ParameterText>()) {
    AddParamDelimiter("\r\n");
    AddParamSplitStr("=");
    impl->NewSyntax().commentStarts.AddEachCharacter("#;");
}

TCProcessParameters::TCProcessParameters(bool unquote, bool decimalComma, const char* prefixes,
                                         const char* delimiters, const char* splitStrs,
                                         const char* commentStarts)
    : impl(std::make_unique<ParameterText>()) {
    Init(unquote, decimalComma, prefixes, delimiters, splitStrs, commentStarts);
}

TCProcessParameters::TCProcessParameters(const TCProcessParameters& other)
    : impl(std::make_unique<ParameterText>(*other.impl)) {}

TCProcessParameters& TCProcessParameters::operator=(const TCProcessParameters& other) {
    *impl = *other.impl;
    return *this;
}

TCProcessParameters::~TCProcessParameters() = default;

void TCProcessParameters::Init(bool unquote, bool decimalComma, const char* prefixes, const char* delimiters,
                               const char* splitStrs, const char* commentStarts) {
    tc::ParameterSyntax& syntax = impl->NewSyntax();
    syntax = tc::ParameterSyntax{unquote, decimalComma, {}, {}, {}, {}};
    syntax.prefixes.AddEachCharacter(prefixes);
    syntax.delimiters.AddEachCharacter(delimiters);
    syntax.splitStrs.AddEachCharacter(splitStrs);
    syntax.commentStarts.AddEachCharacter(commentStarts);
}

void TCProcessParameters::AddParamPrefix(const char* prefix) {
    impl->NewSyntax().prefixes.Add(prefix);
}

void TCProcessParameters::AddParamDelimiter(const char* delimiter) {
    impl->NewSyntax().delimiters.Add(delimiter);
}

void TCProcessParameters::AddParamSplitStr(const char* splitStr) {
    impl->NewSyntax().splitStrs.Add(splitStr);
}

void TCProcessParameters::AddCommentStart(const char* commentStart) {
    impl->NewSyntax().commentStarts.Add(commentStart);
}

void TCProcessParameters::UnQuote(bool unquote) {
    impl->NewSyntax().unquote = unquote;
}

void TCProcessParameters::DecimalComma(bool decimalComma) {
    impl->NewSyntax().decimalComma = decimalComma;
}

int TCProcessParameters::ParseParamString(const char* text) {
    return impl->Parse(text);
}

int TCProcessParameters::ParseParamString(int argc, const char** argv) {
    const tc::ParameterSyntax& syntax = impl->NewSyntax();
    std::string text;
    for (int i = 1; i < argc && argv[i] != nullptr; ++i) AppendArgument(text, argv[i], syntax);
    return impl->Parse(text.c_str());
}

void TCProcessParameters::Reset() {
    impl->Clear();
}

const TCString& TCProcessParameters::BuildParamString() const {
    return impl->Text();
}

const TCString& TCProcessParameters::GetErrorText() const {
    return impl->GetError();
}

int TCProcessParameters::GetParamCount() const {
    return impl->ParameterCount();
}

const TCString& TCProcessParameters::GetParamName(int index) const {
    return IsParameter(*impl, index) ? impl->Name(index) : NoText();
}

const TCString& TCProcessParameters::GetParamSection(int index) const {
    return GetSectionName(RecordAt(impl->Table().parameters, index).section);
}

TCProcessParameters::ParamValType TCProcessParameters::GetParamValType(int index) const {
    return RecordAt(impl->Table().parameters, index).type;
}

int TCProcessParameters::GetParamValInt(int index) const {
    return RecordAt(impl->Table().parameters, index).integer;
}

double TCProcessParameters::GetParamValDbl(int index) const {
    return RecordAt(impl->Table().parameters, index).real;
}

const TCString& TCProcessParameters::GetParamValStr(int index) const {
    return IsParameter(*impl, index) ? impl->Value(index) : NoText();
}

int TCProcessParameters::GetParamPosition(int index) const {
    return IsParameter(*impl, index) ? RecordAt(impl->Table().parameters, index).start : -1;
}

int TCProcessParameters::GetSectionCount() const {
    return impl->SectionCount();
}

const TCString& TCProcessParameters::GetSectionName(int section) const {
    return RecordAt(impl->Table().sections, section).name;
}

int TCProcessParameters::GetSectionPosition(int section) const {
    const int name = RecordAt(impl->Table().sections, section).first;
    return name < 0 ? -1 : name - 1;
}

int TCProcessParameters::FindParameter(const char* name, const char* section) const {
    if (name == nullptr) return -1;
    const std::string_view wanted = name;
    const std::string_view within = ViewOf(section);
    return Find(
        *impl, [&](int i) { return impl->NameOf(RecordAt(impl->Table().parameters, i)) == wanted; },
        [&](const TCString& text) { return section == nullptr || ViewOf(text) == within; });
}

int TCProcessParameters::FindParameterNoCase(const char* name, const char* section) const {
    if (name == nullptr) return -1;
    TCString candidate;
    const auto fitsName = [&](int i) {
        const std::string_view text = impl->NameOf(RecordAt(impl->Table().parameters, i));
        return candidate.AllocCopy(text).CompareNoCase(name) == 0;
    };
    return Find(*impl, fitsName,
                [&](const TCString& text) { return section == nullptr || text.CompareNoCase(section) == 0; });
}

bool TCProcessParameters::SetParamValInt(int index, int value) {
    impl->TakeSyntax();
    return SetNumber(*impl, index, std::to_string(value));
}

bool TCProcessParameters::SetParamValDbl(int index, double value, StringFormat format, int precision) {
    impl->TakeSyntax();
    char buffer[LONGEST_NUMBER];
    const int digits = std::clamp(precision, 0, MOST_DECIMALS);
    const int length = ftoa(value, buffer, format, impl->Syntax().decimalComma, nullptr, 0, digits);
    return SetNumber(*impl, index, {buffer, static_cast<std::size_t>(length)});
}

bool TCProcessParameters::SetParamValStr(int index, const char* value) {
    if (!IsParameter(*impl, index)) return false;
    impl->TakeSyntax();
    const std::string meant(ViewOf(value));  // the argument may lie in the text
    if (WriteAsItIs(*impl, index, meant)) return true;
    const std::vector<std::string> ways = tc::WaysToWrite(meant, impl->Syntax());
    return std::ranges::any_of(
        ways, [&](const std::string& written) { return ReplaceValue(*impl, index, written, meant); });
}

bool TCProcessParameters::ClearParamVal(int index) {
    impl->TakeSyntax();
    return IsParameter(*impl, index) && ReplaceValue(*impl, index, std::nullopt, std::nullopt);
}

int TCProcessParameters::InsertParameter(const char* name, const char* section, bool allowDuplicate) {
    if (name == nullptr) return -1;
    const char* within = section != nullptr ? section : "";
    const int existing = allowDuplicate ? -1 : FindParameter(name, within);
    if (existing >= 0) return existing;
    impl->TakeSyntax();
    const std::string wanted(name);  // the argument may lie in the text
    const int found = FindSection(*impl, within);
    if (found < 0) return AppendWithSection(*impl, wanted, within) ? GetParamCount() - 1 : -1;
    const int index = ParametersOf(*impl, found).second;
    for (const int place : PlacesIn(*impl, found))
        if (InsertAt(*impl, place, wanted, index, found)) return index;
    return -1;
}

bool TCProcessParameters::DeleteParameter(int index) {
    if (!IsParameter(*impl, index)) return false;
    impl->TakeSyntax();
    const ParameterRecord& parameter = RecordAt(impl->Table().parameters, index);
    TableChange change;
    change.parameter = index;
    change.removedParameters = 1;
    const int end = BehindDeleted(*impl, parameter);
    return impl->Edit(parameter.first, end - parameter.first, {}, change);
}

bool TCProcessParameters::DeleteSection(const char* section) {
    const int found = FindSection(*impl, ViewOf(section));
    if (found < 0) return false;
    impl->TakeSyntax();
    const auto [first, last] = ParametersOf(*impl, found);
    const SectionRecord& header = RecordAt(impl->Table().sections, found);
    const int begin = found > 0 ? header.first - 1 : 0;
    int place = found > 0 ? impl->BehindDelimiter(header.last + 2) : 0;
    std::string kept;
    for (int i = first; i < last; ++i) {
        const ParameterRecord& parameter = RecordAt(impl->Table().parameters, i);
        kept.append(impl->View().substr(static_cast<std::size_t>(place),
                                        static_cast<std::size_t>(parameter.first - place)));
        place = BehindDeleted(*impl, parameter);
    }
    TableChange change;
    change.parameter = first;
    change.removedParameters = last - first;
    if (found > 0) change.removedSection = found;
    return impl->Edit(begin, place - begin, kept, change);
}

bool TCProcessParameters::CheckConsistency() const {
    return impl->IsConsistent();
}
