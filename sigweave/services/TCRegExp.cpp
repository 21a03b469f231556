#include "sigweave/services/TCRegExp.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <regex>
#include <string>

#include "sigweave/platform/OwnStack.h"
#include "sigweave/services/Bilingual.h"

namespace {

namespace engine = std::regex_constants;

constexpr std::int32_t NO_ERROR_CODE = -1;
constexpr int LONGEST_PATTERN = 65536;
constexpr int MOST_LOOK_AHEADS = 100;
constexpr std::int64_t MOST_STORED_BYTES = std::int64_t{256} << 20;
constexpr std::size_t MOST_REPLACED_BYTES = std::size_t{256} << 20;

// Measured with g++ 12, -O0 to -O3: matching takes up to 310 bytes a character and 240 a group around it;
// compiling up to 570 bytes a byte of the pattern. Between two looks at the stack matching passes at most all
// 100,000 states that a pattern may have, some of them several times, at up to 600 bytes a state: that is the
// reserve.
constexpr std::size_t STACK_BYTES = std::size_t{512} << 20;
constexpr std::size_t STACK_RESERVE = std::size_t{64} << 20;
// Calls that stay within this keep their memory for the next; deeper ones are slow, for they leave the
// caches.
constexpr std::size_t STACK_KEPT = std::size_t{1} << 20;

constexpr std::int64_t STEPS = 120'000'000;
constexpr std::int64_t STEPS_PER_BYTE = 600;
constexpr std::int64_t STEPS_OF_ROUND = 6;
constexpr std::int64_t STEPS_OF_DEEP_ROUND = 60;
constexpr std::int64_t STEPS_OF_RETREAT = 120'000'000;

// What the operation under way on this thread may still use, and why it was stopped.
struct Allowance {
    const char* deep = nullptr;                        // below this address a round counts more,
    const char* bottom = nullptr;                      // and below this one is the end
    std::int64_t steps = 0;                            // below 0 the operation is stopped,
    std::int32_t reason = TCRegExp::ERROR_COMPLEXITY;  // with this code
    bool wasDeep = false;

    bool IsUsedUp() const { return steps < 0; }
    // Counts a look at a character; whether the operation is stopped.
    bool IsUsedUpByLook() { return --steps < 0; }
    // Counts a start of a search, or a round of a repeat; whether the operation is stopped.
    bool IsUsedUpByRound() {
        const char* here = tc::OwnStack::Here();
        steps -= STEPS_OF_ROUND;
        if (steps >= 0 && here >= deep) [[likely]]
            return false;
        return LookCloser(here);
    }
    [[gnu::noinline]] bool LookCloser(const char* here) {
        if (steps < -STEPS_OF_RETREAT) throw std::regex_error(engine::error_complexity);
        if (here >= deep || IsUsedUp()) return IsUsedUp();
        wasDeep = true;
        steps -= STEPS_OF_DEEP_ROUND - STEPS_OF_ROUND;
        if (here >= bottom) return IsUsedUp();
        reason = TCRegExp::ERROR_STACK;
        steps = -1;
        return true;
    }
};

// Read for each character: this model spares the call that finds a thread's variables.
[[gnu::tls_model("initial-exec")]] constinit thread_local Allowance allowance;

}  // namespace

namespace tc {

// A place in the text. The engine asks whether two places differ once for each start of a search and once for
// each round of a repeat, and whether they are the same before it looks at a character: there is seen whether
// it goes too deep or takes too long. All places are the end of the text then, so that it runs out of ways
// and comes back, far faster than by an exception through a million calls.
//
// Has a name outside of this file, for otherwise the compiler makes one function with three times the stack
// of all that the engine calls for a character.
struct Place {
    using iterator_category = std::random_access_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    const char* at = nullptr;

    reference operator*() const { return *at; }
    Place& operator++() {
        ++at;
        return *this;
    }
    Place& operator--() {
        --at;
        return *this;
    }
    Place& operator+=(difference_type count) {
        at += count;
        return *this;
    }
    friend Place operator+(Place place, difference_type count) { return {place.at + count}; }
    friend difference_type operator-(Place a, Place b) { return a.at - b.at; }
    friend bool operator==(Place a, Place b) { return allowance.IsUsedUpByLook() || a.at == b.at; }
    friend bool operator!=(Place a, Place b) { return !allowance.IsUsedUpByRound() && a.at != b.at; }
};

}  // namespace tc

namespace {

using tc::Place;
using Matches = std::match_results<Place>;

template <typename Flag>
struct FlagPair {
    unsigned long ours;
    Flag engines;
};

constexpr tc::Bilingual ERROR_TEXTS[] = {
    {"no such collating element or character class",
     "kein solches Sortierelement und keine solche Zeichenklasse"},
    {"no such character class", "keine solche Zeichenklasse"},
    {"a wrong or unfinished escape", "eine falsche oder unvollständige Umschreibung mit \\"},
    {"a reference to a group that is not there", "ein Verweis auf eine Gruppe, die es nicht gibt"},
    {"unbalanced [ and ]", "[ und ] gehen nicht auf"},
    {"unbalanced ( and ), or nothing in front of * + ? or {",
     "( und ) gehen nicht auf, oder vor * + ? oder { steht nichts"},
    {"unbalanced { and }", "{ und } gehen nicht auf"},
    {"no valid numbers between { and }", "keine gültigen Zahlen zwischen { und }"},
    {"a range whose ends are the wrong way round", "ein Bereich, dessen Enden vertauscht sind"},
    {"too little memory, or too many states or results",
     "zu wenig Speicher, oder zu viele Zustände oder Ergebnisse"},
    {"nothing in front that could be repeated", "davor steht nichts, was sich wiederholen ließe"},
    {"too long, or too many ways in which it could match",
     "zu lang, oder zu viele Möglichkeiten der Übereinstimmung"},
    {"too deep, or too long a match", "zu tief, oder eine zu lange Übereinstimmung"},
    {"more than one grammar", "mehr als eine Grammatik"},
};
static_assert(std::size(ERROR_TEXTS) == TCRegExp::ERROR_GRAMMAR + 1);

constexpr FlagPair<engine::syntax_option_type> SYNTAX[] = {
    {TCRegExp::ECMASCRIPT, engine::ECMAScript},
    {TCRegExp::BASIC, engine::basic},
    {TCRegExp::EXTENDED, engine::extended},
    {TCRegExp::AWK, engine::awk},
    {TCRegExp::GREP, engine::grep},
    {TCRegExp::EGREP, engine::egrep},
    {TCRegExp::IGNORE_CASE, engine::icase},
    {TCRegExp::NO_GROUPS, engine::nosubs},
    {TCRegExp::OPTIMIZE, engine::optimize},
    {TCRegExp::COLLATE, engine::collate},
    {TCRegExp::MULTILINE, engine::multiline},
};

constexpr FlagPair<engine::match_flag_type> MATCH[] = {
    {TCRegExp::NOT_BEGIN_OF_LINE, engine::match_not_bol},
    {TCRegExp::NOT_END_OF_LINE, engine::match_not_eol},
    {TCRegExp::NOT_BEGIN_OF_WORD, engine::match_not_bow},
    {TCRegExp::NOT_END_OF_WORD, engine::match_not_eow},
    {TCRegExp::MATCH_ANY, engine::match_any},
    {TCRegExp::MATCH_NOT_NULL, engine::match_not_null},
    {TCRegExp::MATCH_CONTINUOUS, engine::match_continuous},
    {TCRegExp::FORMAT_SED, engine::format_sed},
    {TCRegExp::FORMAT_NO_COPY, engine::format_no_copy},
    {TCRegExp::FORMAT_FIRST_ONLY, engine::format_first_only},
};

template <typename Flag, std::size_t COUNT>
Flag Translate(unsigned long flags, const FlagPair<Flag> (&table)[COUNT]) {
    Flag result{};
    for (const FlagPair<Flag>& pair : table) {
        if ((flags & pair.ours) != 0) result |= pair.engines;
    }
    return result;
}

// The position is our code.
constexpr engine::error_type ERRORS[] = {
    engine::error_collate, engine::error_ctype, engine::error_escape,    engine::error_backref,
    engine::error_brack,   engine::error_paren, engine::error_brace,     engine::error_badbrace,
    engine::error_range,   engine::error_space, engine::error_badrepeat, engine::error_complexity,
    engine::error_stack,
};
static_assert(std::size(ERRORS) == TCRegExp::ERROR_GRAMMAR);

// The engine has one more failure than its interface names: several grammars at once.
std::int32_t Translate(engine::error_type code) {
    return static_cast<std::int32_t>(std::find(std::begin(ERRORS), std::end(ERRORS), code) -
                                     std::begin(ERRORS));
}

// Answers the error's code.
template <typename Work>
std::int32_t Catch(Work& work) {
    try {
        work();
    } catch (const std::regex_error& error) {
        return Translate(error.code());
    } catch (...) {
        return TCRegExp::ERROR_SPACE;
    }
    return NO_ERROR_CODE;
}

// The engine keeps a table of all states for each look-ahead that it is in.
bool HasTooManyLookAheads(const TCString& pattern) {
    int count = 0;
    for (int at = pattern.FindBin("(?", 0); at >= 0; at = pattern.FindBin("(?", at + 2)) {
        const char kind = pattern[at + 2];
        count += kind == '=' || kind == '!';
    }
    return count > MOST_LOOK_AHEADS;
}

tc::OwnStack& StackOfThread() {
    thread_local tc::OwnStack stack(STACK_BYTES);
    return stack;
}

// Answers the error's code. `bytes` is the length of the text.
template <typename Work>
std::int32_t RunOnOwnStack(int bytes, Work work) {
    tc::OwnStack& stack = StackOfThread();
    if (!stack.Reserve()) return TCRegExp::ERROR_STACK;
    std::int32_t code = NO_ERROR_CODE;
    allowance = {stack.Top() - STACK_KEPT, stack.Lowest() + STACK_RESERVE, STEPS + STEPS_PER_BYTE * bytes};
    stack.Run([&] { code = Catch(work); });
    if (allowance.wasDeep) stack.GiveBack(STACK_KEPT);
    return allowance.IsUsedUp() ? allowance.reason : code;
}

Place Begin(const TCString& text) {
    return {static_cast<const char*>(text)};
}

Place End(const TCString& text) {
    return Begin(text) + text.GetLength();
}

TCString Cut(Place begin, Place end) {
    return {begin.at, static_cast<int>(end - begin)};
}

// Where the engine writes a replaced text, of which a short one can make any number of bytes.
struct ReplacedText {
    using iterator_category = std::output_iterator_tag;
    using value_type = void;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = void;

    std::string* text;

    ReplacedText& operator*() { return *this; }
    ReplacedText& operator++() { return *this; }
    ReplacedText operator++(int) { return *this; }
    ReplacedText& operator=(char character) {
        if (text->size() >= MOST_REPLACED_BYTES) throw std::regex_error(engine::error_space);
        text->push_back(character);
        return *this;
    }
};

}  // namespace

struct TCRegExp::Impl {
    bool storeResults = false;
    FindType findType = FIND_ANYWHERE;
    TCArray<MatchResult> results;
    std::regex expression;
    std::int32_t error = NO_ERROR_CODE;
    Matches matches;  // kept for its storage

    bool Compile(const TCString& pattern, unsigned long syntaxFlags);
    bool FindOne(const TCString& text, unsigned long matchFlags);
    bool FindAll(const TCString& text, unsigned long matchFlags);
    bool Replace(TCString& result, const TCString& text, const TCString& format, unsigned long matchFlags);
    // Keeps an error's code; whether there was none.
    bool Keep(std::int32_t code);
    bool Match(Place begin, Place end, engine::match_flag_type flags);
    void StoreAll(Place begin, Place end, engine::match_flag_type flags);
    void Store(Place from, Place end);
};

bool TCRegExp::Impl::Keep(std::int32_t code) {
    if (code != NO_ERROR_CODE) error = code;
    return code == NO_ERROR_CODE;
}

bool TCRegExp::Impl::Compile(const TCString& pattern, unsigned long syntaxFlags) {
    const int length = pattern.GetLength();
    if (length > LONGEST_PATTERN || HasTooManyLookAheads(pattern)) return Keep(ERROR_COMPLEXITY);
    const auto compile = [&] {
        expression.assign(static_cast<const char*>(pattern), static_cast<std::size_t>(length),
                          Translate(syntaxFlags, SYNTAX));
    };
    const std::int32_t code = RunOnOwnStack(length, compile);
    StackOfThread().GiveBack(STACK_KEPT);
    return Keep(code);
}

bool TCRegExp::Impl::Match(Place begin, Place end, engine::match_flag_type flags) {
    const bool found = findType == FIND_WHOLE ? std::regex_match(begin, end, matches, expression, flags)
                                              : std::regex_search(begin, end, matches, expression, flags);
    return found && !allowance.IsUsedUp();
}

bool TCRegExp::Impl::FindOne(const TCString& text, unsigned long matchFlags) {
    bool found = false;
    const auto find = [&] {
        found = Match(Begin(text), End(text), Translate(matchFlags | MATCH_ANY, MATCH));
    };
    return Keep(RunOnOwnStack(text.GetLength(), find)) && found;
}

bool TCRegExp::Impl::FindAll(const TCString& text, unsigned long matchFlags) {
    const auto find = [&] { StoreAll(Begin(text), End(text), Translate(matchFlags, MATCH)); };
    return Keep(RunOnOwnStack(text.GetLength(), find)) && !results.IsEmpty();
}

void TCRegExp::Impl::StoreAll(Place begin, Place end, engine::match_flag_type flags) {
    std::int64_t stored = 0;
    Place from = begin;
    for (bool more = Match(begin, end, flags); more;) {
        stored += end - from;
        for (const std::sub_match<Place>& part : matches)
            stored += part.length() + static_cast<std::int64_t>(sizeof(TCString));
        if (stored > MOST_STORED_BYTES) throw std::regex_error(engine::error_space);
        Store(from, end);
        from = matches[0].second;
        if (matches.length(0) > 0)
            more = Match(from, end, flags);
        else
            more = end - from > 0 && Match(from + 1, end, flags | engine::match_prev_avail);
    }
}

void TCRegExp::Impl::Store(Place from, Place end) {
    results.SetSize(results.GetSize() + 1);
    MatchResult& result = results[results.GetSize() - 1];
    result.prefix = Cut(from, matches[0].first);
    result.suffix = Cut(matches[0].second, end);
    result.match = Cut(matches[0].first, matches[0].second);
    const int groups = static_cast<int>(matches.size()) - 1;
    result.groups.SetSize(groups);
    for (int i = 0; i < groups; ++i) {
        const std::sub_match<Place>& group = matches[static_cast<std::size_t>(i) + 1];
        if (group.matched) result.groups[i] = Cut(group.first, group.second);
    }
}

bool TCRegExp::Impl::Replace(TCString& result, const TCString& text, const TCString& format,
                             unsigned long matchFlags) {
    const auto replace = [&] {
        const std::string formatText(format, static_cast<std::size_t>(format.GetLength()));
        std::string replaced;
        std::regex_replace(ReplacedText{&replaced}, Begin(text), End(text), expression, formatText,
                           Translate(matchFlags, MATCH));
        if (!allowance.IsUsedUp()) result.AllocCopy(replaced);
    };
    return Keep(RunOnOwnStack(text.GetLength(), replace));
}

TCRegExp::TCRegExp() : impl(std::make_unique<Impl>()) {}

TCRegExp::TCRegExp(const TCString& pattern, unsigned long syntaxFlags) : TCRegExp() {
    Init(pattern, syntaxFlags);
}

TCRegExp::~TCRegExp() = default;

bool TCRegExp::Init(const TCString& pattern, unsigned long syntaxFlags) {
    return impl->Compile(pattern, syntaxFlags);
}

bool TCRegExp::IsError(unsigned long* code) {
    if (impl->error == NO_ERROR_CODE) return false;
    if (code != nullptr) *code = static_cast<unsigned long>(impl->error);
    impl->error = NO_ERROR_CODE;
    return true;
}

void TCRegExp::SetStoreResults(bool store) {
    impl->storeResults = store;
}

void TCRegExp::SetFindType(FindType type) {
    impl->findType = type;
}

const TCArray<TCRegExp::MatchResult>& TCRegExp::GetMatchResults() const {
    return impl->results;
}

bool TCRegExp::Find(const TCString& text, unsigned long matchFlags) {
    // The text may be one of the results of the last search, which are dropped.
    const TCString copy = impl->results.IsEmpty() ? TCString() : text;
    const TCString& kept = impl->results.IsEmpty() ? text : copy;
    impl->results.RemoveAll();
    if (impl->findType != FIND_WHOLE && impl->findType != FIND_ANYWHERE) return false;
    return impl->storeResults ? impl->FindAll(kept, matchFlags) : impl->FindOne(kept, matchFlags);
}

bool TCRegExp::Replace(TCString& result, const TCString& text, const TCString& format,
                       unsigned long matchFlags) {
    return impl->Replace(result, text, format, matchFlags);
}

bool TCRegExp::Find(const TCString& text, const TCString& pattern, unsigned long matchFlags) {
    TCRegExp expression(pattern, ECMASCRIPT);
    return !expression.IsError(nullptr) && expression.Find(text, matchFlags);
}

bool TCRegExp::Replace(TCString& result, const TCString& text, const TCString& pattern,
                       const TCString& format, unsigned long matchFlags) {
    TCRegExp expression(pattern, ECMASCRIPT);
    return !expression.IsError(nullptr) && expression.Replace(result, text, format, matchFlags);
}

namespace tc {

const char* RegExpErrorText(unsigned long code) {
    return code < std::size(ERROR_TEXTS) ? ERROR_TEXTS[code].Text() : "";
}

}  // namespace tc
