#include "sigweave/persistence/ParameterText.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <tuple>
#include <utility>
#include <vector>

#include "sigweave/persistence/ParameterValue.h"

namespace tc {
namespace {

constexpr double TEXT_GROWTH = 0.125;

template <typename Record>
void ReplaceRange(std::vector<Record>& records, int from, int to, std::vector<Record>&& fresh) {
    const auto kept = std::min<std::ptrdiff_t>(to - from, std::ssize(fresh));
    const auto end = std::move(fresh.begin(), fresh.begin() + kept, records.begin() + from);
    if (kept < std::ssize(fresh))
        records.insert(end, std::make_move_iterator(fresh.begin() + kept),
                       std::make_move_iterator(fresh.end()));
    else
        records.erase(end, records.begin() + to);
}

// The first parameter that starts at `place` or after it.
int FirstFrom(const std::vector<ParameterRecord>& parameters, std::int64_t place) {
    const auto at =
        std::partition_point(parameters.begin(), parameters.end(),
                             [&](const ParameterRecord& parameter) { return parameter.start < place; });
    return static_cast<int>(at - parameters.begin());
}

// Of two readings of one text, which may take its values for different ones.
bool AreSameParameters(const ParameterRecord& a, const ParameterRecord& b) {
    const auto places = [](const ParameterRecord& r) {
        return std::tie(r.section, r.first, r.start, r.nameEnd, r.valueStart, r.valueEnd);
    };
    return places(a) == places(b);
}

bool AreSameSections(const SectionRecord& a, const SectionRecord& b) {
    return a.first == b.first && a.last == b.last;
}

void Shift(ParameterRecord& parameter, int shift) {
    parameter.first += shift;
    parameter.start += shift;
    parameter.nameEnd += shift;
    if (!parameter.HasValue()) return;
    parameter.valueStart += shift;
    parameter.valueEnd += shift;
}

}  // namespace

void ParameterText::TakeSyntax() {
    if (!std::exchange(isNewSyntax, false)) return;
    ParameterTable fresh;
    TCString failure;
    if (ReadAll(newSyntax, fresh, failure) && ReadsTheSame(fresh))
        syntax = newSyntax;
    else
        syntax.decimalComma = newSyntax.decimalComma;
}

void ParameterText::Clear() {
    syntax = newSyntax;
    isNewSyntax = false;
    text.Empty();
    error.Empty();
    table.parameters.clear();
    table.sections.assign(1, SectionRecord());
    names.clear();
    values.clear();
}

int ParameterText::Parse(const char* newText) {
    TCString copy(newText);  // the argument may lie in the text
    Clear();
    text = std::move(copy);
    ParameterParser parser(syntax, View(), table);
    parser.ReadAll();
    error = parser.GetError();
    return error.IsEmpty() ? ParameterCount() : -1;
}

bool ParameterText::Edit(int at, int removed, std::string_view inserted, const TableChange& change) {
    const std::int64_t newLength = text.GetLength() - removed + std::ssize(inserted);
    if (!error.IsEmpty() || newLength >= INT_MAX) return false;
    const std::string cut(View().substr(static_cast<std::size_t>(at), static_cast<std::size_t>(removed)));
    const int added = static_cast<int>(inserted.size());
    Splice(at, removed, inserted);
    ParameterTable fresh;
    const std::optional<Window> window = ReadAround(at, removed, added, change, fresh);
    if (!window || !IsAsMeant(fresh, *window, change, at, added - removed)) {
        Splice(at, added, cut);
        return false;
    }
    Store(std::move(fresh), *window, added - removed);
    ForgetCopies(change);
    return true;
}

std::string_view ParameterText::NameOf(const ParameterRecord& parameter) const {
    return View().substr(static_cast<std::size_t>(parameter.start),
                         static_cast<std::size_t>(parameter.nameEnd + 1 - parameter.start));
}

const TCString& ParameterText::Name(int index) const {
    const auto [entry, isNew] = names.try_emplace(index);
    if (isNew) {
        const std::string_view name = NameOf(table.parameters[static_cast<std::size_t>(index)]);
        entry->second.AllocCopy(name);
    }
    return entry->second;
}

const TCString& ParameterText::Value(int index) const {
    const auto [entry, isNew] = values.try_emplace(index);
    if (isNew) entry->second = ReadValue(table.parameters[static_cast<std::size_t>(index)]);
    return entry->second;
}

std::string_view ParameterText::WrittenValue(const ParameterRecord& parameter) const {
    if (!parameter.HasValue()) return {};
    return View().substr(static_cast<std::size_t>(parameter.valueStart),
                         static_cast<std::size_t>(parameter.valueEnd + 1 - parameter.valueStart));
}

TCString ParameterText::ReadValue(const ParameterRecord& parameter) const {
    TCString value;
    if (parameter.HasValue()) ReadText(value, WrittenValue(parameter), parameter.escaped);
    return value;
}

void ParameterText::ForgetCopies(const TableChange& change) {
    values.erase(change.parameter);
    if (change.addedParameter && change.removedParameters == 1) return;
    names.clear();
    values.clear();
}

bool ParameterText::ReadAll(const ParameterSyntax& with, ParameterTable& fresh, TCString& failure) const {
    fresh.sections.emplace_back();
    ParameterParser parser(with, View(), fresh);
    const bool complete = parser.ReadAll();
    failure = parser.GetError();
    return complete;
}

bool ParameterText::ReadsTheSame(const ParameterTable& fresh) const {
    return std::ranges::equal(fresh.sections, table.sections, AreSameSections) &&
           std::ranges::equal(fresh.parameters, table.parameters, AreSameParameters);
}

bool ParameterText::IsConsistent() const {
    ParameterTable fresh;
    TCString failure;
    ReadAll(syntax, fresh, failure);
    const auto isTyped = [&](const ParameterRecord& known) {
        const ValueNumbers numbers = ReadNumbers(WrittenValue(known), known.decimalComma);
        return known.HasValue() ? known.type == numbers.type : known.type == TCProcessParameters::NO_VALUE;
    };
    return ViewOf(failure) == ViewOf(error) && ReadsTheSame(fresh) &&
           std::ranges::all_of(table.parameters, isTyped);
}

int ParameterText::EndOf(const ParameterRecord& parameter) const {
    if (parameter.HasValue()) return parameter.valueEnd + 1;
    const char* begin = text;
    const char* place = begin + parameter.nameEnd + 1;
    return static_cast<int>(place - begin + syntax.splitStrs.MatchAt(place, begin + text.GetLength()));
}

int ParameterText::BehindDelimiter(int place) const {
    const char* begin = text;
    return static_cast<int>(place + syntax.delimiters.MatchAt(begin + place, begin + text.GetLength()));
}

void ParameterText::Splice(int at, int removed, std::string_view inserted) {
    const int added = static_cast<int>(inserted.size());
    if (removed == 0 && added == 0) return;
    const int oldLength = text.GetLength();
    if (added > removed) text.AllocAddBuffer(added - removed, TEXT_GROWTH);
    char* place = text.LockBuffer() + at;
    std::memmove(place + added, place + removed, static_cast<std::size_t>(oldLength - at - removed));
    std::copy(inserted.begin(), inserted.end(), place);
    text.SetLength(oldLength + added - removed);
}

// Reads from the last parameter that no character after `at` can have influenced to the first known one
// after the edit, from which on nothing changes.
std::optional<ParameterText::Window> ParameterText::ReadAround(int at, int removed, int inserted,
                                                               const TableChange& change,
                                                               ParameterTable& fresh) const {
    const std::vector<ParameterRecord>& known = table.parameters;
    const std::int64_t lookAhead = 2 * static_cast<std::int64_t>(syntax.LongestToken());
    Window window;
    ParameterParser parser(syntax, View(), fresh);
    const int untouched = FirstFrom(known, at - lookAhead + 1);
    if (untouched > 0) {
        window.firstParameter = untouched - 1;
        window.firstSection = known[static_cast<std::size_t>(untouched - 1)].section + 1;
        parser.GoTo(known[static_cast<std::size_t>(untouched - 1)]);
    }
    auto next = known.begin() + std::max(FirstFrom(known, std::int64_t{at} + removed),
                                         change.parameter + change.removedParameters);
    const int shift = inserted - removed;
    bool more = untouched > 0 || parser.FindNext();
    while (more && (next == known.end() || next->start + shift != parser.Start())) {
        if (!parser.Read()) return std::nullopt;
        more = parser.FindNext();
        while (more && next != known.end() && next->start + shift < parser.Start()) ++next;
    }
    if (!parser.GetError().IsEmpty()) return std::nullopt;
    if (!more) next = known.end();
    window.endParameter = static_cast<int>(next - known.begin());
    window.endSection = next == known.end() ? SectionCount() : next->section + 1;
    return window;
}

bool ParameterText::IsTheAdded(const ParameterRecord& parameter, const TableChange::Parameter& added) const {
    const TCString value = ReadValue(parameter);
    return parameter.section == added.section && NameOf(parameter) == added.name &&
           parameter.HasValue() == added.value.has_value() && ViewOf(value) == added.value.value_or("");
}

// Everything but the parameter and the section that change must be where it was, apart from the shift.
// Then what was known of the others is put in the place of what was read of them now.
bool ParameterText::IsAsMeant(ParameterTable& fresh, const Window& window, const TableChange& change, int at,
                              int shift) const {
    if (change.parameter < window.firstParameter) return false;
    std::vector<ParameterRecord> meant;
    for (int i = window.firstParameter; i < window.endParameter; ++i) {
        if (i >= change.parameter && i < change.parameter + change.removedParameters) continue;
        ParameterRecord& moved = meant.emplace_back(table.parameters[static_cast<std::size_t>(i)]);
        if (change.removedSection && moved.section > *change.removedSection) --moved.section;
        if (moved.start >= at) Shift(moved, shift);
    }
    if (change.addedParameter) {
        const auto index = static_cast<std::size_t>(change.parameter - window.firstParameter);
        if (index >= fresh.parameters.size()) return false;
        const ParameterRecord& added = fresh.parameters[index];
        if (!IsTheAdded(added, *change.addedParameter)) return false;
        meant.insert(meant.begin() + static_cast<std::ptrdiff_t>(index), added);
    }
    if (!std::ranges::equal(fresh.parameters, meant, AreSameParameters) ||
        !std::ranges::equal(fresh.sections, SectionsMeant(fresh, window, change, at, shift), AreSameSections))
        return false;
    fresh.parameters = std::move(meant);
    return true;
}

std::vector<SectionRecord> ParameterText::SectionsMeant(const ParameterTable& fresh, const Window& window,
                                                        const TableChange& change, int at, int shift) const {
    std::vector<SectionRecord> meant;
    for (int i = window.firstSection; i < window.endSection; ++i) {
        const SectionRecord& old = table.sections[static_cast<std::size_t>(i)];
        const int moved = old.first <= at ? 0 : shift;
        if (i != change.removedSection) meant.push_back({old.first + moved, old.last + moved, {}});
    }
    if (change.addedSection && !fresh.sections.empty() &&
        ViewOf(fresh.sections.back().name) == *change.addedSection)
        meant.push_back(fresh.sections.back());
    return meant;
}

void ParameterText::Store(ParameterTable&& fresh, const Window& window, int shift) {
    const int sectionShift =
        static_cast<int>(std::ssize(fresh.sections)) - (window.endSection - window.firstSection);
    for (auto p = table.parameters.begin() + window.endParameter; p != table.parameters.end(); ++p) {
        Shift(*p, shift);
        p->section += sectionShift;
    }
    for (auto s = table.sections.begin() + window.endSection; s != table.sections.end(); ++s) {
        s->first += shift;
        s->last += shift;
    }
    ReplaceRange(table.parameters, window.firstParameter, window.endParameter, std::move(fresh.parameters));
    ReplaceRange(table.sections, window.firstSection, window.endSection, std::move(fresh.sections));
}

}  // namespace tc
