#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "host/FormSession.h"
#include "host/SettingEdit.h"
#include "sigweave/services/StringResources.h"
#include "sigweave/ui/PropertyItems.h"
#include "sigweave/ui/TCDialog.h"
#include "tests/host/ProgramBench.h"
#include "tests/host/TestModules.h"

// A graph file is changed by `set` and by `form`, and a dialog says the same through both as in the library.
namespace {

using Json = nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

struct Refused {
    const char* key;
    const char* value;
    const char* english;
    const char* german;
};

// Of the parameters of TestSource, through a module.
constexpr Refused OF_PARAMETERS[] = {
    {"size", "0", "size: '0' is not valid; expected an integer from 1 to 1000000",
     "size: '0' ist nicht gültig; erwartet wird eine ganze Zahl von 1 bis 1000000"},
    {"size", "2.5", "size: '2.5' is not valid; expected an integer from 1 to 1000000",
     "size: '2.5' ist nicht gültig; erwartet wird eine ganze Zahl von 1 bis 1000000"},
    {"kind", "BYTE[]", "kind: 'BYTE[]' is not valid; expected one of DOUBLE[], SWORD[]",
     "kind: 'BYTE[]' ist nicht gültig; erwartet wird eins von DOUBLE[], SWORD[]"},
    {"rate", "1,5", "rate: '1,5' is not valid; expected a number (in Hz); write a point: 1.5",
     "rate: '1,5' ist nicht gültig; erwartet wird eine Zahl (in Hz); schreiben Sie einen Punkt: 1.5"},
    {"sise", "3", "sise: there is no such parameter; did you mean 'size'?",
     "sise: diesen Parameter gibt es nicht; meinten Sie 'size'?"},
};

// Of a dialog of its own.
constexpr Refused OF_ITEMS[] = {
    {"count", "9", "count: '9' is not valid; expected an integer from 1 to 8 (in Hz)",
     "count: '9' ist nicht gültig; erwartet wird eine ganze Zahl von 1 bis 8 (in Hz)"},
    {"gain", "0,5", "gain: '0,5' is not valid; expected a number of at least 0; write a point: 0.5",
     "gain: '0,5' ist nicht gültig; erwartet wird eine Zahl ab 0; schreiben Sie einen Punkt: 0.5"},
    {"on", "maybe", "on: 'maybe' is not valid; expected yes or no",
     "on: 'maybe' ist nicht gültig; erwartet wird yes oder no"},
    {"mode", "trim", "mode: 'trim' is not valid; expected one of cut, pad",
     "mode: 'trim' ist nicht gültig; erwartet wird eins von cut, pad"},
    {"file", "", "file: '' is not valid; expected a file name",
     "file: '' ist nicht gültig; erwartet wird ein Dateiname"},
    {"colour", "red", "colour: 'red' is not valid; expected a colour as #ff8000",
     "colour: 'red' ist nicht gültig; erwartet wird eine Farbe wie #ff8000"},
    {"rows", "a\na\n", "rows: row 2, band: 'a' is in an earlier row already; every row needs its own",
     "rows: Zeile 2, band: 'a' steht schon in einer früheren Zeile; jede Zeile braucht etwas Eigenes"},
    {"later", "1", "later: can be changed only while on is yes",
     "later: lässt sich nur ändern, solange on yes ist"},
    {"length", "1", "length: can only be read", "length: kann nur gelesen werden"},
    {"counts", "1", "counts: there is no such parameter; did you mean 'count'?",
     "counts: diesen Parameter gibt es nicht; meinten Sie 'count'?"},
};

void ExpectRefusals(TCPropertyDialog& description, std::span<const Refused> table) {
    TCDialog shown(description);
    host::FormSession session(shown);
    const std::string atFirst = session.Describe();
    for (const Refused& row : table)
        for (const bool german : {false, true}) {
            TCSetLoadStrResLanguage(german ? 1 : 0);
            const std::string wanted = german ? row.german : row.english;
            TCDialog::Refusal refusal;
            EXPECT_FALSE(shown.SetText(row.key, row.value, refusal));
            EXPECT_EQ(refusal.text, wanted);
            EXPECT_EQ(refusal.key, row.key);
            const Json answer = Json::parse(session.Answer(Json{{"set", {{row.key, row.value}}}}.dump()));
            EXPECT_EQ(answer, (Json{{"ok", false}, {"key", row.key}, {"text", wanted}}));
        }
    TCSetLoadStrResLanguage(0);
    EXPECT_EQ(session.Describe(), atFirst);
}

TEST(Form, RefusesAsTheLibraryDoes) {
    TestSource source(0);
    TCPropertyDialog ofModule;
    ASSERT_EQ(source.BuildPropertyDialog(ofModule), 1);
    ExpectRefusals(ofModule, OF_PARAMETERS);
    for (const Refused& row : OF_PARAMETERS) {
        TCString error;
        EXPECT_FALSE(source.SetParameter(row.key, row.value, error));
        EXPECT_STREQ(error, row.english);
    }

    int count = 2;
    double gain = 1;
    bool on = false;
    int mode = 0;
    TCString file = "a";
    unsigned long colour = 0;
    CArray<CStringArray> rows;
    TCPropertyDialog items;
    TCPropertyInt(items, "count", "Count", count).Limits(1, 8).Unit("Hz");
    TCPropertyDouble(items, "gain", "Gain", gain).minimum = 0;
    TCPropertyBool(items, "on", "On", on);
    TCPropertyCombo(items, "mode", "Mode", {"cut", "pad"}, mode);
    TCPropertyFile(items, "file", "File", "*.wav", file).Required();
    TCPropertyColour(items, "colour", "Colour", colour);
    TCPropertyList(items, "rows", "Rows", {{.key = "band", .label = "Band", .unique = true}}, rows);
    TCPropertyInt(items, "later", "Later", count).EnabledWhen("on", {"yes"});
    TCPropertyReadOnly(items, "length", "Length", [] { return CString("3"); });
    ExpectRefusals(items, OF_ITEMS);
}

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

TEST_F(SetCommand, RefusesInTheWordsOfCheck) {
    for (const Refused& row : OF_PARAMETERS) {
        const std::string setting = std::string("'") + row.key + "=" + row.value + "'";
        const Answer answer = Run("set a.graph source " + setting + " blocks=5");
        EXPECT_EQ(answer.code, 2);
        EXPECT_THAT(answer.err, AllOf(HasSubstr("a.graph:"), HasSubstr(std::string("source.") + row.english),
                                      HasSubstr("a.graph was not changed")));
        EXPECT_THAT(Run("check a.graph --set source." + setting.substr(1, setting.size() - 2)).err,
                    HasSubstr(std::string("source.") + row.english));
        EXPECT_EQ(Run("--language de set a.graph source " + setting).code, 2);
        EXPECT_THAT(ReadAll(folder / "err"), HasSubstr(std::string("source.") + row.german));
    }
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
}

}  // namespace
