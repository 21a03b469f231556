#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <regex>
#include <string>
#include <utility>

#include "sigweave/platform/OwnStack.h"

// Internal: what bounds the time and the depth of the standard library's engine of regular expressions.
//
// The engine cannot do anything for long without the places in the text that it is given: it compares two of
// them before it looks at a character, makes one for each state of an expression that it sets out to match,
// and marks the groups between them. Each of these uses counts as a step on the thread's meter. The step
// beyond the allowance throws the engine's own exception, and so does the one that lies too far down the
// stack.
namespace tc {

// What the operation under way on this thread may still use; without one, everything.
struct RegExpMeter {
    std::int64_t steps = std::numeric_limits<std::int64_t>::max();
    const char* deep = nullptr;    // below this address a round takes longer,
    const char* bottom = nullptr;  // and below this one is the end
    bool wasDeep = false;

    void CountStep() {
        if (--steps < 0) [[unlikely]]
            StopSteps();
    }
    // A round of a repeat, or a start of a search.
    void CountRound() {
        const char* here = OwnStack::Here();
        if (--steps < 0 || here < deep) [[unlikely]]
            LookCloser(here);
    }

 private:
    // There each round meets memory that the caches do not hold.
    static constexpr std::int64_t STEPS_OF_DEEP_ROUND = 60;

    [[noreturn, gnu::noinline, gnu::cold]] static void StopSteps() {
        throw std::regex_error(std::regex_constants::error_complexity);
    }
    [[gnu::noinline, gnu::cold]] void LookCloser(const char* here) {
        if (here < bottom) throw std::regex_error(std::regex_constants::error_stack);
        if (here < deep) {
            wasDeep = true;
            steps -= STEPS_OF_DEEP_ROUND - 1;
        }
        if (steps < 0) StopSteps();
    }
};

// This model spares the call that finds a thread's variables.
[[gnu::tls_model("initial-exec")]] inline constinit thread_local RegExpMeter regExpMeter;

// A place in the text. The engine asks whether two of them are the same before each look at a character, and
// whether they differ once for each round and start.
//
// Has a name outside of the source that uses it, for otherwise the compiler makes one function with three
// times the stack of all that the engine calls for a character.
struct RegExpPlace {
    using iterator_category = std::random_access_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    const char* at = nullptr;

    // Only counted: the engine makes them where nothing may be thrown. A comparison follows.
    RegExpPlace() { --regExpMeter.steps; }
    explicit RegExpPlace(const char* place) : at(place) {}

    reference operator*() const { return *at; }
    RegExpPlace& operator++() {
        ++at;
        return *this;
    }
    RegExpPlace& operator--() {
        --at;
        return *this;
    }
    RegExpPlace& operator+=(difference_type count) {
        at += count;
        return *this;
    }
    friend RegExpPlace operator+(RegExpPlace place, difference_type count) {
        return RegExpPlace(place.at + count);
    }
    friend difference_type operator-(RegExpPlace a, RegExpPlace b) { return a.at - b.at; }
    friend bool operator==(RegExpPlace a, RegExpPlace b) {
        regExpMeter.CountStep();
        return a.at == b.at;
    }
    friend bool operator!=(RegExpPlace a, RegExpPlace b) {
        regExpMeter.CountRound();
        return a.at != b.at;
    }
};

// Whether a group takes part. The engine sets it at a group's end, and asks where a pattern refers back to
// it: for a group that takes none it looks at nothing else.
struct RegExpMark {
    bool isSet = false;

    RegExpMark& operator=(bool set) {
        --regExpMeter.steps;
        isSet = set;
        return *this;
    }
    operator bool() const {
        regExpMeter.CountStep();
        return isSet;
    }
};

}  // namespace tc

// A group, or the whole match.
template <>
struct std::sub_match<tc::RegExpPlace> : std::pair<tc::RegExpPlace, tc::RegExpPlace> {
    using iterator = tc::RegExpPlace;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using string_type = std::string;

    tc::RegExpMark matched;

    difference_type length() const { return matched.isSet ? second - first : 0; }
    string_type str() const { return matched.isSet ? string_type(first.at, second.at) : string_type(); }
    operator string_type() const { return str(); }
    int compare(const sub_match& other) const { return str().compare(other.str()); }
};
