#include <gmock/gmock.h>

#include "host/GraphFile.h"

namespace {

using host::GraphFile;
using host::Mistakes;
using testing::HasSubstr;

std::vector<std::string> MistakesOf(const std::string& text) {
    Mistakes mistakes;
    GraphFile::Parse("g", text, mistakes);
    std::vector<std::string> told;
    for (const host::Mistake& mistake : mistakes.InOrder())
        told.push_back(host::ToText(mistake.place) + ": " + mistake.text);
    return told;
}

TEST(GraphFile, ReadsInstancesSettingsAndLinesWithTheirPlaces) {
    Mistakes mistakes;
    const GraphFile graph = GraphFile::Parse("g",
                                             "\xEF\xBB\xBF# a comment\r\n"
                                             "  [ voice ] ; indented\r\n"
                                             "module = SoundFile\r"
                                             "  file = \"a # \\\"b\\\".wav\"  \n"
                                             "empty=\n"
                                             "[lines]\n"
                                             "accept = yes\n"
                                             "voice.Channel 1 = levels . Signal",
                                             mistakes);
    ASSERT_TRUE(mistakes.IsEmpty());
    ASSERT_EQ(graph.GetInstances().size(), 1u);
    const host::InstanceEntry& voice = graph.GetInstances()[0];
    EXPECT_EQ(voice.name, "voice");
    EXPECT_EQ(voice.module, "SoundFile");
    EXPECT_EQ(voice.modulePlace.line, 3);
    ASSERT_EQ(voice.settings.size(), 2u);
    EXPECT_EQ(voice.settings[0].value, "a # \"b\".wav");
    EXPECT_EQ(voice.settings[1].value, "");
    EXPECT_EQ(voice.settings[1].place.line, 5);
    ASSERT_EQ(graph.GetLines().size(), 1u);
    EXPECT_EQ(graph.GetLines()[0].from.port, "Channel 1");
    EXPECT_EQ(graph.GetLines()[0].to.instance, "levels");
    EXPECT_EQ(graph.GetLines()[0].to.port, "Signal");
    EXPECT_EQ(graph.GetLines()[0].place.line, 8);
    EXPECT_TRUE(graph.AcceptsDifferences());
}

TEST(GraphFile, TellsEveryMistakeAtItsLine) {
    const auto told = MistakesOf(
        "before=1\n"
        "[a\n"
        "[b.c]\n"
        "[]\n"
        "[d] x=1\n"
        "[d]\n"
        "[e]\n"
        "block=\"1\n"
        "file=\"x\" y\n"
        "path=\"\\q\"\n"
        "=1\n"
        "alone\n"
        "size=1\n"
        "size=2\n"
        "[lines]\n"
        "accept=maybe\n"
        "a.b=c\n");
    const std::vector<std::string> expected{"g:1: 'before' stands before the first section",
                                            "g:2: the section name is not closed",
                                            "g:3: the instance name 'b.c' holds a point",
                                            "g:4: the section has no name",
                                            "g:5: there is text behind the section name",
                                            "g:6: the instance 'd' is there already, in line 5",
                                            "g:8: the quotation mark is not closed",
                                            "g:9: there is text behind the closing quotation mark",
                                            "g:10: Error at unquoting value of parameter path",
                                            "g:11: there is no name before the '='",
                                            "g:12: 'alone' is neither name=value",
                                            "g:14: 'size' of e is set already, in line 13",
                                            "g:16: accept is 'maybe'; it must be yes or no",
                                            "g:17: 'a.b=c' is no line"};
    ASSERT_EQ(told.size(), expected.size()) << testing::PrintToString(told);
    for (std::size_t index = 0; index < told.size(); ++index)
        EXPECT_THAT(told[index], HasSubstr(expected[index]));
}

TEST(GraphFile, RefusesWhatIsNoGraphAtAll) {
    EXPECT_THAT(MistakesOf(""), testing::ElementsAre(HasSubstr("is empty")));
    EXPECT_THAT(MistakesOf(" \n# only this\n"), testing::ElementsAre(HasSubstr("nothing in it")));
    EXPECT_THAT(MistakesOf(std::string("\x7F"
                                       "ELF\0\1\2",
                                       7)),
                testing::ElementsAre(HasSubstr("binary")));
    EXPECT_THAT(MistakesOf(std::string((16 << 20) + 1, 'x')),
                testing::ElementsAre(HasSubstr("larger than 16 MB")));
}

TEST(GraphFile, ArgumentsReplaceSettingsOrAreRefused) {
    Mistakes mistakes;
    GraphFile graph = GraphFile::Parse("g", "[a]\nmodule=M\nsize=1\n", mistakes);
    graph.Set("a.size=x=y", mistakes);
    ASSERT_TRUE(mistakes.IsEmpty());
    ASSERT_EQ(graph.GetInstances()[0].settings.size(), 1u);
    EXPECT_EQ(graph.GetInstances()[0].settings[0].value, "x=y");
    for (const char* wrong : {"a", "a.size", "a.=1", ".size=1", "b.size=1", "a.module=N"})
        graph.Set(wrong, mistakes);
    EXPECT_EQ(mistakes.InOrder().size(), 6u);
}

}  // namespace
