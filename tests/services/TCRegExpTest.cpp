#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "sigweave/services/TCRegExp.h"

namespace {

constexpr unsigned long NONE = static_cast<unsigned long>(-1);

// The code of the error that is kept; NONE without one.
unsigned long TakeError(TCRegExp& expression) {
    unsigned long code = NONE;
    expression.IsError(&code);
    return code;
}

std::string Repeated(const char* text, std::size_t bytes) {
    std::string all;
    while (all.size() < bytes) all += text;
    return all;
}

// "prefix[match|group|group]" for each result, and the last one's suffix.
std::string FindAll(TCRegExp& expression, const TCString& text, unsigned long flags = 0) {
    expression.SetStoreResults(true);
    std::string all;
    const bool found = expression.Find(text, flags);
    for (const TCRegExp::MatchResult& result : expression.GetMatchResults()) {
        all += std::string(result.prefix) + "[" + std::string(result.match);
        for (const TCString& group : result.groups) all += "|" + std::string(group);
        all += "]";
    }
    if (found) {
        const auto& results = expression.GetMatchResults();
        all += std::string(results[results.GetSize() - 1].suffix);
    }
    return all;
}

TEST(TCRegExp, StoresEveryMatchWithWhatIsAroundIt) {
    const struct {
        const char* pattern;
        TCRegExp::FindType type;
        const char* text;
        unsigned long flags;
        const char* results;
    } rows[] = {
        {"a", TCRegExp::FIND_ANYWHERE, "banana", 0, "b[a]n[a]n[a]"},
        {"(x)|(\\d)(\\d)", TCRegExp::FIND_ANYWHERE, "-x-42-", 0, "-[x|x||]-[42||4|2]-"},
        {"z", TCRegExp::FIND_ANYWHERE, "banana", 0, ""},
        // empty matches go on by one character and end
        {"a*", TCRegExp::FIND_ANYWHERE, "baac", 0, "[]b[aa][]c[]"},
        {"", TCRegExp::FIND_ANYWHERE, "ab", 0, "[]a[]b[]"},
        {"", TCRegExp::FIND_ANYWHERE, "", 0, "[]"},
        {"a*", TCRegExp::FIND_ANYWHERE, "baac", TCRegExp::MATCH_NOT_NULL, "b[aa]c"},
        // the end of a match counts as the beginning of the text, a place in the middle does not
        {"^a", TCRegExp::FIND_ANYWHERE, "aab", 0, "[a][a]b"},
        {"^", TCRegExp::FIND_ANYWHERE, "ab", 0, "[]ab"},
        {"^a", TCRegExp::FIND_ANYWHERE, "aab", TCRegExp::NOT_BEGIN_OF_LINE, ""},
        {"a", TCRegExp::FIND_ANYWHERE, "aaba", TCRegExp::MATCH_CONTINUOUS, "[a][a]ba"},
        {"b(.)n?", TCRegExp::FIND_WHOLE, "ban", 0, "[ban|a]"},
        {"ana", TCRegExp::FIND_WHOLE, "banana", 0, ""},
    };
    for (const auto& row : rows) {
        TCRegExp expression(row.pattern, TCRegExp::ECMASCRIPT);
        expression.SetFindType(row.type);
        EXPECT_EQ(FindAll(expression, row.text, row.flags), row.results) << row.pattern << " on " << row.text;
        expression.SetStoreResults(false);
        EXPECT_EQ(expression.Find(row.text, row.flags), *row.results != '\0') << row.pattern;
        EXPECT_TRUE(expression.GetMatchResults().IsEmpty());
        EXPECT_FALSE(expression.IsError(nullptr));
    }
}

TEST(TCRegExp, ReadsPatternsByTheirFlags) {
    const struct {
        const char* pattern;
        unsigned long syntax;
        const char* text;
        bool found;
    } rows[] = {
        {"aB", 0, "xaB", true},
        {"ab", 0, "xaB", false},
        {"ab", TCRegExp::IGNORE_CASE, "xaB", true},
        {"a(b)", TCRegExp::BASIC, "a(b)", true},
        {"\\(a\\)\\1", TCRegExp::BASIC, "aa", true},
        {"a|b", TCRegExp::BASIC, "b", false},
        {"a|b", TCRegExp::EXTENDED, "b", true},
        {"a\nb", TCRegExp::GREP, "b", true},
        {"^b", 0, "a\nb", false},
        {"^b", TCRegExp::MULTILINE, "a\nb", true},
        {"[[:digit:]]{2,3}$", TCRegExp::EGREP | TCRegExp::OPTIMIZE, "a12", true},
        {"[]]{2}[^][a]{0}[[=a=]]", TCRegExp::EXTENDED, "]]a", true},
    };
    for (const auto& row : rows) {
        TCRegExp expression(row.pattern, row.syntax);
        EXPECT_EQ(expression.Find(row.text, 0), row.found) << row.pattern << " " << row.syntax;
        EXPECT_EQ(TakeError(expression), NONE) << row.pattern;
    }
    TCRegExp withoutGroups("(a)", TCRegExp::NO_GROUPS);
    EXPECT_EQ(FindAll(withoutGroups, "a"), "[a]");
    TCRegExp zeroBytes(TCString("a\0b", 3), 0);
    EXPECT_TRUE(zeroBytes.Find(TCString("xa\0b", 4), 0));
    EXPECT_FALSE(zeroBytes.Find("xa", 0));
}

TEST(TCRegExp, KeepsAnErrorOnceAndTheExpressionBefore) {
    const struct {
        std::string pattern;
        unsigned long syntax;
        unsigned long code;
    } rows[] = {
        {"(a", 0, TCRegExp::ERROR_PAREN},
        {"a)", 0, TCRegExp::ERROR_PAREN},
        {"*", 0, TCRegExp::ERROR_PAREN},
        {"[a", 0, TCRegExp::ERROR_BRACK},
        {"a{2", 0, TCRegExp::ERROR_BRACE},
        {"a{x}", 0, TCRegExp::ERROR_BADBRACE},
        {"[b-a]", 0, TCRegExp::ERROR_RANGE},
        {"[[.nothing.]]", 0, TCRegExp::ERROR_COLLATE},
        {"a\\", 0, TCRegExp::ERROR_ESCAPE},
        {"\\1", 0, TCRegExp::ERROR_BACKREF},
        {"a", TCRegExp::BASIC | TCRegExp::AWK, TCRegExp::ERROR_GRAMMAR},
        {"a{100001}", 0, TCRegExp::ERROR_SPACE},
        {"[" + Repeated("[=a=]", 600) + "]{2}", 0, TCRegExp::ERROR_SPACE},
        {"b{2}[\\]" + std::string(600, 'a'), 0, TCRegExp::ERROR_SPACE},
        {std::string(65537, 'a'), 0, TCRegExp::ERROR_COMPLEXITY},
    };
    TCRegExp expression("b", 0);
    for (const auto& row : rows) {
        EXPECT_FALSE(expression.Init(row.pattern.c_str(), row.syntax)) << row.pattern;
        EXPECT_EQ(TakeError(expression), row.code) << row.pattern;
        EXPECT_FALSE(expression.IsError(nullptr));
        EXPECT_STRNE(tc::RegExpErrorText(row.code), "");
    }
    EXPECT_TRUE(expression.Find("abc", 0));
    expression.SetFindType(static_cast<TCRegExp::FindType>(2));
    EXPECT_FALSE(expression.Find("b", 0));
    EXPECT_FALSE(TCRegExp().Find("", 0));
    EXPECT_STREQ(tc::RegExpErrorText(NONE), "");
}

TEST(TCRegExp, Replaces) {
    const struct {
        const char* pattern;
        const char* text;
        const char* format;
        unsigned long flags;
        const char* result;
    } rows[] = {
        {"(\\w+) (\\w+)", "left right", "$2 $1", 0, "right left"},
        {"a", "banana", "[$&]", 0, "b[a]n[a]n[a]"},
        {"n", "ana", "$`$$$'", 0, "aa$aa"},
        {"a", "banana", "o", TCRegExp::FORMAT_FIRST_ONLY, "bonana"},
        {"a|n", "banana", "<$&>", TCRegExp::FORMAT_NO_COPY, "<a><n><a><n><a>"},
        {"n(a)", "bana", "&\\1", TCRegExp::FORMAT_SED, "banaa"},
        {"x*", "ab", "-", 0, "-a-b-"},
        {"z", "banana", "-", 0, "banana"},
    };
    for (const auto& row : rows) {
        TCString result = "before";
        EXPECT_TRUE(TCRegExp::Replace(result, row.text, row.pattern, row.format, row.flags)) << row.pattern;
        EXPECT_STREQ(result, row.result);
    }
    TCString text = "banana";
    EXPECT_TRUE(TCRegExp::Replace(text, text, "an", text, 0));
    EXPECT_STREQ(text, "bbananabananaa");
    EXPECT_FALSE(TCRegExp::Replace(text, "a", "(", "b", 0));
    EXPECT_STREQ(text, "bbananabananaa");
    EXPECT_TRUE(TCRegExp::Find("banana", "n.n", 0));
    EXPECT_FALSE(TCRegExp::Find("banana", "(", 0));
}

TEST(TCRegExp, SearchesWithinItsOwnResults) {
    TCRegExp expression("\\w+", 0);
    expression.SetStoreResults(true);
    ASSERT_TRUE(expression.Find("one two three", 0));
    ASSERT_TRUE(expression.Find(expression.GetMatchResults()[0].suffix, 0));
    ASSERT_EQ(expression.GetMatchResults().GetSize(), 2);
    EXPECT_STREQ(expression.GetMatchResults()[1].match, "three");
}

// --- What kills the engine on the stack of an ordinary thread

template <typename Work>
void RunOnSmallStack(Work work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 << 10), 0);
    pthread_t thread;
    const auto entry = [](void* argument) -> void* {
        (*static_cast<Work*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, entry, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST(TCRegExp, AnswersLongTextsAndDeepPatternsOnASmallStack) {
    const std::string megabyte(1 << 20, 'a');
    const std::string alternating = Repeated("ab", 1 << 20);
    const std::string some = Repeated("ab", 50'000);
    const struct {
        const char* pattern;
        std::string text;
    } rows[] = {
        {"(a|b)*c", alternating},
        {"((((((a|b))))))*c", some + "c"},
        {"(a+)+$", megabyte},
        {".*x", megabyte + "x"},
        {"(a|b)*c", some},
        {"(?:ab|cd)*x", some + "x"},
        {"(?=(a|b)*c)a", some + "c"},
        {".*x", std::string(50'000, 'a')},
        {"(a*)\\1", std::string(50'000, 'a')},
    };
    RunOnSmallStack([&] {
        for (const auto& row : rows) {
            TCRegExp expression(row.pattern, 0);
            const bool found = expression.Find(row.text.c_str(), 0);
            const unsigned long code = TakeError(expression);
            EXPECT_TRUE(found ? code == NONE
                              : code == TCRegExp::ERROR_STACK || code == TCRegExp::ERROR_COMPLEXITY)
                << row.pattern << " " << code;
        }
    });
}

TEST(TCRegExp, MatchesWithinItsStackWhole) {
    const std::string text = Repeated("ab", 100'000) + "c";
    RunOnSmallStack([&] {
        TCRegExp expression("((a|b))*c", 0);
        expression.SetStoreResults(true);
        ASSERT_TRUE(expression.Find(text.c_str(), 0)) << TakeError(expression);
        EXPECT_EQ(expression.GetMatchResults()[0].match.GetLength(), 100'001);
        EXPECT_STREQ(expression.GetMatchResults()[0].groups[1], "b");
        TCString result;
        ASSERT_TRUE(expression.Replace(result, text.c_str(), "<$1>", 0));
        EXPECT_STREQ(result, "<b>");
    });
}

TEST(TCRegExp, AnswersMonstrousPatternsOnASmallStack) {
    const std::string open(30'000, '(');
    const std::string close(30'000, ')');
    const struct {
        std::string pattern;
        unsigned long code;
    } rows[] = {
        {std::string(100'000, '('), TCRegExp::ERROR_COMPLEXITY},
        {open, TCRegExp::ERROR_PAREN},
        {open + "a" + close, NONE},
        {std::string(65'000, 'a') + "|b?a", NONE},
        {"(?:(){30000}a)*", NONE},
        {Repeated("(?=", 300) + "a" + std::string(100, ')'), NONE},
        {Repeated("(?!", 303) + "a" + std::string(101, ')'), TCRegExp::ERROR_COMPLEXITY},
        {"((a{100}){100}){100}", TCRegExp::ERROR_SPACE},
    };
    RunOnSmallStack([&] {
        for (const auto& row : rows) {
            TCRegExp expression(row.pattern.c_str(), 0);
            EXPECT_EQ(TakeError(expression), row.code) << row.pattern.substr(0, 20);
            EXPECT_EQ(expression.Find("ba", 0), row.code == NONE) << row.pattern.substr(0, 20);
        }
    });
}

// Ways that differ in their repeats, in their characters, and in nothing at all. What follows allows them a
// hundredth of the steps.
TEST(TCRegExp, GivesUpWhatWouldTakeForever) {
    const std::string many(6000, 'a');
    const std::string fewSteps = Repeated("\\(", 20'000);
    const struct {
        std::string pattern;
        std::string text;
    } rows[] = {
        {"(a+)+$", many + "b"},
        {"(|){40}b", ""},
        {"(?:a|a){40}c" + fewSteps, many},
        {"(^|^){32}b" + fewSteps, ""},
        {"(()|()){40}c" + fewSteps, ""},
        {"(a?|){40}c" + fewSteps, "a"},
        {"(a)|(?:|){40}\\1" + fewSteps, "b"},
        {"(?:(?=)|(?=)){40}c" + fewSteps, "b"},
        {"(?:(){400}|){40}c" + fewSteps, "b"},
    };
    for (const auto& row : rows) {
        TCRegExp expression(row.pattern.c_str(), 0);
        TCString result = "before";
        EXPECT_FALSE(expression.Replace(result, row.text.c_str(), "x", 0));
        EXPECT_EQ(TakeError(expression), TCRegExp::ERROR_COMPLEXITY) << row.pattern.substr(0, 20);
        EXPECT_STREQ(result, "before");
    }
    EXPECT_TRUE(TCRegExp("a", 0).Find("ba", 0)) << "the next operation has an allowance of its own";
}

TEST(TCRegExp, AnswersLongLogsAsTheEngineDoes) {
    const std::string log = Repeated((std::string(240, '-') + " unit B\n").c_str(), 500'000);
    TCRegExp expression(".*unit A.*", 0);
    EXPECT_TRUE(expression.Find((log + "unit A").c_str(), 0)) << TakeError(expression);
    const std::string line = "12:00:00 channel 1, value=123, done\n";
    const std::string values = Repeated(line.c_str(), 200'000);
    ASSERT_TRUE(expression.Init("value=([0-9]+)", 0));
    expression.SetStoreResults(true);
    ASSERT_TRUE(expression.Find(values.c_str(), 0)) << TakeError(expression);
    const auto& results = expression.GetMatchResults();
    ASSERT_EQ(results.GetSize(), static_cast<int>(values.size() / line.size()));
    EXPECT_EQ(results[1].prefix.GetLength(), static_cast<int>(line.size()) - 9);
    EXPECT_EQ(results[1].suffix.GetLength(), static_cast<int>(values.size() - line.size()) - 29);
    EXPECT_STREQ(results[results.GetSize() - 1].groups[0], "123");
}

TEST(TCRegExp, DoesNotFillTheMemoryWithResults) {
    const TCString text = std::string(4'000'000, 'a').c_str();
    TCRegExp expression("a", 0);
    expression.SetStoreResults(true);
    EXPECT_FALSE(expression.Find(text, 0));
    EXPECT_EQ(TakeError(expression), TCRegExp::ERROR_SPACE);
    EXPECT_TRUE(expression.GetMatchResults().IsEmpty());
    TCString result = "before";
    EXPECT_FALSE(expression.Replace(result, text, "$`$'", 0));
    EXPECT_EQ(TakeError(expression), TCRegExp::ERROR_SPACE);
    EXPECT_STREQ(result, "before");
}

// A sanitizer's own memory is beyond every such limit.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(TCRegExp, MakesDoWithASmallerStackWhereAddressesAreScarce) {
    const pid_t child = fork();
    if (child == 0) {
        TCRegExp none(".*x", 0);  // compiled on this thread's own stack, which counts already
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlim_t bytes = static_cast<rlim_t>(pages * sysconf(_SC_PAGESIZE));
        const auto limit = [&](rlim_t megabytes) {
            const rlimit most{bytes + (megabytes << 20), RLIM_INFINITY};
            setrlimit(RLIMIT_AS, &most);
        };
        limit(100);
        std::thread([&] { EXPECT_FALSE(none.Find("aax", 0)); }).join();
        EXPECT_EQ(TakeError(none), TCRegExp::ERROR_STACK);
        limit(250);
        std::thread([] {
            TCRegExp expression(".*x", 0);
            EXPECT_TRUE(expression.Find((std::string(150'000, 'a') + "x").c_str(), 0));
            EXPECT_FALSE(expression.Find((std::string(400'000, 'a') + "x").c_str(), 0));
            EXPECT_EQ(TakeError(expression), TCRegExp::ERROR_STACK);
        }).join();
        std::_Exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}
#endif

}  // namespace
