#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "host/FormSession.h"
#include "host/SettingEdit.h"
#include "sigweave/ui/PropertyItems.h"
#include "sigweave/ui/TCDialog.h"
#include "tests/host/ProgramBench.h"
#include "tests/host/TestDialog.h"

// A graph file is changed by `set` and by `form`, and a dialog says the same through both as in the library.
namespace {

using Json = nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

TEST(Form, AnswersWithWhatChanged) {
    int count = 2;
    bool on = false;
    CArray<CStringArray> rows = {{"low", "1"}};
    TCPropertyDialog items;
    TCPropertyInt(items, "count", "Count", count).EnabledWhen("on", {"yes"});
    TCPropertyBool(items, "on", "On", on);
    TCPropertyList(items, "rows", "Rows", {{.key = "a", .label = ""}, {.key = "b", .label = ""}}, rows);
    TCPropertyButton(items, "add", "Add", [&] { rows.push_back({"", ""}); });
    TCDialog shown(items);
    host::FormSession session(shown);
    std::istringstream in(
        "{\"set\": {\"on\": true}}\n"
        "{\"set\": {\"count\": 7, \"rows\": [[\"x\"]]}}\n"  // the second is refused, so the first is not set
        "{\"set\": {\"rows\": [[\"x\", 1], [\"\\u00e4\", \"\\t\"]]}}\n"
        "{\"press\": \"add\"}\n"
        "{\"undo\": true}\n"
        "no JSON\n[]\n{\"set\": 1}\n{\"set\": {\"on\": null}}\n{\"end\": 1}\n{\"press\": \"on\"}\n"
        "{\"set\": {\"count\": 8}}\n"
        "{\"end\": \"ok\"}\n"
        "{\"set\": {\"count\": 9}}\n");
    std::ostringstream out;
    session.Run(in, out);
    std::vector<Json> answers;
    std::istringstream lines(out.str());
    for (std::string line; std::getline(lines, line);) answers.push_back(Json::parse(line));
    ASSERT_EQ(answers.size(), 14U);
    EXPECT_EQ(
        answers[0]["form"]["items"][0],
        (Json{{"key", "count"}, {"kind", "int"}, {"label", "Count"}, {"value", "2"}, {"enabled", false}}));
    EXPECT_EQ(answers[1]["items"],
              (Json{{{"key", "count"}, {"value", "2"}}, {{"key", "on"}, {"value", "yes"}}}));
    EXPECT_EQ(answers[2]["key"], "rows");
    EXPECT_EQ(answers[3]["items"], Json::parse(R"([{"key": "rows", "value": [["x", "1"], ["ä", "\t"]]}])"));
    EXPECT_EQ(answers[4]["items"], Json::parse(R"([{"key": "rows", "value": [["low", "1"], ["", ""]]}])"));
    for (int i = 6; i <= 11; ++i) EXPECT_EQ(answers[static_cast<std::size_t>(i)]["ok"], false) << i;
    EXPECT_EQ(answers[13]["result"], 1);
    EXPECT_EQ(session.GetResult(), 1);
    EXPECT_EQ(count, 8);
    EXPECT_TRUE(on);
}

// What is declared of a parameter is in the form, and nothing of a secret value.
TEST(Form, DescribesDeclaredParameters) {
    TestDialog module(0);
    TCString error;
    ASSERT_TRUE(module.SetParameter("pin", "2.5", error));
    TCPropertyDialog description;
    module.BuildPropertyDialog(description);
    TCDialog shown(description);
    host::FormSession session(shown);
    Json items;
    const Json described = Json::parse(session.Describe());
    for (const Json& item : described["form"]["items"]) items[item["key"].get<std::string>()] = item;
    EXPECT_EQ(items["later"], Json::parse(R"({"key": "later", "value": "1", "enabled": false, "kind":
        "edit-combo", "label": "Later", "step": 1.0, "scale": "logarithmic", "live": true, "suggestions":
        ["1", "2"], "parent": "group:1"})"));
    EXPECT_EQ(items["group:1"]["label"], "Times");
    EXPECT_EQ(items["input"]["filter"], "*.wav");
    EXPECT_EQ(items["pin"], Json::parse(R"({"key": "pin", "given": true, "kind": "double", "label": "pin",
        "unit": "V", "minimum": 0.0, "maximum": 5.0, "secret": true})"));
    EXPECT_EQ(session.Answer(R"({"set": {"pin": 3.5}})"), R"({"ok":true})");
    EXPECT_EQ(shown.GetText("pin"), "3.5");
}

TEST(Form, ShowsAChooserOfItsOwn) {
    unsigned long colour = 0x0080FF;
    int count = 1;
    TCPropertyDialog items;
    TCPropertyColour(items, "colour", "Colour", colour);
    TCPropertyInt(items, "count", "Count", count);
    TCDialog shown(items);
    host::FormSession session(shown);
    EXPECT_EQ(Json::parse(session.Answer(R"({"choose": "count"})"))["ok"], false);
    const Json chooser = Json::parse(session.Answer(R"({"choose": "colour"})"))["chooser"];
    EXPECT_EQ(chooser["items"][1]["value"], "128");
    EXPECT_EQ(Json::parse(session.Answer(R"({"set": {"green": 256}})"))["ok"], false);
    session.Answer(R"({"set": {"green": 1}})");
    EXPECT_EQ(Json::parse(session.Answer(R"({"end": "ok"})"))["items"][0]["value"], "#ff0100");
    session.Answer(R"({"choose": "colour"})");
    session.Answer(R"({"set": {"red": 0}})");
    EXPECT_EQ(session.Answer(R"({"end": "cancel"})"), R"({"ok":true})");
    EXPECT_EQ(shown.GetText("colour"), "#ff0100");
    EXPECT_FALSE(session.IsOver());
}

constexpr const char* GRAPH =
    "# The source\r\n"
    "[source]\r\n"
    "module=TestSource\r\n"
    "  size =  8  \r\n"
    "# how fast\r\n"
    "rate=2\r\n"
    "\r\n"
    "[reader]\r\n"
    "module=TestJoin\r\n"
    "[lines]\r\n"
    "source.Signal=reader.Signal";

std::string Replaced(std::string text, const std::string& old, const std::string& now) {
    return text.replace(text.find(old), old.size(), now);
}

class SetCommand : public Program {
 protected:
    void SetUp() override {
        Program::SetUp();
        Write("a.graph", GRAPH);
    }
    std::string Graph() const { return ReadAll(folder / "a.graph"); }
};

TEST_F(SetCommand, RewritesExactlyThoseLines) {
    EXPECT_EQ(Run("check a.graph").code, 0);
    ASSERT_EQ(Run("set a.graph source size=16 interrupts=2 blocks=3").code, 0);
    const std::string wanted = Replaced(Replaced(GRAPH, "=  8  ", "=  16  "), "rate=2\r\n",
                                        "rate=2\r\ninterrupts=2\r\nblocks=3\r\n");
    EXPECT_EQ(Graph(), wanted);
    ASSERT_EQ(Run("set a.graph reader hold=yes size=1").code, 2);
    EXPECT_EQ(Graph(), wanted);
}

TEST(EditSettings, QuotesWhatHasToBe) {
    host::Mistakes mistakes;
    std::string text = "[a]\nmodule=M\nx = \"old\"\n[b]";
    const host::GraphFile file = host::GraphFile::Parse("", text, mistakes);
    std::string error;
    EXPECT_TRUE(host::EditSettings(file, "a", {{"x", " # \t"}, {"y", ""}}, text, error)) << error;
    EXPECT_TRUE(host::EditSettings(file, "b", {}, text, error));
    EXPECT_EQ(text, "[a]\nmodule=M\nx = \" # \\t\"\ny=\n[b]");
    for (const char* name : {"a=b", "[a", "# a", ""})
        EXPECT_FALSE(host::EditSettings(file, "a", {{name, "1"}}, text, error)) << name;
    const host::GraphFile last = host::GraphFile::Parse("", text, mistakes);
    EXPECT_FALSE(host::EditSettings(last, "b", {{"module", "M"}}, text, error));
    EXPECT_TRUE(host::EditSettings(last, "b", {{"x", "1"}}, text, error)) << error;
    EXPECT_TRUE(text.ends_with("[b]\nx=1"));
}

TEST_F(SetCommand, RefusesWhatIsNoChange) {
    // Through the settings together, in what is no setting, and where a line would lose its port's type.
    EXPECT_THAT(Run("set a.graph source size=999").err, HasSubstr("source.size: 999 is odd"));
    EXPECT_THAT(Run("set a.graph sorce size=3").err, HasSubstr("did you mean 'source'?"));
    EXPECT_THAT(Run("set a.graph source module=X").err, HasSubstr("can only be chosen in the graph file"));
    EXPECT_THAT(Run("set a.graph source size=3 size=4").err, HasSubstr("size: is given twice"));
    EXPECT_THAT(Run("set a.graph source size").err, HasSubstr("must be NAME=VALUE"));
    EXPECT_THAT(Run("set none.graph source size=3").err, HasSubstr("there is no such file"));
    EXPECT_EQ(Graph(), GRAPH);
}

// One mistake after the other can be mended, and the other one does not stop it.
TEST_F(SetCommand, MendsAGraphStepByStep) {
    Write("a.graph", Replaced(Replaced(GRAPH, "  8  ", "0"), "rate=2", "rate=x"));
    EXPECT_EQ(Run("set a.graph source size=0").code, 2);
    EXPECT_EQ(Run("set a.graph source size=8").code, 0);
    EXPECT_EQ(Run("check a.graph").code, 2);
    EXPECT_EQ(Run("set a.graph source rate=2").code, 0);
    EXPECT_EQ(Run("check a.graph").code, 0);
    ASSERT_EQ(Run("convert a.graph a.xml").code, 0);
    EXPECT_THAT(Run("set a.xml source size=3").err, HasSubstr("'sigweave convert'"));
}

// A form begins with what the file says, also where that is wrong; the default then is a change like others.
TEST_F(SetCommand, ShowsAWrongValueAsItIs) {
    Write("a.graph", Replaced(GRAPH, "  8  ", "0"));
    Write("in", "{\"end\": \"ok\"}\n{\"set\": {\"size\": 4}}\n{\"end\": \"ok\"}\n");
    input = "in";
    const Answer answer = Run("form a.graph source");
    EXPECT_THAT(answer.out, AllOf(HasSubstr(R"("key":"size","value":"0")"),
                                  HasSubstr(R"({"ok":false,"key":"size","text":"size: '0' is not valid)"),
                                  HasSubstr(R"("result":1)")));
    EXPECT_EQ(Graph(), Replaced(GRAPH, "  8  ", "4"));
}

TEST_F(SetCommand, IsTheSameInAForm) {
    const auto speak = [&](const std::string& commands) {
        Write("in", commands);
        input = "in";
        const Answer answer = Run("form a.graph source");
        input = "/dev/null";
        EXPECT_EQ(answer.code, 0) << answer.err;
        return answer.out;
    };
    EXPECT_THAT(speak("{\"set\": {\"size\": 999}}\n{\"end\": \"ok\"}\n"),
                AllOf(HasSubstr(R"({"ok":false)"), HasSubstr("size: 999 is odd")));
    speak("{\"set\": {\"size\": 16}}\n");
    EXPECT_EQ(Graph(), GRAPH) << "not ended with ok";
    EXPECT_THAT(speak("{\"set\": {\"size\": 16}}\n{\"end\": \"ok\"}\n"),
                HasSubstr(R"({"ok":true,"result":1)"));
    EXPECT_EQ(Graph(), Replaced(GRAPH, "=  8  ", "=  16  "));
    EXPECT_EQ(Run("form a.graph none").code, 2);
    EXPECT_THAT(Run("set a.graph source").err, HasSubstr("there is no terminal to ask in"));
}

}  // namespace
