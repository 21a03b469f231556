#include "sigweave/services/TCRegExp.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "sigweave/platform/OwnStack.h"
#include "sigweave/platform/Process.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/RegExpMeter.h"

namespace {

namespace engine = std::regex_constants;

constexpr std::int32_t NO_ERROR_CODE = -1;
constexpr int LONGEST_PATTERN = 65536;
constexpr int MOST_LOOK_AHEADS = 100;
constexpr std::size_t LONGEST_COPIED_SET = 500;
constexpr std::size_t STORED_GROUP_BYTES = sizeof(TCString) + sizeof(std::sub_match<tc::RegExpPlace>);
constexpr std::size_t MOST_REPLACED_BYTES = std::size_t{256} << 20;

// Measured with g++ 12, -O0 to -O3: matching takes up to 310 bytes a character and 240 a group around it;
// compiling up to 570 bytes a byte of the pattern. Between two looks at the stack matching passes at most all
// 100,000 states that a pattern may have, some of them several times, at up to 600 bytes a state: that is the
// reserve.
constexpr std::size_t STACK_BYTES = std::size_t{512} << 20;
constexpr std::size_t SMALLEST_STACK_BYTES = std::size_t{128} << 20;
constexpr std::size_t STACK_RESERVE = std::size_t{64} << 20;
// Calls that stay within this keep their memory for the next; deeper ones are slow, because they leave the
// caches.
constexpr std::size_t STACK_KEPT = std::size_t{1} << 20;

// A fuzzer is to try many expressions, under sanitizers that slow each step.
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
constexpr std::int64_t STEPS = 1'200'000;
#else
constexpr std::int64_t STEPS = 120'000'000;
#endif
constexpr std::int64_t STEPS_PER_BYTE = 1000;
// Beginnings of groups are not counted, and there may be as many of them in each other as a pattern has.
constexpr std::int64_t GROUPS_PER_STEP = 100;

using Place = tc::RegExpPlace;
using Group = std::sub_match<Place>;
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

// The engine copies what a counted repeat repeats, up to 100,000 times, with all that its sets of characters
// were written with. A bracket after one of these does not end a set.
bool HasLargeSetToCopy(std::string_view pattern) {
    constexpr std::string_view NO_END_BEHIND = "=:.\\";
    constexpr std::size_t SHORTEST = 3;
    if (pattern.find('{') == std::string_view::npos) return false;
    std::size_t end = 0;
    for (auto begin = pattern.find('['); begin != std::string_view::npos; begin = pattern.find('[', end)) {
        end = pattern.find(']', begin + SHORTEST);
        while (end != std::string_view::npos &&
               NO_END_BEHIND.find(pattern[end - 1]) != std::string_view::npos)
            end = pattern.find(']', end + 1);
        end = std::min(end, pattern.size());
        if (end - begin > LONGEST_COPIED_SET) return true;
    }
    return false;
}

tc::OwnStack& StackOfThread() {
    thread_local tc::OwnStack stack(STACK_BYTES, SMALLEST_STACK_BYTES);
    return stack;
}

// Answers the error's code.
template <typename Work>
std::int32_t RunOnOwnStack(std::int64_t steps, Work work) {
    tc::OwnStack& stack = StackOfThread();
    if (!stack.Reserve()) return TCRegExp::ERROR_STACK;
    std::int32_t code = NO_ERROR_CODE;
    tc::regExpMeter = {steps, stack.Top() - STACK_KEPT, stack.Lowest() + STACK_RESERVE};
    stack.Run([&] { code = Catch(work); });
    const bool wasDeep = tc::regExpMeter.wasDeep;
    tc::regExpMeter = {};
    if (wasDeep) stack.GiveBack(STACK_KEPT);
    return code;
}

std::int64_t MostStoredBytes() {
    static const std::int64_t most = tc::MachineMemoryBytes() / 2;
    return most;
}

Place Begin(const TCString& text) {
    return Place(text);
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
    std::int64_t groupsPerStep = 1;
    std::int32_t error = NO_ERROR_CODE;
    Matches matches;  // kept for its storage

    bool Compile(const TCString& pattern, unsigned long syntaxFlags);
    bool FindOne(const TCString& text, unsigned long matchFlags);
    bool FindAll(const TCString& text, unsigned long matchFlags);
    bool Replace(TCString& result, const TCString& text, const TCString& format, unsigned long matchFlags);
    // Keeps an error's code; whether there was none.
    bool Keep(std::int32_t code);
    std::int64_t StepsFor(const TCString& text) const;
    bool Match(Place begin, Place end, engine::match_flag_type flags);
    void CollectAll(Place begin, Place end, engine::match_flag_type flags, std::vector<Group>& found);
    void Store(const std::vector<Group>& found, Place begin, Place end);
};

bool TCRegExp::Impl::Keep(std::int32_t code) {
    if (code != NO_ERROR_CODE) error = code;
    return code == NO_ERROR_CODE;
}

bool TCRegExp::Impl::Compile(const TCString& pattern, unsigned long syntaxFlags) {
    const int length = pattern.GetLength();
    if (length > LONGEST_PATTERN || HasTooManyLookAheads(pattern)) return Keep(ERROR_COMPLEXITY);
    const char* const text = pattern;
    if (HasLargeSetToCopy({text, static_cast<std::size_t>(length)})) return Keep(ERROR_SPACE);
    const auto compile = [&] {
        expression.assign(text, static_cast<std::size_t>(length), Translate(syntaxFlags, SYNTAX));
        groupsPerStep = 1 + std::count(text, text + length, '(') / GROUPS_PER_STEP;
    };
    const std::int32_t code = RunOnOwnStack(STEPS, compile);
    StackOfThread().GiveBack(STACK_KEPT);
    return Keep(code);
}

std::int64_t TCRegExp::Impl::StepsFor(const TCString& text) const {
    return (STEPS + STEPS_PER_BYTE * text.GetLength()) / groupsPerStep;
}

bool TCRegExp::Impl::Match(Place begin, Place end, engine::match_flag_type flags) {
    return findType == FIND_WHOLE ? std::regex_match(begin, end, matches, expression, flags)
                                  : std::regex_search(begin, end, matches, expression, flags);
}

bool TCRegExp::Impl::FindOne(const TCString& text, unsigned long matchFlags) {
    bool found = false;
    const auto find = [&] {
        found = Match(Begin(text), End(text), Translate(matchFlags | MATCH_ANY, MATCH));
    };
    return Keep(RunOnOwnStack(StepsFor(text), find)) && found;
}

bool TCRegExp::Impl::FindAll(const TCString& text, unsigned long matchFlags) {
    std::vector<Group> found;
    const auto find = [&] { CollectAll(Begin(text), End(text), Translate(matchFlags, MATCH), found); };
    std::int32_t code = RunOnOwnStack(StepsFor(text), find);
    const auto store = [&] { Store(found, Begin(text), End(text)); };
    if (code != ERROR_SPACE && Catch(store) != NO_ERROR_CODE) code = ERROR_SPACE;
    if (code == ERROR_SPACE) results.RemoveAll();
    return Keep(code) && !results.IsEmpty();
}

// The matches one after the other, each with its groups. They are copied when all are known, so that what
// would not fit in the memory does not fill it.
void TCRegExp::Impl::CollectAll(Place begin, Place end, engine::match_flag_type flags,
                                std::vector<Group>& found) {
    const std::int64_t mostBytes = MostStoredBytes();
    std::int64_t bytes = 0;
    Place from = begin;
    for (bool more = Match(begin, end, flags); more;) {
        bytes += end - from;
        for (const Group& part : matches)
            bytes += part.length() + static_cast<std::int64_t>(STORED_GROUP_BYTES);
        if (bytes > mostBytes) throw std::regex_error(engine::error_space);
        found.insert(found.end(), matches.begin(), matches.end());
        from = matches[0].second;
        if (matches.length(0) > 0)
            more = Match(from, end, flags);
        else
            more = end - from > 0 && Match(from + 1, end, flags | engine::match_prev_avail);
    }
}

void TCRegExp::Impl::Store(const std::vector<Group>& found, Place begin, Place end) {
    const std::size_t parts = 1 + expression.mark_count();
    results.SetSize(static_cast<int>(found.size() / parts));
    const Group* part = found.data();
    for (MatchResult& result : results) {
        result.prefix = Cut(begin, part->first);
        result.suffix = Cut(part->second, end);
        result.match = Cut(part->first, part->second);
        begin = part->second;
        ++part;
        result.groups.SetSize(static_cast<int>(parts) - 1);
        for (TCString& group : result.groups) {
            if (part->matched.isSet) group = Cut(part->first, part->second);
            ++part;
        }
    }
}

bool TCRegExp::Impl::Replace(TCString& result, const TCString& text, const TCString& format,
                             unsigned long matchFlags) {
    const auto replace = [&] {
        const std::string formatText(format, static_cast<std::size_t>(format.GetLength()));
        std::string replaced;
        std::regex_replace(ReplacedText{&replaced}, Begin(text), End(text), expression, formatText,
                           Translate(matchFlags, MATCH));
        result.AllocCopy(replaced);
    };
    return Keep(RunOnOwnStack(StepsFor(text), replace));
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
