#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "sigweave/foundation/TCString.h"
#include "sigweave/foundation/TextFinder.h"
#include "sigweave/platform/CodePage.h"

namespace {

using Text = std::string_view;

// The bytes of a text up to its first zero byte; a null pointer is an empty text.
Text ZeroTerminated(const char* text) {
    return text != nullptr ? Text(text) : Text();
}

Text Content(const TCString& text, TCString::DataFormat format) {
    return format == TCString::BINARY ? tc::ViewOf(text) : ZeroTerminated(text);
}

// Steps through the characters of a text: `visit` is handed each as its bytes and its code and answers
// whether to go on.
template <class Visit>
void ForEachCharacter(Text text, Visit visit) {
    const char* const end = text.data() + text.size();
    for (const char* p = text.data(); p < end;) {
        const tc::Character character = tc::CharacterAt(p, end);
        if (!visit(Text(p, static_cast<std::size_t>(character.bytes)), character.code)) return;
        p += character.bytes;
    }
}

bool Contains(Text set, Text character) {
    bool found = false;
    ForEachCharacter(set, [&](Text member, char32_t) { return !(found = member == character); });
    return found;
}

// The tests that the trimming and spanning operations apply to a character.
auto White() {
    return [](Text, char32_t code) { return tc::IsSpace(code); };
}
auto Equal(char wanted) {
    return [wanted](Text character, char32_t) { return character == Text(&wanted, 1); };
}
auto MemberOf(Text set) {
    return [set](Text character, char32_t) { return Contains(set, character); };
}
auto NotMemberOf(Text set) {
    return [set](Text character, char32_t) { return !Contains(set, character); };
}

// Length in bytes of the leading run of characters that pass the test.
template <class Test>
int LeadingRun(Text text, Test test) {
    std::size_t run = 0;
    ForEachCharacter(text, [&](Text character, char32_t code) {
        if (!test(character, code)) return false;
        run += character.size();
        return true;
    });
    return static_cast<int>(run);
}

// Where the trailing run of characters that pass the test begins, or -1 when the last one does not pass.
template <class Test>
int TrailingRun(Text text, Test test) {
    const char* run = nullptr;
    ForEachCharacter(text, [&](Text character, char32_t code) {
        if (!test(character, code))
            run = nullptr;
        else if (run == nullptr)
            run = character.data();
        return true;
    });
    return run != nullptr ? static_cast<int>(run - text.data()) : -1;
}

int IndexOrNone(Text text, const char* hit) {
    return hit != text.data() + text.size() ? static_cast<int>(hit - text.data()) : -1;
}

// Whether a search from `from` hit before the zero byte that ends the text. (Looking for that first would
// make the searches for all occurrences quadratic.)
bool IsTextHit(const char* from, const char* hit, const char* end) {
    return hit != end && std::memchr(from, 0, static_cast<std::size_t>(hit - from) + 1) == nullptr;
}

// `lowered` holds the codes of the lower-case characters.
bool BeginsNoCase(const char* p, const char* end, std::u32string_view lowered) {
    for (const char32_t wanted : lowered) {
        if (p == end) return false;
        const tc::Character here = tc::CharacterAt(p, end);
        if (tc::ToLower(here.code) != wanted) return false;
        p += here.bytes;
    }
    return true;
}

template <class Map>
void MapCharacters(TCString& text, Map map) {
    std::string mapped;
    mapped.reserve(static_cast<std::size_t>(text.GetLength()));
    ForEachCharacter(tc::ViewOf(text), [&](Text character, char32_t code) {
        const char32_t other = map(code);
        if (other == code || !tc::AppendCharacter(mapped, other)) mapped += character;
        return true;
    });
    text.AllocCopy(mapped);
}

void CutFront(TCString& text, int run) {
    if (run > 0) text.AllocCopy(text.LockBuffer() + run, text.GetLength() - run);
}

void CutBack(TCString& text, int start) {
    if (start >= 0) text.AllocCopy(text.LockBuffer(), start);
}

int Occurrence(int n) {
    return n == 0 ? 1 : n;
}

int Opposite(int n) {
    return n == INT32_MIN ? INT32_MAX : -n;
}

}  // namespace

// --- Searching

int TCString::Find(char character, int start) const {
    start = std::max(start, 0);
    if (start >= length) return -1;
    const char *const from = data + start, *const end = data + length;
    const tc::TextFinder finder(Text(&character, 1));
    const char* hit = finder.Find(from, end);
    while (hit != end && tc::CharacterAt(hit, end).bytes > 1)
        hit = finder.Find(hit + tc::CharacterAt(hit, end).bytes, end);
    return IsTextHit(from, hit, end) ? static_cast<int>(hit - data) : -1;
}

int TCString::Find(const char* text, int start) const {
    if (text == nullptr || start < 0 || start >= length) return -1;
    const Text wanted(text);
    if (wanted.empty()) return start;
    const char *const from = data + start, *const end = data + length;
    const char* const hit = tc::TextFinder(wanted).Find(from, end);
    return IsTextHit(from, hit, end) ? static_cast<int>(hit - data) : -1;
}

int TCString::FindNoCase(const char* text, int start) const {
    start = std::max(start, 0);
    if (SafeStrlen(text) == 0 || start >= length) return -1;
    std::u32string wanted;
    ForEachCharacter(text, [&](Text, char32_t code) {
        wanted += tc::ToLower(code);
        return true;
    });
    int index = -1;
    ForEachCharacter(tc::ViewOf(*this).substr(static_cast<std::size_t>(start)),
                     [&](Text here, char32_t code) {
                         if (code == 0) return false;
                         if (BeginsNoCase(here.data(), data + length, wanted))
                             index = static_cast<int>(here.data() - data);
                         return index < 0;
                     });
    return index;
}

int TCString::FindBin(const TCString& bytes, int start) const {
    start = std::max(start, 0);
    if (start > length) return -1;
    const std::size_t index = tc::ViewOf(*this).find(tc::ViewOf(bytes), static_cast<std::size_t>(start));
    return index != Text::npos ? static_cast<int>(index) : -1;
}

int TCString::FindOneOf(const char* set) const {
    const Text text = ZeroTerminated(data);
    return IndexOrNone(text, text.data() + LeadingRun(text, NotMemberOf(ZeroTerminated(set))));
}

int TCString::FindOneOf(const char* set, int setLen, int start) const {
    start = std::max(start, 0);
    if (set == nullptr || setLen < 1 || start >= length) return -1;
    const Text members(set, static_cast<std::size_t>(setLen));
    const std::size_t index = tc::ViewOf(*this).find_first_of(members, static_cast<std::size_t>(start));
    return index != Text::npos ? static_cast<int>(index) : -1;
}

int TCString::ReverseFind(char character, DataFormat format) const {
    if (format == BINARY) {
        const std::size_t index = tc::ViewOf(*this).rfind(character);
        return index != Text::npos ? static_cast<int>(index) : -1;
    }
    int last = -1;
    ForEachCharacter(ZeroTerminated(data), [&](Text here, char32_t) {
        if (here == Text(&character, 1)) last = static_cast<int>(here.data() - data);
        return true;
    });
    return last;
}

int TCString::FindStringIndex(const TCString& sub, int n, DataFormat format) const {
    if (sub.IsEmpty()) return -1;
    n = Occurrence(n);
    const auto next = [&](int start) {
        return format == BINARY ? FindBin(sub, start) : Find(static_cast<const char*>(sub), start);
    };
    std::vector<int> positions;
    for (int p = next(0); p >= 0; p = next(p + sub.length)) {
        positions.push_back(p);
        if (static_cast<int>(positions.size()) == n) return p;
    }
    const int fromFront = n < 0 ? static_cast<int>(positions.size()) + n : -1;
    return fromFront >= 0 ? positions[static_cast<std::size_t>(fromFront)] : -1;
}

// --- Editing

int TCString::Insert(int index, char character) {
    index = std::clamp(index, 0, static_cast<int>(length));
    Append(&character, 1);
    std::rotate(data + index, data + length - 1, data + length);
    return length;
}

int TCString::Insert(int index, const char* text) {
    const int count = SafeStrlen(text);
    if (count == 0) return length;
    index = std::clamp(index, 0, static_cast<int>(length));
    Append(text, count);
    std::rotate(data + index, data + length - count, data + length);
    return length;
}

int TCString::Delete(int index, int count) {
    index = std::max(index, 0);
    if (count < 1 || index >= length) return length;
    count = std::min(count, length - index);
    std::copy(data + index + count, data + length + 1, data + index);
    return length -= count;
}

int TCString::Replace(char oldCharacter, char newCharacter) {
    if (oldCharacter == newCharacter) return 0;
    int replaced = 0;
    ForEachCharacter(tc::ViewOf(*this), [&](Text character, char32_t) {
        if (character != Text(&oldCharacter, 1)) return true;
        data[character.data() - data] = newCharacter;
        ++replaced;
        return true;
    });
    return replaced;
}

int TCString::Replace(const char* oldText, const char* newText) {
    const Text wanted = ZeroTerminated(oldText), substitute = ZeroTerminated(newText);
    if (wanted.empty() || length == 0) return 0;
    const tc::TextFinder finder(wanted);
    const char* const end = data + length;
    std::vector<const char*> hits;
    for (const char* p = data; (p = finder.Find(p, end)) != end; p += wanted.size()) hits.push_back(p);
    if (hits.empty()) return 0;

    const auto count = static_cast<std::int64_t>(hits.size());
    TCString result;
    const std::int64_t growth =
        static_cast<std::int64_t>(substitute.size()) - static_cast<std::int64_t>(wanted.size());
    result.Reserve(std::max<std::int64_t>(alloc, length + growth * count + 1));
    char* out = result.data;
    const char* from = data;
    for (const char* hit : hits) {
        out = std::copy(from, hit, out);
        out = std::copy(substitute.begin(), substitute.end(), out);
        from = hit + wanted.size();
    }
    out = std::copy(from, end, out);
    result.length = static_cast<int>(out - result.data);
    *this = std::move(result);
    return static_cast<int>(count);
}

int TCString::Remove(char character) {
    const int before = length;
    if (data == nullptr) return 0;
    length = static_cast<int>(std::remove(data, data + length, character) - data);
    data[length] = '\0';
    return before - length;
}

TCString& TCString::MakeUpper() {
    MapCharacters(*this, tc::ToUpper);
    return *this;
}

TCString& TCString::MakeLower() {
    MapCharacters(*this, tc::ToLower);
    return *this;
}

TCString& TCString::MakeReverse(DataFormat format) {
    if (format == BINARY) {
        std::reverse(data, data + length);
        return *this;
    }
    const std::string text(ZeroTerminated(data));
    char* out = data + text.size();
    ForEachCharacter(text, [&](Text character, char32_t) {
        out -= character.size();
        std::copy(character.begin(), character.end(), out);
        return true;
    });
    return *this;
}

TCString& TCString::TrimLeft() {
    CutFront(*this, LeadingRun(tc::ViewOf(*this), White()));
    return *this;
}

TCString& TCString::TrimLeft(char character) {
    CutFront(*this, LeadingRun(tc::ViewOf(*this), Equal(character)));
    return *this;
}

TCString& TCString::TrimLeft(const char* set) {
    CutFront(*this, LeadingRun(tc::ViewOf(*this), MemberOf(ZeroTerminated(set))));
    return *this;
}

TCString& TCString::TrimLeft(const TCString& set, DataFormat format) {
    CutFront(*this, LeadingRun(Content(*this, format), MemberOf(Content(set, format))));
    return *this;
}

TCString& TCString::TrimRight(DataFormat format) {
    CutBack(*this, TrailingRun(Content(*this, format), White()));
    return *this;
}

TCString& TCString::TrimRight(char character, DataFormat format) {
    CutBack(*this, TrailingRun(Content(*this, format), Equal(character)));
    return *this;
}

TCString& TCString::TrimRight(const char* set) {
    CutBack(*this, TrailingRun(ZeroTerminated(data), MemberOf(ZeroTerminated(set))));
    return *this;
}

TCString& TCString::TrimRight(const TCString& set, DataFormat format) {
    CutBack(*this, TrailingRun(Content(*this, format), MemberOf(Content(set, format))));
    return *this;
}

// --- Cutting

TCString TCString::Mid(int first, int count) const {
    first = std::max(first, 0);
    if (first >= length) return {};
    return TCString(data + first, std::min(count, length - first));
}

TCString TCString::Mid(int first) const {
    return Mid(first, length);
}

TCString TCString::Left(int count) const {
    return TCString(data, std::min<int>(count, length));
}

TCString TCString::Right(int count, DataFormat format) const {
    const int end = static_cast<int>(Content(*this, format).size());
    count = std::max(count, 0);
    return count >= end ? *this : TCString(data + end - count, count);
}

TCString TCString::SpanIncluding(const char* set) const {
    return Left(LeadingRun(ZeroTerminated(data), MemberOf(ZeroTerminated(set))));
}

TCString TCString::SpanExcluding(const char* set) const {
    return Left(LeadingRun(ZeroTerminated(data), NotMemberOf(ZeroTerminated(set))));
}

TCString TCString::LeftOf(const TCString& sub, int n, DataFormat format) const {
    return Left(FindStringIndex(sub, n, format));
}

TCString TCString::RightOf(const TCString& sub, int n, DataFormat format) const {
    const int index = FindStringIndex(sub, Opposite(Occurrence(n)), format);
    return index >= 0 ? Mid(index + sub.length) : TCString();
}

TCString TCString::MidOf(const TCString& a, const TCString& b, DataFormat format) const {
    return MidOf(a, 1, b, 1, format);
}

TCString TCString::MidOf(const TCString& a, int na, const TCString& b, int nb, DataFormat format) const {
    return RightOf(a, Opposite(na), format).LeftOf(b, Opposite(nb), format);
}
