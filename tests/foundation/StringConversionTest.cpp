#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "sigweave/foundation/StringConversion.h"

namespace {

using std::string;
using testing::ElementsAre;

string Bytes(const TCString& text) {
    return TCString::TCString2BinCString(text);
}

TEST(StringConversion, ReadsIntegersByBase) {
    const struct {
        const char* text;
        int base, value, length;
        unsigned long unsignedValue;
    } rows[] = {
        {"0x1A;", 0, 26, 4, 26},
        {"-12 ", 0, -12, 3, 4294967284},
        {"x12", 0, 0, 0, 0},
        {" 12", 0, 0, 0, 0},
        {" 12", 10, 12, 3, 12},
        {"077", 0, 77, 3, 77},
        {"077", 8, 63, 3, 63},
        {"12", 1, 0, 0, 0},
        {"12", 37, 0, 0, 0},
        {"4000000000", 10, INT_MAX, 10, 4000000000},
        {"-99999999999999999999", 10, INT_MIN, 21, 4294967295},
    };
    for (const auto& row : rows) {
        const char *p = row.text, *q = row.text;
        EXPECT_EQ(row.value, GetNumber(p, row.base)) << row.text;
        EXPECT_EQ(row.unsignedValue, GetNumberU(q, row.base)) << row.text;
        EXPECT_EQ(row.length, p - row.text);
        EXPECT_EQ(p, q);
    }
    const char* null = nullptr;
    EXPECT_EQ(0, GetNumber(null, 10));
    EXPECT_EQ(nullptr, null);
}

TEST(StringConversion, ResolvesEscapes) {
    const struct {
        const char *text, *bytes;
        bool valid;
    } rows[] = {
        {R"(\"\'\?\\\a\b\c\f\n\r\t\v)", "\"'?\\\a\b\x11\f\n\r\t\v", true},
        {R"(\x4a\x7z\x414)", "J\az\x41\x34", true},
        {R"(\101\60\0611)", "A011", true},
        {R"(a\qb)", "aqb", false},
        {R"(\777)", "\xFF", false},
        {R"(\x)", "", false},
        {R"(\xg)", "g", false},
        {R"(end\)", "end\\", false},
    };
    for (const auto& row : rows) {
        TCString text(row.text);
        EXPECT_EQ(row.valid, UnQuoteEscapeChar(text, text)) << row.text;
        EXPECT_EQ(row.bytes, Bytes(text));
    }
}

TEST(StringConversion, QuotedControlCharactersComeBack) {
    TCString all, quoted, back;
    for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
    EXPECT_TRUE(UnQuoteEscapeChar(back, QuoteControlChar(quoted, all)));
    EXPECT_EQ(Bytes(all), Bytes(back));
    EXPECT_EQ(513, quoted.GetAllocLength());
    EXPECT_STREQ(R"(\x01\t\\"\x1f)", QuoteControlChar(quoted, "\x01\t\\\"\x1F"));
}

TEST(StringConversion, EncodesUrls) {
    TCString text;
    EXPECT_STREQ("a%20b~c-_.%2B%C3%A4%7F", URLEncode(text, "a b~c-_.+\u00E4\x7F"));
    EXPECT_STREQ("a b~c-_.+\u00E4\x7F", URLDecode(text, text));
    EXPECT_STREQ("%4gA+%", URLDecode(text, "%4g%41+%"));
    EXPECT_STREQ("%4", URLDecode(text, "%4"));
    EXPECT_STREQ("", URLEncode(text, nullptr));
}

TEST(StringConversion, StepsLines) {
    EXPECT_EQ(string(100, ' '), TCIndentSpaces(250));
    EXPECT_EQ(string(3, ' '), TCIndentSpaces(3));
    EXPECT_STREQ("b\nc", GetLine("a\n \t\r\n\n  b\nc"));
    EXPECT_EQ(nullptr, GetLine("a\n \n"));
    EXPECT_EQ(nullptr, GetLine("a"));
    EXPECT_EQ(nullptr, GetLine(nullptr));
}

TEST(StringConversion, FindsParameters) {
    const char* text = "first=1\n\n   GainX = -2.5 dB \nnote\nlate= x\nlast=1";
    const struct {
        const char* name;
        int maxLen;
        bool found;
        const char* value;
    } rows[] = {
        {"first", -1, true, "1"},  {" gain ", -1, true, "-2.5 dB"}, {"note", -1, true, "x"},
        {"late", 2, true, " x"},   {"last", -1, true, ""},          {"last", 9, true, "1"},
        {"ain", -1, false, "old"}, {"lastly", -1, false, "old"},
    };
    for (const auto& row : rows) {
        TCString value("old");
        CString frameworkValue("old");
        EXPECT_EQ(row.found, ParseParam(text, row.name, value, row.maxLen)) << row.name;
        EXPECT_EQ(row.found, ParseParam(text, row.name, frameworkValue, row.maxLen));
        EXPECT_EQ(row.value, Bytes(value));
        EXPECT_EQ(row.value, frameworkValue);
    }
    int whole = 9;
    double real = 9;
    EXPECT_TRUE(ParseParam(text, "gain", whole) && ParseParam(text, "gain", real));
    EXPECT_EQ(-2, whole);
    EXPECT_EQ(-2.5, real);
    EXPECT_TRUE(ParseParam(text, "late", whole) && whole == 0);
    EXPECT_FALSE(ParseParam("nothing\n", "nothing", real) || ParseParam(nullptr, "a", real) ||
                 ParseParam("", "nothing", whole));
    EXPECT_TRUE(whole == 0 && real == -2.5);
}

TEST(StringConversion, SplitsTexts) {
    CStringArray texts;
    EXPECT_EQ(3, ConvertStringToStrArray("a;;b;", texts, ";", false));
    EXPECT_THAT(texts, ElementsAre("a", "", "b"));
    EXPECT_EQ(3, ConvertStringToStrArray("a;;b;", texts, ";", true));
    EXPECT_THAT(texts, ElementsAre("a;", ";", "b;"));
    EXPECT_EQ(2, ConvertStringToStrArray("a, b", texts, ", ", true));
    EXPECT_THAT(texts, ElementsAre("a, ", "b"));
    EXPECT_EQ(0, ConvertStringToStrArray("", texts, ";", false));
    EXPECT_EQ(1, ConvertStringToStrArray(nullptr, texts, "", false));
    TCArray<TCString, const TCString&> own;
    EXPECT_EQ(2, ConvertStringToStrArray("a;b", own, ";", false));
    EXPECT_EQ(own[1], "b");
    own[0] = "c|d";
    own[1] = "|";
    EXPECT_EQ(2, ConvertStringToStrArray(own[0], own, own[1], false));
    EXPECT_EQ(own[1], "d");
}

template <class List>
class NumberLists : public testing::Test {};
using IntLists = testing::Types<TCArray<int, int>, TCArray<int, const int&>, CArray<int>>;
TYPED_TEST_SUITE(NumberLists, IntLists);

TYPED_TEST(NumberLists, HoldTheIntegersOfAText) {
    TypeParam list;
    EXPECT_EQ(7, ConvertStringToIntArray("1.5 x-7+8,--9 - 3e4", list));
    EXPECT_THAT(std::vector(list.begin(), list.end()), ElementsAre(1, 5, -7, 8, -9, 3, 4));
    EXPECT_EQ(0, ConvertStringToIntArray(nullptr, list));
}

template <class List>
class RealLists : public testing::Test {};
using DblLists = testing::Types<TCArray<double, double>, TCArray<double, const double&>, CArray<double>>;
TYPED_TEST_SUITE(RealLists, DblLists);

TYPED_TEST(RealLists, HoldTheNumbersOfAText) {
    TypeParam list;
    EXPECT_EQ(2, ConvertStringToDblArray("1.234,5;2", list, true));
    EXPECT_THAT(std::vector(list.begin(), list.end()), ElementsAre(1234.5, 2));
    EXPECT_EQ(4, ConvertStringToDblArray("1.5,-.5e1;1-2 + 7..8", list, false));
    EXPECT_THAT(std::vector(list.begin(), list.end()), ElementsAre(1.5, -5, 1, 7));
    EXPECT_EQ(0, ConvertStringToDblArray("- . +", list, false));
}

// As the description of the lists says it, with the conversion of the C library.
std::vector<double> ScannedNumbers(const string& text) {
    std::vector<double> numbers;
    for (std::size_t at = 0; (at = text.find_first_of("0123456789+-.", at)) != string::npos;) {
        double number;
        if (std::sscanf(text.c_str() + at, "%lf", &number) == 1) numbers.push_back(number);
        at = std::min(text.find_first_not_of("0123456789+-.eE", at + 1), text.size());
    }
    return numbers;
}

TEST(StringConversion, ListsReadNumbersAsScanfDoes) {
    const auto read = [](const string& text) {
        CArray<double> list;
        ConvertStringToDblArray(text.c_str(), list, false);
        return list;
    };
    const auto same = [](double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; };
    EXPECT_THAT(read("0x"), ElementsAre());
    EXPECT_THAT(read("0x10"), ElementsAre(16, 10));
    EXPECT_THAT(read("sub-info 5"), ElementsAre(-HUGE_VAL, 5));
    std::mt19937 random(1);
    for (int i = 0; i < 50000; ++i) {
        string text;
        for (std::size_t length = random() % 10; text.size() < length;)
            text += "0019x+--.eEinfatyNIFX( "[random() % 23];
        EXPECT_TRUE(std::ranges::equal(read(text), ScannedNumbers(text), same)) << text;
    }
}

TEST(StringConversion, XmlTextsBecomeUtf16) {
    TCString text;
    const auto converted = [&](const string& xml) { return std::u16string(XMLToUnicode(text, xml.c_str())); };
    EXPECT_EQ(u"\u00E4", converted("\xEF\xBB\xBF\u00E4"));
    EXPECT_EQ(u"\u4E01\u4E02", converted("\xFF\xFE\x01\x4E\x02\x4E"));
    EXPECT_EQ(6, text.GetLength());
    EXPECT_EQ(u"\u4E01\u4E02", converted("\xFE\xFF\x4E\x01\x4E\x02"));
    const string declared = "<?xml encoding = \" utf-8\"?>\u00E4";
    EXPECT_EQ(u"<?xml encoding = \" utf-8\"?>\u00E4", converted(declared));
    EXPECT_EQ(u"", std::u16string(XMLToUnicode(text, nullptr)));
}

}  // namespace
