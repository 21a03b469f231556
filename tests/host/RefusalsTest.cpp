#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "sigweave/services/StringResources.h"
#include "sigweave/ui/PropertyText.h"
#include "sigweave/ui/TCDialog.h"
#include "tests/host/ProgramBench.h"
#include "tests/host/TestDialog.h"

// refusals.jsonl holds what a dialog refuses, in both languages: action, item, value, English, German. The
// library, the JSON front end and the terminal are driven through it and must say the same.
namespace {

using Json = nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

struct Refused {
    std::string action;  // "parameter": also by the module itself, `set` and `check`
    std::string key;
    std::string value;
    std::string texts[2];

    const std::string& Text(int language) const { return texts[language]; }
    // Of "end": what is set before.
    std::vector<std::pair<std::string, std::string>> Assignments() const {
        std::vector<std::pair<std::string, std::string>> all;
        std::istringstream parts(value);
        for (std::string part; std::getline(parts, part, ';');)
            all.emplace_back(part.substr(0, part.find('=')), part.substr(part.find('=') + 1));
        return all;
    }
};

std::vector<Refused> ReadTable() {
    std::vector<Refused> table;
    std::ifstream file(SIGWEAVE_REFUSALS);
    for (std::string line; std::getline(file, line);) {
        const Json row = Json::parse(line);
        table.push_back({row[0], row[1], row[2], {row[3], row[4]}});
    }
    return table;
}

constexpr const char* LANGUAGES[] = {"en", "de"};
constexpr const char* GRAPH = "[d]\nmodule=TestDialog\n# kept\ninput=a.wav\n";

class Refusals : public Program {
 protected:
    void SetUp() override {
        Program::SetUp();
        Write("a.graph", GRAPH);
        ASSERT_GT(table.size(), 30U);
    }
    void TearDown() override { EXPECT_EQ(ReadAll(folder / "a.graph"), GRAPH); }

    Answer RunIn(int language, const std::string& arguments) {
        return Run(std::string("--language ") + LANGUAGES[language] + " " + arguments,
                   TEST_LIBRARIES "/dialog");
    }

    const std::vector<Refused> table = ReadTable();
};

TEST_F(Refusals, OfTheLibrary) {
    TestDialog module(0);
    TCString error;
    ASSERT_TRUE(module.SetParameter("input", "a.wav", error));
    TCPropertyDialog description;
    module.BuildPropertyDialog(description);
    TCDialog shown(description);
    for (const Refused& row : table)
        for (const int language : {0, 1}) {
            TCSetLoadStrResLanguage(language);
            TCDialog::Refusal refusal;
            if (row.action == "end") {
                for (const auto& [key, value] : row.Assignments())
                    ASSERT_TRUE(shown.SetText(key, value, refusal)) << refusal.text;
                EXPECT_FALSE(shown.Store(refusal));
                while (shown.Undo()) continue;
            } else if (row.action == "press") {
                EXPECT_FALSE(shown.Press(row.key, refusal));
            } else {
                EXPECT_FALSE(shown.SetText(row.key, row.value, refusal));
            }
            EXPECT_EQ(refusal.text, row.Text(language));
            EXPECT_EQ(refusal.key, row.key);
            if (row.action != "parameter") continue;
            EXPECT_FALSE(module.SetParameter(row.key.c_str(), row.value.c_str(), error));
            EXPECT_EQ(std::string(error), row.Text(language));
        }
    TCSetLoadStrResLanguage(0);
}

// Commands of one row, and how many answers there are before and behind the refusal.
struct Commands {
    std::vector<Json> before;
    Json refused;
    std::vector<Json> behind;
};

Commands CommandsOf(const Refused& row) {
    if (row.action == "press") return {{}, {{"press", row.key}}, {}};
    if (row.action != "end") return {{}, {{"set", {{row.key, row.value}}}}, {}};
    Commands commands{{}, {{"end", "ok"}}, {}};
    for (const auto& [key, value] : row.Assignments()) {
        commands.before.push_back({{"set", {{key, value}}}});
        commands.behind.push_back({{"undo", true}});
    }
    return commands;
}

TEST_F(Refusals, OfTheJsonFrontEnd) {
    std::string lines;
    std::vector<const Refused*> expected = {nullptr};  // of the description, of commands that are done
    for (const Refused& row : table) {
        const Commands commands = CommandsOf(row);
        for (const Json& command : commands.before) lines += command.dump() + "\n";
        lines += commands.refused.dump() + "\n";
        for (const Json& command : commands.behind) lines += command.dump() + "\n";
        expected.insert(expected.end(), commands.before.size(), nullptr);
        expected.push_back(&row);
        expected.insert(expected.end(), commands.behind.size(), nullptr);
    }
    Write("in", lines);
    input = "in";
    for (const int language : {0, 1}) {
        const Answer answer = RunIn(language, "form a.graph d");
        EXPECT_EQ(answer.code, 0) << answer.err;
        EXPECT_THAT(answer.out, Not(HasSubstr("7.7125")));
        std::istringstream answers(answer.out);
        std::string line;
        for (const Refused* const row : expected) {
            ASSERT_TRUE(std::getline(answers, line));
            if (row != nullptr)
                EXPECT_EQ(Json::parse(line),
                          (Json{{"ok", false}, {"key", row->key}, {"text", row->Text(language)}}));
            else
                EXPECT_FALSE(Json::parse(line).contains("text")) << line;
        }
    }
}

// What cannot be typed on one line is left out.
bool CanBeTyped(const Refused& row) {
    return row.action == "rows" || row.action == "end" ||
           (row.action != "press" && row.value.find_first_of(std::string("\0\n", 2)) == std::string::npos);
}

std::string TypedFor(const Refused& row, int rowsField) {
    std::string typed;
    if (row.action == "end") {
        for (const auto& [key, value] : row.Assignments()) typed += key + "=" + value + "\n";
        return typed + "ok\nundo\nundo\n";
    }
    if (row.action != "rows") return row.key + "=" + row.value + "\n";
    CArray<CStringArray> rows;
    EXPECT_TRUE(tc::ReadPropertyRows(row.value, rows));
    for (const CStringArray& cells : rows) {
        typed += "add\n";
        for (const CString& cell : cells) typed += cell + "\n";
    }
    return std::to_string(rowsField) + "\n" + typed + "\nundo\n";
}

TEST_F(Refusals, OfTheTerminal) {
    TestDialog module(0);
    TCPropertyDialog description;
    module.BuildPropertyDialog(description);
    int rowsField = 0;
    for (int i = 0; i < description.GetCount(); ++i) {
        rowsField += description.Get(i)->HasValue() ? 1 : 0;
        if (description.Get(i)->key == "rows") break;
    }
    std::string typed;
    for (const Refused& row : table)
        if (CanBeTyped(row)) typed += TypedFor(row, rowsField);
    Write("typed", typed + "cancel\n");
    for (const int language : {0, 1}) {
        const std::string command = "cd '" + folder.string() +
                                    "' && LC_ALL=C SIGWEAVE_MODULE_PATH='" TEST_LIBRARIES
                                    "/dialog' script -qec '\"" SIGWEAVE_PROGRAM "\" --language " +
                                    LANGUAGES[language] + " set a.graph d' /dev/null <typed >terminal";
        ASSERT_EQ(std::system(command.c_str()), 0);
        const std::string seen = ReadAll(folder / "terminal");
        std::size_t at = 0;
        for (const Refused& row : table) {
            if (!CanBeTyped(row)) continue;
            const std::size_t found = seen.find(row.Text(language) + "\r\n", at);
            EXPECT_NE(found, seen.npos) << row.Text(language) << "\n" << seen.substr(at);
            at = found != seen.npos ? found : at;
        }
        EXPECT_THAT(seen,
                    HasSubstr(language == 0 ? "a.graph was not changed" : "a.graph wurde nicht geändert"));
        EXPECT_THAT(seen, Not(HasSubstr("\033"))) << "nothing moves the cursor";
    }
}

TEST_F(Refusals, OfSetAndCheck) {
    for (const Refused& row : table) {
        if (row.action != "parameter") continue;
        for (const int language : {0, 1}) {
            const std::string setting = "'" + row.key + "=" + row.value + "'";
            for (const std::string& command :
                 {"set a.graph d " + setting, "check a.graph --set d." + setting}) {
                const Answer answer = RunIn(language, command);
                EXPECT_EQ(answer.code, 2) << command;
                EXPECT_THAT(answer.err,
                            AllOf(HasSubstr("d." + row.Text(language)), Not(HasSubstr("7.7125"))));
            }
        }
    }
}

}  // namespace
