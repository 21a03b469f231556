#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "sigweave/persistence/ParameterQuote.h"
#include "sigweave/persistence/TCProcessParameters.h"

namespace {

using namespace std::string_literals;

std::string Str(const TCString& text) {
    return {static_cast<const char*>(text), static_cast<std::size_t>(text.GetLength())};
}

TCProcessParameters Lines(bool unquote = false) {
    return TCProcessParameters(unquote, false, nullptr, "\n", "=", "#;");
}

// The whole table, as "section.name:type:value" entries.
std::string TableOf(const TCProcessParameters& text) {
    std::string all;
    for (int i = 0; i < text.GetParamCount(); ++i)
        all += Str(text.GetParamSection(i)) + "." + Str(text.GetParamName(i)) + ":" +
               std::to_string(text.GetParamValType(i)) + ":" + Str(text.GetParamValStr(i)) + "|";
    return all;
}

TEST(TCProcessParameters, ReadsTheDefaultSyntax) {
    TCProcessParameters text;
    ASSERT_EQ(text.ParseParamString("a=1\r\n; note\r\n[s]\r\nb=\"x y\"\r\nalone\r\nnone=\r\n[]q=\"5\"\r\n"),
              5);
    EXPECT_EQ(TableOf(text), ".a:1:1|s.b:3:x y|s.alone:0:|s.none:0:|.q:3:5|");
    EXPECT_EQ(text.GetParamValInt(4), 0);
    EXPECT_EQ(text.GetParamPosition(1), 18);
    EXPECT_EQ(text.GetSectionCount(), 3);
    EXPECT_TRUE(text.GetSectionPosition(0) == -1 && text.GetSectionPosition(1) == 13);
    EXPECT_TRUE(text.GetParamPosition(5) == -1 && text.GetParamName(-1).IsEmpty());
    EXPECT_TRUE(text.FindParameter("b", "s") == 1 && text.FindParameter("b", "") == -1);
    EXPECT_TRUE(text.FindParameter("B", nullptr) == -1 && text.FindParameterNoCase("B", "S") == 1);
    const TCProcessParameters copy(text);
    text.Reset();
    EXPECT_TRUE(text.GetParamCount() == 0 && text.BuildParamString().IsEmpty() && copy.GetParamCount() == 5);
}

TEST(TCProcessParameters, EveryErrorHasItsMessage) {
    struct {
        const char* text;
        const char* message;
    } const rows[] = {
        {"a=1\n[sec\nb=2\n", "Section end character is missing at section [sec..."},
        {"[sec", "Section end character is missing at section [sec..."},
        {"a b=", "Value is missing at parameter a b"},
        {"a=\"x\n", "Ending quotation mark is missing at parameter a"},
        {"a='x\"\n", "Ending quotation mark is missing at parameter a"},
        {"b=\"x\"", "Parameter delimiter is missing after ending quotation mark at parameter b"},
        {"b='x' \n", "Parameter delimiter is missing after ending quotation mark at parameter b"},
        {"n=\"\\q\"\n", "Error at unquoting value of parameter n"},
    };
    for (const auto& row : rows) {
        TCProcessParameters text = Lines(true);
        EXPECT_EQ(text.ParseParamString(row.text), -1) << row.text;
        EXPECT_STREQ(text.GetErrorText(), row.message);
        EXPECT_TRUE(TableOf(text).empty() || TableOf(text) == ".a:1:1|") << "what precedes the mistake";
        EXPECT_TRUE(text.CheckConsistency());
        EXPECT_EQ(text.InsertParameter("new", "", true), -1) << "edits wait for a text that can be read";
        EXPECT_EQ(text.ParseParamString("a=1\n"), 1);
        EXPECT_TRUE(text.GetErrorText().IsEmpty());
    }
    TCProcessParameters prefixed(false, false, "-", " ", "=", nullptr);
    EXPECT_EQ(prefixed.ParseParamString("-a=1 -b= x"), -1);
    EXPECT_STREQ(prefixed.GetErrorText(), "Parameter prefix character is missing!");
}

TEST(TCProcessParameters, ValuesAreTypedAsAWhole) {
    using P = TCProcessParameters;
    const std::string zeros(400, '0');
    struct {
        std::string value;
        bool comma;
        P::ParamValType type;
        int integer;
        double real;
    } const rows[] = {
        {"-12", false, P::INTEGER, -12, -12},
        {" +7", false, P::INTEGER, 7, 7},
        {"7 ", false, P::STRING, 7, 7},
        {"12x", false, P::STRING, 12, 12},
        {"1.5e3", false, P::FLOAT, 1, 1500},
        {".5", false, P::FLOAT, 0, 0.5},
        {"1,5", false, P::STRING, 1, 1},
        {"1,5", true, P::FLOAT, 1, 1.5},
        {"1.5", true, P::STRING, 1, 1},
        {"99999999999", false, P::INTEGER, INT_MAX, 99999999999.0},
        {"1e999", false, P::FLOAT, 1, HUGE_VAL},
        {"-1e-999", false, P::FLOAT, -1, 0},
        {"1" + zeros + "e-5", false, P::FLOAT, INT_MAX, HUGE_VAL},
        {"0." + zeros + "1e+5", false, P::FLOAT, 0, 0},
        {"inf", false, P::FLOAT, 0, HUGE_VAL},
        {"-nan", false, P::FLOAT, 0, -NAN},
        {"information", false, P::STRING, 0, 0},
        {"infinity", false, P::STRING, 0, 0},
        {"-Infinity", false, P::STRING, 0, 0},
        {"NaN(1)", false, P::STRING, 0, 0},
        {"0x10", false, P::STRING, 0, 0},
        {"+-3", false, P::STRING, 0, 0},
        {"-", false, P::STRING, 0, 0},
        {"+", false, P::STRING, 0, 0},
        {"++3", false, P::STRING, 0, 0},
        {"\t\v-3", false, P::INTEGER, -3, -3},
        {"+INF", false, P::FLOAT, 0, HUGE_VAL},
        {"NaN", false, P::FLOAT, 0, NAN},
        {"'3'", false, P::STRING, 0, 0},
    };
    for (const auto& row : rows) {
        TCProcessParameters text = Lines();
        text.DecimalComma(row.comma);
        ASSERT_EQ(text.ParseParamString(("v=" + row.value + "\n").c_str()), 1) << row.value;
        EXPECT_EQ(text.GetParamValType(0), row.type) << row.value;
        EXPECT_EQ(text.GetParamValInt(0), row.integer) << row.value;
        const double real = text.GetParamValDbl(0);
        EXPECT_TRUE(real == row.real || (std::isnan(real) && std::isnan(row.real))) << row.value << real;
    }
}

TEST(TCProcessParameters, SyntaxIsConfigurable) {
    TCProcessParameters line(false, false, "-/", " ", "=:", nullptr);
    line.AddParamDelimiter(", ");
    line.AddParamSplitStr(":=");
    ASSERT_EQ(line.ParseParamString("-a=one two, /b:=3 -c /d:'x -y' "), 4);
    EXPECT_EQ(TableOf(line), ".a:3:one two|.b:1:3|.c:0:|.d:3:x -y|");
    TCProcessParameters escaped = Lines(true);
    ASSERT_EQ(escaped.ParseParamString("a=\"a\\\"b\"\nb=c:\\n\nc=\"x\\x00y\"\n"), 3);
    EXPECT_EQ(TableOf(escaped), ".a:3:a\"b|.b:3:c:\\n|.c:3:x\0y|"s);
    TCProcessParameters firstLine(false, false, nullptr, ";", "=", "\n");
    EXPECT_EQ(firstLine.ParseParamString("a=1;b;\nc=2;\nd=3;"), 2) << "a comment may start with a line end";
    TCProcessParameters digits(false, false, nullptr, "9", "=", nullptr);
    EXPECT_TRUE(digits.ParseParamString("a=129b=3") == 2 && digits.GetParamValInt(0) == 12);
    TCProcessParameters slashes = Lines();
    slashes.AddCommentStart("//");
    EXPECT_EQ(slashes.ParseParamString("// note\na=1\n"), 1);
    const char* arguments[] = {"program", "-gain=2.5", "-name=left channel", "-v"};
    ASSERT_EQ(line.ParseParamString(4, arguments), 3);
    EXPECT_STREQ(line.BuildParamString(), "-gain=2.5 -name=\"left channel\" -v ");
}

TEST(TCProcessParameters, NewParametersStandInTheSectionThatWasAskedFor) {
    struct {
        const char* text;
        const char* section;
        const char* after;
    } const rows[] = {
        {"", "", "n\r\n"},
        {"", "s", "[s]\r\nn\r\n"},
        {"a=1", "", "a=1\r\nn\r\n"},
        {"a=1", "s", "a=1\r\n[s]\r\nn\r\n"},
        {"[s]", "s", "[s]\r\nn\r\n"},
        {"[s]", "", "n\r\n[s]"},
        {"a=1\r\n[s]\r\n", "", "a=1\r\nn\r\n[s]\r\n"},
        {"[s]# x\r\n[t]\r\nb=2\r\n", "s", "[s]# x\r\nn\r\n[t]\r\nb=2\r\n"},
        {"[s][t]\r\nb=2\r\n", "s", "[s]\r\nn\r\n[t]\r\nb=2\r\n"},
        {"[s]\r\na=\r\n\r\n# about t\r\n[t]\r\n", "s", "[s]\r\na=\r\nn\r\n\r\n# about t\r\n[t]\r\n"},
        {"[s]\r\n# last words", "s", "[s]\r\n# last words\r\nn\r\n"},
        {"a=1\r\n# last words", "", "a=1\r\n# last words\r\nn\r\n"},
    };
    for (const auto& row : rows) {
        TCProcessParameters text;
        text.ParseParamString(row.text);
        const int index = text.InsertParameter("n", row.section, false);
        EXPECT_STREQ(text.BuildParamString(), row.after);
        EXPECT_EQ(text.FindParameter("n", row.section), index);
        EXPECT_EQ(text.InsertParameter("n", row.section, false), index);
        EXPECT_TRUE(text.CheckConsistency());
    }
}

TEST(TCProcessParameters, WhatTheSyntaxCannotExpressIsRefused) {
    TCProcessParameters text;
    ASSERT_EQ(text.ParseParamString("a=1\r\n"), 1);
    for (const char* name : {"", "x=y", "x\r\ny", "#x", "[x", "\r\n"})
        EXPECT_EQ(text.InsertParameter(name, "s", true), -1) << name;
    for (const char* section : {"x]", "x\ny"}) EXPECT_EQ(text.InsertParameter("n", section, true), -1);
    EXPECT_FALSE(text.SetParamValStr(0, "\"it's"));
    EXPECT_FALSE(text.SetParamValInt(1, 5) || text.ClearParamVal(-1) || text.DeleteParameter(1));
    EXPECT_FALSE(text.DeleteSection("s"));
    EXPECT_STREQ(text.BuildParamString(), "a=1\r\n");
    TCProcessParameters prefixed(false, false, "-", "\n", "=", "#");
    ASSERT_EQ(prefixed.ParseParamString("-a=1\n"), 1);
    EXPECT_EQ(prefixed.InsertParameter("b", "s", true), -1) << "the header would become part of a";
    EXPECT_EQ(prefixed.InsertParameter("b", "", true), 1);
    EXPECT_STREQ(prefixed.BuildParamString(), "-a=1\n-b\n");
}

TEST(TCProcessParameters, ValuesAreReplacedInPlace) {
    TCProcessParameters text;
    ASSERT_EQ(text.ParseParamString("a=\r\n# note\r\nb=old\r\nc=3"), 3);
    EXPECT_TRUE(text.SetParamValInt(0, INT_MIN));
    EXPECT_TRUE(text.SetParamValStr(1, "two\r\nlines"));
    EXPECT_TRUE(text.SetParamValStr(2, ""));
    EXPECT_STREQ(text.BuildParamString(), "a=-2147483648\r\n# note\r\nb=\"two\r\nlines\"\r\nc=\r\n");
    EXPECT_TRUE(text.SetParamValDbl(1, 2.5, FORMAT_FIXED, 2) && text.ClearParamVal(2) &&
                text.ClearParamVal(0));
    EXPECT_STREQ(text.BuildParamString(), "a\r\n# note\r\nb=2.50\r\nc\r\n");
    EXPECT_EQ(text.GetParamValDbl(1), 2.5);
    text.DecimalComma(true);
    EXPECT_TRUE(text.SetParamValDbl(1, -0.25, FORMAT_FIXED, 2));
    EXPECT_EQ(TableOf(text), ".a:0:|.b:2:-0,25|.c:0:|");
    EXPECT_TRUE(text.SetParamValDbl(1, -1.7e308, FORMAT_FIXED, INT_MAX));
    EXPECT_TRUE(text.CheckConsistency());
}

TEST(TCProcessParameters, TextsAreWrittenAsTheyAreUnlessTheyHoldADelimiter) {
    const struct {
        bool unquote;
        const char* value;
        const char* text;
        const char* reads;
    } rows[] = {
        {false, "a \"b\"", "v=a \"b\"\n", ".v:3:a \"b\"|"},
        {false, "", "v=\n", ".v:0:|"},
        {false, "\"12\"", "v=\"12\"\n", ".v:3:12|"},
        {false, "'it\"s'", "v='it\"s'\n", ".v:3:it\"s|"},
        {false, "\"12", "v='\"12'\n", ".v:3:\"12|"},
        {true, "\"\\x41\"", "v=\"\\x41\"\n", ".v:3:A|"},
        {true, "\"\\q\"", "v=\"\\\"\\\\q\\\"\"\n", ".v:3:\"\\q\"|"},
        {true, "1\n\"b\"", "v=\"1\n\\\"b\\\"\"\n", ".v:3:1\n\"b\"|"},
        {true, "\\\n", "v=\"\\\\\n\"\n", ".v:3:\\\n|"},
    };
    for (const auto& row : rows) {
        TCProcessParameters text = Lines(row.unquote);
        ASSERT_EQ(text.ParseParamString("v=old\n"), 1);
        EXPECT_TRUE(text.SetParamValStr(0, row.value)) << row.value;
        EXPECT_STREQ(text.BuildParamString(), row.text);
        EXPECT_EQ(TableOf(text), row.reads);
        EXPECT_TRUE(text.CheckConsistency());
    }
}

// What was read stays as it was typed, and edits go by the new syntax.
TEST(TCProcessParameters, TheSyntaxMayChangeBetweenEdits) {
    const char* const start = "a=1.5\nb=2.5;3\nc=\"x\\\\y\"\nd=\n";
    const struct {
        std::function<void(TCProcessParameters&)> change;
        const char* after;
    } rows[] = {
        {[](TCProcessParameters& text) { text.DecimalComma(true); },
         "a=-0,25\nb=2.5;3\nc=\"x\\\\y\"\nd=\"i;'\n\"\ne\n"},
        {[](TCProcessParameters& text) { text.UnQuote(true); },
         "a=-0.25\nb=2.5;3\nc=\"x\\\\y\"\nd=\"i;'\n\"\ne\n"},
        {[](TCProcessParameters& text) { text.AddParamDelimiter(";"); },  // b would fall into two
         "a=-0.25\nb=2.5;3\nc=\"x\\\\y\"\nd=\"i;'\n\"\ne\n"},
        {[](TCProcessParameters& text) { text.AddParamDelimiter("y"); },
         "a=-0.25\nb=2.5;3\nc=\"x\\\\y\"\nd=\"i;'\n\"\ne\n"},
        {[](TCProcessParameters& text) { text.Init(true, true, "-", "|", ":", nullptr); },
         "a=-0,25\nb=2.5;3\nc=\"x\\\\y\"\nd=\"i;'\n\"\ne\n"},
        {[](TCProcessParameters& text) { text.AddParamSplitStr("=="); },
         "a=-0.25\nb=2.5;3\nc=\"x\\\\y\"\nd=\"i;'\n\"\ne\n"},
    };
    for (const auto& row : rows) {
        TCProcessParameters text = Lines();
        ASSERT_EQ(text.ParseParamString(start), 4);
        row.change(text);
        EXPECT_TRUE(text.CheckConsistency());
        EXPECT_TRUE(text.SetParamValDbl(0, -0.25, FORMAT_FIXED, 2) && text.SetParamValStr(3, "i;'\n"));
        EXPECT_EQ(text.InsertParameter("e", "", false), 4);
        EXPECT_STREQ(text.BuildParamString(), row.after);
        EXPECT_EQ(TableOf(text),
                  ".a:2:-0" + std::string(1, row.after[4]) + "25|.b:3:2.5;3|.c:3:x\\\\y|.d:3:i;'\n|.e:0:|");
        EXPECT_EQ(text.GetParamValDbl(0), -0.25);
        EXPECT_EQ(text.GetParamValDbl(1), 2.5) << "was read with a point";
        EXPECT_TRUE(text.DeleteParameter(1) && text.ClearParamVal(0) && text.CheckConsistency());
    }
    TCProcessParameters text = Lines();
    text.ParseParamString("a=1\n");
    text.UnQuote(true);
    EXPECT_TRUE(text.SetParamValStr(0, "\"both'\n")) << "which needs escapes";
    text.AddParamDelimiter(";");
    EXPECT_TRUE(text.SetParamValStr(0, "a;b"));
    EXPECT_STREQ(text.BuildParamString(), "a=\"a;b\"\n");
    text.Init(false, false, nullptr, ";", "=", nullptr);
    EXPECT_EQ(text.ParseParamString("a=1;b=2\n"), 2) << "the next parse takes the syntax in any case";
}

// Every text of up to three of these pieces.
TEST(TCProcessParameters, QuotedValuesReadBack) {
    std::vector<std::string> texts = {""};
    for (std::size_t begin = 0, length = 1; length <= 3; ++length)
        for (const std::size_t end = texts.size(); begin < end; ++begin)
            for (const char* piece : {"\\", "\"", "'", "\r\n", "\x7F", "\x01", "x5c", "\xFF"})
                texts.push_back(texts[begin] + piece);
    TCProcessParameters text = Lines(true);
    for (const std::string& value : texts) {
        const std::string quoted(tc::QuoteParameter(value.c_str()));
        ASSERT_EQ(text.ParseParamString(("v=" + quoted + "\n").c_str()), 1) << quoted;
        EXPECT_EQ(Str(text.GetParamValStr(0)), value) << quoted;
        EXPECT_EQ(quoted.find_first_of("\r\n\x7F\x01"), quoted.npos) << quoted;
    }
}

TEST(TCProcessParameters, ArgumentsMayLieInTheText) {
    TCProcessParameters text(false, false, nullptr, ";", "=", "#");
    ASSERT_EQ(text.ParseParamString("a=1;# the name is in a comment"), 1);
    const char* name = text.BuildParamString();
    EXPECT_EQ(text.InsertParameter(name + 5, "", false), 1) << "there is no place after the comment";
    EXPECT_STREQ(text.BuildParamString(), "a=1; the name is in a comment;# the name is in a comment");
}

TEST(TCProcessParameters, SectionsGoWithTheirParametersAndLeaveTheRest) {
    TCProcessParameters text;
    text.ParseParamString("x=1\r\n[s]\r\n# kept\r\na=1\r\nb\r\n\r\n[t]\r\na=2\r\n[s]\r\na=3");
    EXPECT_TRUE(text.DeleteSection("s"));
    EXPECT_STREQ(text.BuildParamString(), "x=1\r\n# kept\r\n\r\n[t]\r\na=2\r\n[s]\r\na=3");
    EXPECT_TRUE(text.DeleteSection(text.GetParamSection(2)) && text.DeleteSection(nullptr));
    EXPECT_EQ(TableOf(text), "t.a:1:2|");
    EXPECT_FALSE(text.DeleteSection("s"));
    text.ParseParamString("a=1\r\n# kept\nb=2\r\n# kept too\r\n");
    EXPECT_TRUE(text.DeleteParameter(1)) << "its name begins with the line feed";
    EXPECT_STREQ(text.BuildParamString(), "a=1\r\n# kept\r\n# kept too\r\n");
}

TEST(TCProcessParameters, LargeAndWildTextsAreReadInOnePass) {
    std::string wild;
    for (int i = 0; i < 400000; ++i) wild += "[s]=\"\\'\n#;\x80"[(i * 7 + i / 3) % 12];
    for (const bool unquote : {false, true}) {
        TCProcessParameters text = Lines(unquote);
        text.ParseParamString(wild.c_str());
        EXPECT_TRUE(text.CheckConsistency());
    }
    TCProcessParameters text = Lines();
    EXPECT_EQ(text.ParseParamString(nullptr), 0);
    std::string many;
    for (int i = 0; i < 500000; ++i) many += "p=1\n";
    EXPECT_EQ(text.ParseParamString(many.c_str()), 500000);
}

}  // namespace
