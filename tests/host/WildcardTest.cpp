#include <gmock/gmock.h>

#include <fstream>

#include "host/Conversion.h"
#include "host/Graph.h"
#include "host/PortPattern.h"
#include "tests/host/ProgramBench.h"

namespace {

using testing::HasSubstr;

TEST(PortPattern, MatchesNames) {
    const struct {
        const char *pattern, *names, *others;  // between commas
    } rows[] = {
        {"*", "a,Channel 1,", ""},
        {"Ch*1", "Ch1,Channel 1,Channel 11", "Channel 12,ch1,Channel 1 "},
        {"a?c", "abc,a c", "ac,abbc"},
        {"[ab]*", "a,bc", "c,"},
        {"[!ab]", "c,!", "a,b,"},
        {"x[a-cz]", "xa,xb,xc,xz", "xd,x-"},
        {"Channel [1-12]", "Channel 1,Channel 9,Channel 12", "Channel 13,Channel 0,Channel 01,Channel 1a"},
        {"[8-12]*[2-3]", "8 3,12x2", "7 3,8 4,123"},
        {"*a*b*c", "abc,xaxbbxc", "ab,abcd"},
        {"a[b", "a[b", "ab"},
        {"[]]", "]", "["}};
    const auto split = [](const std::string& text) {
        std::vector<std::string> parts;
        std::istringstream all(text);
        for (std::string part; std::getline(all, part, ',');) parts.push_back(part);
        return parts;
    };
    for (const auto& row : rows) {
        for (const std::string& name : split(row.names))
            EXPECT_TRUE(host::MatchesPattern(name, row.pattern)) << row.pattern << " " << name;
        for (const std::string& name : split(row.others))
            EXPECT_FALSE(host::MatchesPattern(name, row.pattern)) << row.pattern << " " << name;
    }
    EXPECT_FALSE(host::MatchesPattern(std::string(100000, 'a'), "*a*a*a*a*b"));
}

// Graphs over a table of four columns.
class Wildcards : public testing::Test {
 protected:
    Wildcards() : catalogue({SIGWEAVE_MODULE_DIR}), own(MakeOwnFolder()) {
        std::ofstream(own->Path() / "a.csv")
            << "time,Channel 1,Channel 2,Channel 10,x*\n0,1,2,3,4\n1,1,2,3,4\n2,1,2,3,4\n";
    }
    std::string Text(const std::string& lines) const {
        return "[table]\nmodule=TableFile\nfile=" + (own->Path() / "a.csv").string() +
               "\n[levels]\nmodule=Statistics\n[low]\nmodule=Filter\ncorner=0.1\n[lines]\n" + lines;
    }
    // The lines with their ports, or the mistakes, one a line.
    std::string Check(const std::string& lines) {
        host::Mistakes mistakes;
        const host::GraphFile file = host::GraphFile::Parse("g", Text(lines), mistakes);
        host::HostWindow window;
        const host::Graph graph(file, catalogue, window, mistakes);
        std::string text;
        for (const host::Mistake& mistake : mistakes.InOrder())
            text += std::to_string(mistake.place.line) + ": " + mistake.text + "\n";
        if (!text.empty()) return text;
        for (const host::LineEntry& line : graph.WrittenLines())
            text += host::PortText(line.from) + "=" + host::PortText(line.to) + "\n";
        EXPECT_EQ(graph.Lines().size(), graph.WrittenLines().size());
        return text;
    }
    const host::ModuleCatalogue catalogue;
    std::unique_ptr<tc::OwnedFolder> own;
};

TEST_F(Wildcards, StandForALineToAnInputEach) {
    const struct {
        const char *lines, *meaning;
    } rows[] = {
        {"low.*=levels\ntable.Channel [1-9]=low\n",
         "low.Signal 1=levels.Signal 1\nlow.Signal 2=levels.Signal 2\n"
         "table.Channel 1=low.Signal 1\ntable.Channel 2=low.Signal 2\n"},
        {"table.*0=low\nlow.*=levels.Signal\n", "table.Channel 10=low.Signal\nlow.Signal=levels.Signal\n"},
        {"table.*=levels\ntable.Channel 2=levels.Signal 2\ntable.Channel 1=low.Signal\n",
         "table.Channel 1=levels.Signal 1\ntable.Channel 2=levels.Signal 3\ntable.Channel 10=levels.Signal "
         "4\n"
         "table.x*=levels.Signal 5\ntable.Channel 2=levels.Signal 2\ntable.Channel 1=low.Signal\n"},
        {"table.x*=levels\ntable.Channel 1=low.Signal 1\n",
         "table.x*=levels.Signal\ntable.Channel 1=low.Signal 1\n"},
    };
    for (const auto& row : rows) EXPECT_EQ(Check(row.lines), row.meaning);
}

TEST_F(Wildcards, ThatFitNothingAreMistakes) {
    const std::string low = "table.Channel 1=low.Signal\n";
    const struct {
        std::string lines;
        const char* mistake;
    } rows[] = {
        {low + "table.Chanel *=levels\n",
         "11: no output of 'table' matches 'Chanel *'; did you mean 'Channel 1', 'Channel 2' or 'Channel "
         "10'?\n"},
        {low + "tabel.*=levels\n", "11: there is no instance 'tabel'; did you mean 'table'?\n"},
        {low + "table.*=level\n", "11: there is no instance 'level'; did you mean 'levels'?\n"},
        {low + "table.*=levels.Signal\n",
         "11: 'table.*' matches 4 outputs, and an input takes one line; write table.*=levels to wire each to "
         "an "
         "input of its own\n"},
        {low + "table.*=levels\ntable.*=table\n",
         "12: 'table.*' matches 4 outputs, and 'table' has 0 free inputs for "
         "them; wire each by its name\n"},
    };
    for (const auto& row : rows) EXPECT_THAT(Check(row.lines), HasSubstr(row.mistake)) << row.lines;
    EXPECT_THAT(Check("low.*=low\ntable.*=levels\n"), testing::Not(testing::IsEmpty()));
    EXPECT_THAT(Check(low + "table.Channel 1=levels\n"),
                HasSubstr("11: 'table.Channel 1=levels' is not a line"));
}

TEST_F(Wildcards, StayAsTheyAreWritten) {
    host::Mistakes mistakes;
    const std::string text = Text("table.Channel [1-9]=low\nlow.*=levels\n");
    const host::GraphFile file = host::GraphFile::Parse("g", text, mistakes);
    const std::string xml = (own->Path() / "g.xml").string();
    std::string error;
    ASSERT_TRUE(host::ConvertTo(file, xml, error)) << error;
    EXPECT_THAT(ReadAll(xml), HasSubstr("<Line from=\"table.Channel [1-9]\" to=\"low\"/>"));
    const host::GraphFile back = host::GraphFile::Read(xml, mistakes);
    EXPECT_TRUE(mistakes.IsEmpty());
    EXPECT_EQ(host::FindDifference(file, back), "");
    const std::string again = (own->Path() / "g.graph").string();
    ASSERT_TRUE(host::ConvertTo(back, again, error)) << error;
    EXPECT_THAT(ReadAll(again), HasSubstr("\ntable.Channel [1-9]=low\nlow.*=levels\n"));
}

}  // namespace
