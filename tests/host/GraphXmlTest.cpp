#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "host/Conversion.h"

namespace {

using host::GraphFile;
using host::GraphForm;
using host::Mistakes;
using testing::HasSubstr;

GraphFile Read(const std::string& text) {
    Mistakes mistakes;
    GraphFile graph = GraphFile::Parse("g", text, mistakes);
    for (const host::Mistake& mistake : mistakes.InOrder()) ADD_FAILURE() << mistake.text;
    return graph;
}

TEST(GraphXml, MeansTheSameAsTheTextForm) {
    const GraphFile text = Read(
        "[voice]\nmodule=SoundFile\nfile=\" a\\n<b>.wav\"\nempty=\n"
        "[lines]\naccept=yes\nvoice.Channel 1=levels.Signal\n");
    const GraphFile xml = Read(
        "\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?>\n<Graph accept='yes'><!-- a --><Module\n"
        " name=' voice ' kind='SoundFile'>\n<Setting name='file'>\n  \\x20a\\n&lt;b><![CDATA[.wav]]>\n"
        "</Setting><Setting name='empty'/></Module>\n<Line from='voice . Channel 1' to='levels.Signal'/>"
        "</Graph>");
    EXPECT_EQ(xml.GetForm(), GraphForm::Xml);
    EXPECT_EQ(FindDifference(text, xml), "");
    EXPECT_EQ(xml.GetInstances()[0].place.line, 3);
    EXPECT_EQ(xml.GetInstances()[0].settings[1].place.line, 6);
    EXPECT_EQ(xml.GetLines()[0].place.line, 7);
    EXPECT_EQ(xml.GetComments()[0].text, "a");
}

TEST(GraphXml, TellsEveryMistakeAtItsLine) {
    const std::string document =
        "<Graph acept='yes'>\n<Modul/>\n<Module kind='A'/>\n<Module name='b.c'/>\n"
        "<Module name='lines'/>\n<Module name='g'>stray\n<Setting name='x'>\\q</Setting>\n"
        "<Setting name='x'/>\n<Setting name='y'><b/></Setting></Module>\n<Module name='g'/>\n"
        "<Line from='g' to='g.a'/>\n<Line from='g.a'/></Graph>";
    const std::pair<int, const char*> expected[] = {
        {1, "no attribute 'acept'; did you mean 'accept'?"},
        {2, "<Modul> is not known here; did you mean 'Module'?"},
        {3, "<Module> needs the attribute name"},
        {4, "'b.c' holds a point"},
        {5, "no instance can be called 'lines'"},
        {6, "there is 'stray' between the elements"},
        {7, "a backslash in the setting x does not begin an escape"},
        {8, "'x' of g is set already, in line 7"},
        {9, "a setting is text"},
        {10, "'g' is there already, in line 6"},
        {11, "write from=\"instance.Output\""},
        {12, "<Line> needs the attribute to"}};
    Mistakes mistakes;
    GraphFile::Parse("g", document, mistakes);
    const auto told = mistakes.InOrder();
    ASSERT_EQ(told.size(), std::size(expected));
    for (std::size_t i = 0; i < told.size(); ++i) {
        EXPECT_EQ(told[i].place.line, expected[i].first) << told[i].text;
        EXPECT_THAT(told[i].text, HasSubstr(expected[i].second));
    }
}

// Any bytes in the values, half of them out of what the two forms treat in a special way.
std::string RandomValue(std::mt19937& random) {
    constexpr std::string_view SPECIAL = " \t\r\n\"'\\<>&#;=[]\0\x7F";
    std::string value;
    for (std::size_t length = random() % 12; length > 0; --length)
        value += random() % 2 == 0 ? static_cast<char>(random()) : SPECIAL[random() % SPECIAL.size()];
    return value;
}

TEST(GraphXml, ConversionThereAndBackLosesNoValue) {
    std::mt19937 random(3);
    std::vector<std::string> values(300);
    std::string document = "<Graph><Module name='a' kind='M'>";
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = RandomValue(random);
        document += "<Setting name='s" + std::to_string(i) + "'>";
        for (const char byte : values[i]) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(byte));
            document += escape;
        }
        document += "</Setting>";
    }
    GraphFile graph = Read(document + "</Module></Graph>");
    for (const char* name : {"there.graph", "back.xml", "again.graph"}) {
        std::string error;
        ASSERT_TRUE(ConvertTo(graph, name, error)) << error;
        Mistakes mistakes;
        graph = GraphFile::Read(name, mistakes);
        EXPECT_TRUE(mistakes.IsEmpty());
        for (std::size_t i = 0; i < values.size(); ++i)
            EXPECT_EQ(graph.GetInstances()[0].settings[i].value, values[i]) << name;
    }
}

}  // namespace
