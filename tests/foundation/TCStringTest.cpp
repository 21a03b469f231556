#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstring>
#include <string>
#include <utility>

#include "sigweave/foundation/TCString.h"

namespace {

using std::string;

string Bytes(const TCString& text) {
    return TCString::TCString2BinCString(text);
}

TCString Binary(const string& bytes) {
    return TCString::CString2BinTCString(bytes);
}

const string ZERO(1, '\0');

TEST(TCString, EmptyTextsReadAlikeWithAndWithoutStorage) {
    TCString never, released("abc"), kept("abc"), nothing(static_cast<const char*>(nullptr)), none('x', 0);
    released.Empty(true);
    kept.Empty(false);
    for (const TCString* text : {&never, &released, &kept, &nothing, &none}) {
        EXPECT_STREQ("", *text);
        EXPECT_TRUE(text->IsEmpty() && *text == never && text->CompareBin(never) == 0);
    }
    EXPECT_EQ(nullptr, never.LockBuffer());
    EXPECT_EQ(nullptr, released.LockBuffer());
    EXPECT_EQ(string(4, '\0'), string(kept.LockBuffer(), 4));
    EXPECT_EQ(TCString::s_Empty, never.GetBuffer(0));
}

TEST(TCString, ConstructsAndAssignsFromEverySource) {
    EXPECT_EQ("xxx", Bytes(TCString('x', 3)));
    EXPECT_EQ(4, TCString('x', 3).GetAllocLength());
    EXPECT_EQ("a" + ZERO, Bytes(TCString("a\0b", 2)));
    EXPECT_EQ("abc", Bytes(TCString(reinterpret_cast<const unsigned char*>("abc"))));
    EXPECT_EQ("\xE2\x82\xAC\xF0\x9D\x84\x9E", Bytes(TCString(L"\u20AC\U0001D11E")));
    EXPECT_EQ("\xE2\x82\xAC", Bytes(TCString(u"\u20ACuro", 1)));
    EXPECT_EQ("\xE2\x82\xACuro", Bytes(TCString(u"\u20ACuro")));
    const wchar_t beyond[] = {0x110000, 'a', 0};
    EXPECT_EQ("\uFFFDa", Bytes(TCString(beyond))) << "no character has this code";
    TCString text("12345");
    text = '\0';
    EXPECT_EQ(ZERO, Bytes(text));
    text = u"ab";
    text = *&text;
    EXPECT_EQ("ab", Bytes(text));
    EXPECT_EQ(string(6, '\0').replace(0, 2, "ab"), string(text.LockBuffer(), 6)) << "the rest is zero-filled";
    text = static_cast<const char*>(text) + 1;
    EXPECT_EQ("b", Bytes(text));
}

TEST(TCString, IndexesOutOfRangeAreHarmless) {
    TCString text("abc");
    text.SetAt(3, 'x').SetAt(-1, 'x').SetAt(1, '\0');
    EXPECT_EQ("a" + ZERO + "c", Bytes(text));
    EXPECT_EQ('\0', text.GetAt(-1));
    EXPECT_EQ('\0', text[3]);
    EXPECT_EQ(1, text.SafeStrlen());
    EXPECT_EQ(TCString::BINARY, text.CalcDataFormat());
    EXPECT_TRUE(text.IsInString(static_cast<const char*>(text) + 2));
    EXPECT_FALSE(text.IsInString(static_cast<const char*>(text) + 3));
}

TEST(TCString, StorageGrowsByTheRules) {
    TCString text("abc");
    text.GetBufferSetLength(10);
    EXPECT_EQ(3, text.GetLength());
    EXPECT_EQ(11, text.GetAllocLength());
    text.GetBufferSetLength(1);
    EXPECT_EQ("a", Bytes(text));
    text.GetBuffer(5);
    EXPECT_EQ(6, text.GetAllocLength());
    char* end = text.AllocAddBuffer(4, 1.5);  // six bytes are enough
    EXPECT_EQ(6, text.GetAllocLength());
    end = text.AllocAddBuffer(5, 1.5);
    EXPECT_EQ(17, text.GetAllocLength()) << "7 times 2.5";
    std::copy_n("bcdef", 5, end);
    text.ReleaseBuffer(-1);
    EXPECT_EQ("abcdef", Bytes(text));
    text.FreeExtra();
    EXPECT_EQ(7, text.GetAllocLength());
    text.ReleaseBuffer(8);
    EXPECT_EQ("abcdef" + ZERO + ZERO, Bytes(text));
    text.SetLength(0);
    EXPECT_EQ(9, text.GetAllocLength());
    EXPECT_EQ(string(9, '\0'), string(text.LockBuffer(), 9));
    EXPECT_THROW(text.GetBuffer(INT_MAX), std::bad_alloc);
}

struct Exposed : TCString {
    using TCString::AllocBuffer;
    using TCString::TCString;
};

TEST(TCString, BuffersAreSetToTheExactSize) {
    Exposed text("abcdef");
    text.AllocBuffer(4, true);
    EXPECT_EQ("abc", Bytes(text));
    text.AllocBuffer(4, false);
    EXPECT_EQ(string(3, '\0'), Bytes(text)) << "the same size is only zero-filled, the length stays";
    text.SetAt(0, 'x').SetAt(2, 'z');
    text.AllocBuffer(9, true);
    EXPECT_EQ("x" + ZERO + "z", Bytes(text));
    EXPECT_EQ(9, text.GetAllocLength());
    text.AllocBuffer(-1, true);
    EXPECT_TRUE(text.LockBuffer() == nullptr && text.IsEmpty() && text.GetAllocLength() == 0);
}

TEST(TCString, CopiesAndAppendsOfItsOwnBytes) {
    TCString text("abcdef");
    text.AllocCopy(text.LockBuffer() + 2, 3);
    EXPECT_EQ("cde", Bytes(text));
    text.FreeExtra();
    text += text;
    text.Append(text.LockBuffer() + 1, 2).Append(nullptr, 2).Append("x", 0);
    EXPECT_EQ("cdecdede" + ZERO + ZERO, Bytes(text));
    text.AllocCopy(nullptr, 4);
    EXPECT_EQ("", Bytes(text));
    EXPECT_GT(text.GetAllocLength(), 0);
    TCString grown("ab");
    grown.AllocCopy(grown, 3);  // the terminator too, which needs more storage
    EXPECT_EQ("ab" + ZERO, Bytes(grown));
}

TEST(TCString, OperatorsOrderAsTheBytesDo) {
    const auto compare = [](const auto& a, const auto& b, int order) {
        EXPECT_TRUE((a == b) == (order == 0) && (a != b) == (order != 0) && (a < b) == (order < 0) &&
                    (a > b) == (order > 0) && (a <= b) == (order <= 0) && (a >= b) == (order >= 0))
            << a << " and " << b;
    };
    for (const char* a : {"", "a", "B", "ab", "\xFF"})
        for (const char* b : {"", "a", "B", "ab", "\xFF"}) {
            const int order = std::strcmp(a, b);
            compare(TCString(a), TCString(b), order);
            compare(TCString(a), b, order);
            compare(a, TCString(b), order);
            EXPECT_EQ((order > 0) - (order < 0), TCString(a).Compare(b));
        }
    const TCString text("aB");
    EXPECT_TRUE(text.CompareNoCase("Ab") == 0 && text.CompareNoCase("AC") < 0 &&
                text.CompareNoCase("AA") > 0);
    EXPECT_TRUE(text.CompareNoCase("A") > 0 && text.CompareNoCase("abc") < 0 && text.CollateNoCase("AC") < 0);
}

TEST(TCString, AddsCharactersAndPointsIntoItself) {
    const TCString line("abcdef");
    const char letter = 'g';
    EXPECT_STREQ("abcdefg", line + letter);
    EXPECT_EQ("abcdef" + ZERO, Bytes(line + '\0'));
    EXPECT_STREQ("xabcdef-abcdef", "x" + line + "-" + line);
    const char* const begin = line;
    EXPECT_EQ(begin, line + 0);
    for (const char* fifth :
         {line + 4, line + 4L, line + short{4}, line + static_cast<unsigned char>(4), 4 + line})
        EXPECT_EQ(begin + 4, fifth);
}

TEST(TCString, NullRanksBelowEveryText) {
    const char* null = nullptr;
    for (const TCString text : {"", "a"}) {
        EXPECT_FALSE(text == null || null == text || text < null || text <= null || null > text ||
                     null >= text);
        EXPECT_TRUE(text != null && null != text && text > null && text >= null && null < text &&
                    null <= text);
        EXPECT_EQ(1, text.Compare(null));
        EXPECT_EQ(1, text.CompareNoCase(null));
        EXPECT_EQ(1, text.Collate(null));
        EXPECT_EQ(1, text.CollateNoCase(null));
    }
    int result = 5;
    EXPECT_FALSE(TCString::TestNULL("", "", result));
    EXPECT_TRUE(TCString::TestNULL(null, null, result) && result == 0);
    EXPECT_TRUE(TCString::TestNULL("", null, result) && result == 1);
    EXPECT_TRUE(TCString::TestNULL(null, "", result) && result == -1);
}

TEST(TCString, TextEndsAtAZeroByteAndBytesDoNot) {
    const TCString text = Binary("ab" + ZERO + "cd");
    EXPECT_TRUE(text == "ab" && text.GetLength() == 5);
    EXPECT_EQ(1, text.CompareBin("ab"));
    EXPECT_EQ(-1, TCString("a").CompareBin("\xFF"));
    EXPECT_EQ("b", Bytes(text.Right(1)));
    EXPECT_EQ(Bytes(text), Bytes(text.Right(2)));
    EXPECT_EQ("cd", Bytes(text.Right(2, TCString::BINARY)));
    EXPECT_EQ(-1, text.Find('c'));
    EXPECT_EQ(3, text.Find('c', 3));
    EXPECT_EQ(-1, text.ReverseFind('c'));
    EXPECT_EQ(3, text.ReverseFind('c', TCString::BINARY));
    EXPECT_EQ(-1, text.Find("cd"));
    EXPECT_EQ(2, text.FindBin(Binary(ZERO + "c")));
    EXPECT_EQ(2, text.FindOneOf("\0x", 2, 1));
    TCString replaced = text;
    EXPECT_EQ(1, replaced.Replace("c", "xyz"));
    EXPECT_EQ("ab" + ZERO + "xyzd", Bytes(replaced));
    EXPECT_EQ("ba" + ZERO + "cd", Bytes(TCString(text).MakeReverse()));
    EXPECT_EQ("dc" + ZERO + "ba", Bytes(TCString(text).MakeReverse(TCString::BINARY)));
}

TEST(TCString, FindsFromTheFront) {
    const TCString text("a/b/c aaaa");
    const struct {
        const char* sub;
        int n, index;
    } rows[] = {{"a", 1, 0},  {"a", -5, 0},  {"/", 0, 1},  {"/", 2, 3},    {"/", 3, -1}, {"/", -1, 3},
                {"/", -2, 1}, {"/", -3, -1}, {"aa", 2, 8}, {"aa", -3, -1}, {"", 1, -1},  {"/", INT_MIN, -1}};
    for (const auto& row : rows)
        for (const auto format : {TCString::ASCII, TCString::BINARY})
            EXPECT_EQ(row.index, text.FindStringIndex(row.sub, row.n, format)) << row.sub << row.n;
    EXPECT_EQ(-1, Binary("a" + ZERO + "a").FindStringIndex("a", 2));
    EXPECT_EQ(2, Binary("a" + ZERO + "a").FindStringIndex("a", 2, TCString::BINARY));
    EXPECT_EQ(1, text.Find('/', -4));
    EXPECT_EQ(-1, text.Find('/', 10));
    EXPECT_EQ(2, text.FindNoCase("B/C"));
    EXPECT_EQ(-1, text.FindNoCase("B/C", 3));
    EXPECT_EQ(1, text.FindOneOf("c/"));
    EXPECT_EQ(-1, text.FindOneOf(nullptr));
}

TEST(TCString, CutsWithinItsBounds) {
    const TCString abc("abc"), path("a/b/c");
    EXPECT_STREQ("", abc.Mid(10, 3));
    EXPECT_STREQ("bc", abc.Mid(1, 100));
    EXPECT_STREQ("", abc.Mid(1, -1));
    EXPECT_STREQ("", abc.Left(-5));
    EXPECT_TRUE(abc.Right(0) == "" && abc.Right(-1) == "" && abc.Right(1) == "c" && abc.Right(9) == "abc");
    EXPECT_STREQ("abc", abc.Left(INT_MAX));
    EXPECT_STREQ("ab", abc.SpanIncluding("ba"));
    EXPECT_STREQ("ab", abc.SpanExcluding("xc"));
    EXPECT_STREQ("a", path.LeftOf("/"));
    EXPECT_STREQ("a/b", path.LeftOf("/", -1));
    EXPECT_STREQ("c", path.RightOf("/", 0));
    EXPECT_STREQ("b/c", path.RightOf("/", -1));
    EXPECT_STREQ("", path.RightOf("/", INT_MIN));
    EXPECT_STREQ("", path.LeftOf("x"));
    EXPECT_STREQ("a(b)", TCString("f(a(b))").MidOf("(", ")"));
    EXPECT_STREQ("b", TCString("f(a(b))").MidOf("(", 2, ")", 2));
    EXPECT_STREQ("b", TCString("f(a(b))").MidOf("(", 0, ")", 0)) << "after the last, before the first";
    EXPECT_STREQ("b))", TCString("f(a(b))").RightOf("(", 0));
}

TEST(TCString, EditsInPlace) {
    TCString text("bd");
    EXPECT_EQ(3, text.Insert(1, 'c'));
    EXPECT_EQ(4, text.Insert(-3, "a"));
    EXPECT_EQ(8, text.Insert(99, static_cast<const char*>(text)));
    EXPECT_STREQ("abcdabcd", text);
    EXPECT_EQ(8, text.Insert(0, static_cast<const char*>(nullptr)));
    EXPECT_EQ(7, text.Delete(-1));
    EXPECT_EQ(2, text.Delete(2, 99));
    EXPECT_EQ(2, text.Delete(2, 1));
    EXPECT_STREQ("bc", text);
    EXPECT_EQ(1, text.Replace('c', 'b'));
    EXPECT_EQ(0, text.Replace('b', 'b'));
    EXPECT_EQ(2, text.Replace("b", static_cast<const char*>(text)));
    EXPECT_STREQ("bbbb", text);
    EXPECT_EQ(0, text.Replace("", "x"));
    const char* const storage = text;
    EXPECT_EQ(0, text.Replace("x", "y"));
    EXPECT_EQ(storage, static_cast<const char*>(text)) << "nothing changes";
    EXPECT_EQ(2, text.Replace("bb", nullptr));
    EXPECT_EQ(2, TCString("a-a").Remove('a'));
}

TEST(TCString, ReplacesInOnePass) {
    string plain, expected;
    for (int i = 0; i < 20000; ++i) {
        plain += "..<<>" + ZERO;
        expected += "..[#]>" + ZERO;
    }
    TCString text = Binary(plain);
    EXPECT_EQ(20000, text.Replace("<<", "[#]"));
    EXPECT_EQ(expected, Bytes(text));
    EXPECT_EQ(text.GetLength() + 1, text.GetAllocLength());
    EXPECT_EQ(20000, text.Replace("[#]", "<<"));
    EXPECT_EQ(plain, Bytes(text));
}

TEST(TCString, TrimsRunsOfCharacters) {
    EXPECT_STREQ("a b ", TCString(" \t\r\na b ").TrimLeft());
    EXPECT_STREQ(" a b", TCString(" a b \v\f").TrimRight());
    EXPECT_STREQ("", TCString("  ").TrimRight());
    EXPECT_STREQ("bxa", TCString("xxbxa").TrimLeft('x'));
    EXPECT_STREQ("bxa", TCString("bxaxx").TrimRight('x'));
    EXPECT_STREQ("c", TCString("abac").TrimLeft("ba"));
    EXPECT_STREQ("c", TCString("caba").TrimRight("ab"));
    EXPECT_STREQ(" a ", TCString(" a ").TrimLeft("").TrimRight(static_cast<const char*>(nullptr)));

    const string zeros = " a" + ZERO + " " + ZERO;
    const TCString set = Binary(" " + ZERO);
    EXPECT_EQ(zeros, Bytes(Binary(zeros).TrimRight())) << "the walk ends at the first zero byte";
    EXPECT_EQ(" a", Bytes(Binary(zeros).TrimRight(set, TCString::BINARY)));
    EXPECT_EQ(zeros, Bytes(Binary(zeros).TrimRight(set)));
    EXPECT_EQ("a", Bytes(Binary(ZERO + " a").TrimLeft(set, TCString::BINARY)));
    EXPECT_EQ("a", Bytes(Binary("a " + ZERO + "b").TrimRight())) << "a run at that end cuts what follows it";
}

TEST(TCString, PrintsAndKeepsTheMessageWhenItCannot) {
    TCString text("old");
    text.Format("%s-%05.1f", static_cast<const char*>(text), 2.25);
    EXPECT_STREQ("old-002.2", text);
    EXPECT_EQ(1026, text.GetAllocLength());
    text.FormatAppend("%*s", 1500, "!");
    EXPECT_EQ(1509, text.GetLength());
    EXPECT_EQ(9 + 2048 + 2, text.GetAllocLength());
    const wchar_t impossible[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    text.Format("100 %% of %ls", impossible);
    EXPECT_STREQ("100 %% of %ls", text);
    text.FormatAppend("%ls", impossible);
    EXPECT_STREQ("100 %% of %ls%ls", text);
    EXPECT_EQ("a" + ZERO, Bytes(TCString::FormatS("a%c", 0)));
    for (const int length : {1022, 1023, 1024, 1025, 5000})
        EXPECT_EQ(string(static_cast<std::size_t>(length - 1), ' ') + "x",
                  Bytes(TCString::FormatS("%*s", length, "x")));
}

TEST(TCString, MessagesTakeTheirArgumentsByNumber) {
    TCString text;
    text.FormatMessageA("%2 before %1, %2 again: %3!5.2f!|%4!-4d!|%5!lx!%%%n%t.%0 never", "one", "two", 2.5,
                        42, 255L);
    EXPECT_STREQ("two before one, two again:  2.50|42  |ff%\n\t.", text);
    text.FormatMessageA("%3! d!/%1!*s!", 4, "ab", 7);
    EXPECT_STREQ(" 7/  ab", text) << "a star takes the argument of the number, the text follows";
    text.FormatMessageA("%1!.*s!%12!s!", 1, "ab", 0, 0, 0, 0, 0, 0, 0, 0, 0, "twelve");
    EXPECT_STREQ("atwelve", text);
    text.FormatMessageA("%1!.*s!", -1, "whole");
    EXPECT_STREQ("whole", text) << "a negative precision is none";
    text = "atwelve";
    for (const char* wrong : {"%", "%1!d", "%1!!", "%1!y!", "%1!ls!", "%1 %1!d!", "%1!n!"}) {
        text.FormatMessageA(wrong, "x");
        EXPECT_STREQ("atwelve", text) << wrong;
    }
    text.FormatMessageA("");
    EXPECT_STREQ("", text);
}

TEST(TCString, ConvertsBetweenCodePages) {
    TCString text;
    EXPECT_STREQ("\x80 \xE4", text.ToMultibyte(u"\u20AC \u00E4", -1, 1252));
    EXPECT_EQ(0, std::u16string(u"\u20AC \u00E4").compare(TCString().ToUnicode("\x80 \xE4", 3, 1252)));
    EXPECT_STREQ("? a", text.ToMultibyte(u"\U0001D11E a", -1, 1252)) << "one mark for one character";
    EXPECT_STREQ(
        "\xEF\xBF\xBD"
        "a",
        text.ToMultibyte(u"\xD800"
                         u"a",
                         -1, 65001));
    EXPECT_STREQ("", text.ToMultibyte(u"a", -1, 4711));

    text = "\xF0\x9D\x84\x9Ex\xFF";
    EXPECT_EQ(0, std::u16string(u"\U0001D11Ex\uFFFD").compare(text.ToUnicode(text, -1, 65001)));
    EXPECT_EQ(8, text.GetLength());
    EXPECT_GE(text.GetAllocLength(), 10);
    EXPECT_EQ(u'\0', *TCString().ToUnicode("")) << "an empty text ends with 16 zero bits too";
}

// The plain locale counts as UTF-8.
class TCStringCharacters : public testing::TestWithParam<const char*> {
 protected:
    void SetUp() override { ASSERT_NE(nullptr, std::setlocale(LC_ALL, GetParam())); }
    void TearDown() override { std::setlocale(LC_ALL, "C"); }
};

TEST_P(TCStringCharacters, AreSteppedOverWhole) {
    const TCString text("\u00C4\u00D6x\xC3");  // ends with half a character
    EXPECT_STREQ("\u00E4\u00F6x\xC3", TCString(text).MakeLower());
    EXPECT_STREQ("\xC3x\u00D6\u00C4", TCString(text).MakeReverse());
    EXPECT_STREQ("\u00D6x\xC3", TCString(text).TrimLeft("\u00C4"));
    EXPECT_STREQ(text, TCString(text).TrimLeft('\xC3')) << "the lead byte is no character";
    EXPECT_STREQ("\u00C4\u00D6x", TCString(text).TrimRight('\xC3'));
    EXPECT_EQ(5, text.Find('\xC3'));
    EXPECT_EQ(5, text.ReverseFind('\xC3'));
    EXPECT_EQ(-1, text.Find("\x96"));
    EXPECT_EQ(1, TCString(text).Replace('\xC3', '!'));
    EXPECT_EQ(2, text.FindNoCase("\u00F6X"));
    EXPECT_EQ(0, text.CompareNoCase("\u00E4\u00F6X\xC3"));
    EXPECT_EQ(0, TCString("\u00C4x").CollateNoCase("\u00E4X"));
    EXPECT_LT(text.Compare("\u00E4"), 0);
    EXPECT_EQ(2, text.FindOneOf("y\u00D6"));
    EXPECT_STREQ("a", TCString("\u2003a\u2003").TrimLeft().TrimRight());
}

INSTANTIATE_TEST_SUITE_P(Locales, TCStringCharacters, testing::Values("C", "C.UTF-8"));

}  // namespace
