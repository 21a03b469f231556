#pragma once

#include <memory>

#include "sigweave/foundation/TCArray.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// A regular expression: searches, matches and replaces in 8-bit text, byte by byte, zero bytes included. It
// is the standard library's engine with an interface without its types. Nothing is thrown: what goes wrong
// is kept as a code that `IsError` hands out.
//
// The engine tries the ways in which an expression can match one after the other, by recursion. What that
// costs, and where it ends:
//
//   stack   About 300 bytes for each character that a repeat takes, and 240 more for each group around it:
//           600 for "(a|b)*c", 1700 for "((((((a|b))))))*c". Matching and compiling therefore run on a stack
//           of their own, whatever the calling thread's. It has 448 MB, so ".*x" may run over some 1.4
//           million characters and "(a|b)*c" over 750,000; beyond that the answer is ERROR_STACK, after some
//           seconds. Each thread that uses expressions reserves 512 MB of address space for it. Where the
//           system refuses that, it is 256 or 128 MB, of which 192 or 64 are used, and ERROR_STACK where it
//           refuses all. What a deep match took of the memory is given back when it is done.
//   time    Nested repeats ("(a+)+$", "(a|aa)*b") and repeated alternatives ("(a|a){40}b", "(|){40}b") can
//           take exponential time to fail, several open repeats in a row (".*.*.*x") a power of the text's
//           length, and a search without a match ("[a-z]*x") its square, as it starts anew at each
//           character. After 120 million steps, and 1000 more for each byte of the text, an operation gives
//           up with ERROR_COMPLEXITY: after a second or two for a short text, and up to ten for a megabyte. A
//           step is one look at a character or an edge of the text, whether it matches or not, one round of
//           a repeat, one group, and one state of the expression for each match and look-ahead; a round far
//           down the stack counts as 60. So at each byte there may be hundreds of alternatives. In a pattern
//           of hundreds of groups, n, there are n / 100 times fewer steps, as each may pass all of them.
//   size    A pattern of more than 65,536 bytes or 100 look-aheads is refused with ERROR_COMPLEXITY, one of
//           more than 100,000 states (as "a{100001}"), or with counted repeats and a set of more than 500
//           bytes, with ERROR_SPACE. Stored results repeat the rest of the text for each match: 17,000
//           matches in a megabyte take 9 GB. Where all would take more than half of the machine's memory, the
//           search ends with ERROR_SPACE and stores none; so does a replacement that makes more than 256 MB.
//
// An object belongs to one thread at a time. Objects share nothing.
class TC_API TCRegExp {
 public:
    // How a pattern is read: one grammar (none: ECMASCRIPT), and any of the others (never change).
    enum SyntaxFlag : unsigned long {
        ECMASCRIPT = 0x1,
        BASIC = 0x2,
        EXTENDED = 0x4,
        AWK = 0x8,
        GREP = 0x10,
        EGREP = 0x20,
        IGNORE_CASE = 0x100,
        NO_GROUPS = 0x200,
        OPTIMIZE = 0x400,
        COLLATE = 0x800,    // ranges as [a-z] by the locale's order
        MULTILINE = 0x1000  // ^ and $ match at line breaks too
    };
    // How an operation matches (never change). Bits that are not named have no meaning.
    enum MatchFlag : unsigned long {
        MATCH_DEFAULT = 0x0,
        NOT_BEGIN_OF_LINE = 0x1,
        NOT_END_OF_LINE = 0x2,
        NOT_BEGIN_OF_WORD = 0x4,
        NOT_END_OF_WORD = 0x8,
        MATCH_ANY = 0x10,           // any match will do; `Find` adds it when no results are stored
        MATCH_NOT_NULL = 0x20,      // no empty matches
        MATCH_CONTINUOUS = 0x40,    // only at the beginning of what is searched
        FORMAT_SED = 0x400,         // of `Replace`: the format is written as for sed
        FORMAT_NO_COPY = 0x800,     // of `Replace`: leave out what does not match
        FORMAT_FIRST_ONLY = 0x1000  // of `Replace`: only the first match
    };
    // What `IsError` hands out (never change, only append).
    enum ErrorCode : unsigned long {
        ERROR_COLLATE = 0,     // no such collating element, or character class
        ERROR_CTYPE = 1,       // no such character class
        ERROR_ESCAPE = 2,      // a wrong or unfinished escape
        ERROR_BACKREF = 3,     // no such group to refer back to
        ERROR_BRACK = 4,       // unbalanced [ and ]
        ERROR_PAREN = 5,       // unbalanced ( and ), or a * + ? or { at the beginning
        ERROR_BRACE = 6,       // unbalanced { and }
        ERROR_BADBRACE = 7,    // no valid numbers between { and }
        ERROR_RANGE = 8,       // a range as [b-a]
        ERROR_SPACE = 9,       // too little memory, or too many states
        ERROR_BADREPEAT = 10,  // nothing that * + ? or { could repeat
        ERROR_COMPLEXITY = 11,
        ERROR_STACK = 12,
        ERROR_GRAMMAR = 13  // more than one grammar
    };
    enum FindType : int {
        FIND_WHOLE = 0,  // the expression must match the whole text
        FIND_ANYWHERE = 1
    };
    // One match. Its texts are copies.
    struct MatchResult {
        TCString prefix;  // from the end of the match before to this one
        TCString suffix;  // all that follows
        TCString match;
        TCArray<TCString> groups;  // 1 to n; empty for one that took no part
    };

    // An object without expression finds nothing.
    TCRegExp();
    // Compiles at once; see `Init`.
    TCRegExp(const TCString& pattern, unsigned long syntaxFlags);
    ~TCRegExp();
    TCRegExp(const TCRegExp&) = delete;
    TCRegExp& operator=(const TCRegExp&) = delete;

    // False, with the error kept and the expression before still in place, when the pattern is not valid.
    bool Init(const TCString& pattern, unsigned long syntaxFlags);
    // Whether something went wrong since the last call that answered true. Hands out the code of the latest
    // failure (`code` may be null) and forgets it. -1 is no error's code.
    bool IsError(unsigned long* code);

    // Off at first.
    void SetStoreResults(bool store);
    // FIND_ANYWHERE at first. With any other number `Find` is false.
    void SetFindType(FindType type);
    // Of the last `Find`; those found before it failed, if it did for lack of time or stack. Valid until the
    // next one.
    const TCArray<MatchResult>& GetMatchResults() const;

    // Whether there is a match. When results are stored, finds all: each search begins at the end of the
    // match before, which deliberately counts as the beginning of the text for ^ and \b (modules count on
    // it), and after an empty match one byte further. A whole match is followed by a second, empty one when
    // the expression matches the empty text.
    bool Find(const TCString& text, unsigned long matchFlags);
    // `result` becomes the text with each match replaced by `format`, where $1 is the first group, $& the
    // match, $` and $' what is before and after it and $$ a dollar sign. True also when nothing matched.
    // `result` may be one of the other texts; it is unchanged when the answer is false.
    bool Replace(TCString& result, const TCString& text, const TCString& format, unsigned long matchFlags);

    // The same with an expression of the default grammar that is made for the call. False when it is not
    // valid.
    static bool Find(const TCString& text, const TCString& pattern, unsigned long matchFlags);
    static bool Replace(TCString& result, const TCString& text, const TCString& pattern,
                        const TCString& format, unsigned long matchFlags);

 private:
    struct TC_LOCAL Impl;

    std::unique_ptr<Impl> impl;
};

namespace tc {

// What is wrong, as part of a message ("unbalanced [ and ]"), in the language in use. Empty for a number that
// is no code.
TC_API const char* RegExpErrorText(unsigned long code);

}  // namespace tc
