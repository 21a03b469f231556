#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

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

TEST(GraphXml, EveryDifferenceIsFound) {
    const std::string instances = "[a]\nmodule=M\nx=1\ny=2\n[b]\nmodule=N\n";
    const std::string lines = "[lines]\na.o=b.i\n";
    const GraphFile graph = Read(instances + lines);
    const std::pair<std::string, const char*> rows[] = {
        {"[a]\nmodule=K\nx=1\ny=2\n[b]\nmodule=N\n" + lines, "the module 'M' of a"},
        {"[a]\nmodule=M\nx=3\ny=2\n[b]\nmodule=N\n" + lines, "the setting 'x' of a"},
        {"[a]\nmodule=M\nx=1\nz=2\n[b]\nmodule=N\n" + lines, "the setting 'y' of a"},
        {"[a]\nmodule=M\nx=1\n[b]\nmodule=N\n" + lines, "the setting 'y' of a"},
        {"[a]\nmodule=M\nx=1\ny=2\nz=3\n[b]\nmodule=N\n" + lines, "a setting of a"},
        {"[a]\nmodule=M\nx=1\ny=2\n" + lines, "the instance 'b'"},
        {"[a]\nmodule=M\nx=1\ny=2\n[c]\nmodule=N\n" + lines, "the instance 'b'"},
        {instances, "the line from 'a.o' to 'b.i'"},
        {instances + "[lines]\na.p=b.i\n", "the line from 'a.o' to 'b.i'"},
        {instances + "[lines]\na.o=b.j\n", "the line from 'a.o' to 'b.i'"},
        {instances + "[c]\nmodule=N\n" + lines, "a part of it"},
        {instances + lines + "b.o=a.i\n", "a part of it"},
        {instances + lines + "accept=yes\n", "a part of it"},
        {instances + lines + "[studio.positions]\na=1,2\n", "a part of it"},
        {instances + lines, ""}};
    for (const auto& [other, difference] : rows)
        EXPECT_EQ(FindDifference(graph, Read(other)), difference) << other;
}

// The lines come first in the text and last in the document.
TEST(GraphXml, CommentsStayWithWhatFollowsThem) {
    const GraphFile graph = Read(
        "# wire\n[lines]\na.o=b.i\n# of a\n[a]\n# of x\nx=1\n# its module\nmodule=M\n# of b\n[b]\n"
        "module=N\n# rest\n");
    std::string error;
    ASSERT_TRUE(ConvertTo(graph, "comments.xml", error)) << error;
    std::ostringstream document;
    document << std::ifstream("comments.xml").rdbuf();
    std::size_t at = 0;
    for (const char* part : {"of a", "<Module", "its module", "of x", "<Setting", "of b", "<Module", "wire",
                             "<Line", "rest", "</Graph>"}) {
        const std::size_t next = document.str().find(part, at);
        ASSERT_NE(next, std::string::npos) << part << " in\n" << document.str().substr(at);
        at = next + 1;
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
    GraphFile graph = Read(document + "</Module><View section='positions' name='a'>1,-2</View></Graph>");
    for (const char* name : {"there.graph", "back.xml", "again.graph"}) {
        std::string error;
        ASSERT_TRUE(ConvertTo(graph, name, error)) << error;
        Mistakes mistakes;
        graph = GraphFile::Read(name, mistakes);
        EXPECT_TRUE(mistakes.IsEmpty());
        for (std::size_t i = 0; i < values.size(); ++i)
            EXPECT_EQ(graph.GetInstances()[0].settings[i].value, values[i]) << name;
        ASSERT_EQ(graph.GetView().size(), 1u);
        EXPECT_EQ(graph.GetView()[0].section + graph.GetView()[0].name + graph.GetView()[0].value,
                  "positionsa1,-2");
    }
}

}  // namespace
