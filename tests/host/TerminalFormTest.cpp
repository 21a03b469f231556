#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "host/TerminalForm.h"
#include "sigweave/ui/PropertyItems.h"
#include "sigweave/ui/TCDialog.h"
#include "tests/host/ProgramBench.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// A person who types these lines, and what the form says to each; the first is what it begins with.
class TerminalForm : public testing::Test {
 protected:
    int Type(const std::vector<std::string>& lines) {
        said.assign(1, "");
        const auto read = [&](const std::string& prompt, bool hidden, std::string& line) {
            said.back() += prompt;
            wasHidden = wasHidden || hidden;
            if (said.size() > lines.size()) return false;
            line = lines[said.size() - 1];
            said.emplace_back();
            return true;
        };
        TCDialog shown(description);
        host::TerminalForm form(shown, {read, [&](const std::string& line) { said.back() += line + "\n"; }},
                                "");
        return form.Run();
    }

    TCPropertyDialog description;
    std::vector<std::string> said;
    bool wasHidden = false;
};

TEST_F(TerminalForm, ShowsPagesAndTakesChangesBack) {
    int count = 3;
    bool on = false;
    TCString key = "k";
    TCPropertyPage(description, "p1", "First");
    TCPropertyInt(description, "count", "Count", count).Limits(1, 9).Unit("V").Help("how many");
    TCPropertyGroup(description, "g", "Switches");
    TCPropertyBool(description, "on", "On", on);
    TCPropertyPage(description, "p2", "Second");
    TCPropertyString(description, "key", "Key", key).Secret().EnabledWhen("on", {"yes"});
    TCPropertyButton(description, "reset", "Reset", [&] { count = 1; });
    EXPECT_EQ(
        Type({"2 yes", "1", "0", "5", "undo", "next", "3", "s e", "list", "n", "back", "count = 7", "ok"}),
        TCDialog::OK);
    EXPECT_THAT(said[0], HasSubstr("First (page 1 of 2)\n1. Count: 3 V\nSwitches:\n2. On: no\n"));
    EXPECT_EQ(said[1], "On: yes\n> ");
    EXPECT_THAT(said[2],
                AllOf(HasSubstr("Count (count): how many\nexpected: an integer from 1 to 9 (in V)\n"),
                      HasSubstr("now: 3 V")));
    EXPECT_THAT(said[3], HasSubstr("count: '0' is not valid"));
    EXPECT_EQ(said[4], "Count: 5 V\n> ");
    EXPECT_EQ(said[5], "taken back: Count: 3 V\n> ");
    EXPECT_THAT(said[6], HasSubstr("Second (page 2 of 2)\n3. Key: (hidden)\n4. Reset: button\n"));
    EXPECT_EQ(said[8], "Key: (hidden)\n> ");
    EXPECT_TRUE(wasHidden);
    EXPECT_THAT(said[9], HasSubstr("3. Key: (hidden), changed\n"));
    EXPECT_THAT(said[10], HasSubstr("page 2 of 2"));
    EXPECT_EQ(count, 7);
    EXPECT_EQ(key, "s e");
    EXPECT_EQ(Type({"4", "5", "9999999999", "bogus", "? 1", "choose 2", "", "quit"}), TCDialog::CANCEL);
    EXPECT_THAT(said[1], HasSubstr("pressed"));
    EXPECT_THAT(said[2], HasSubstr("there is no field 5"));
    EXPECT_THAT(said[4], HasSubstr("'bogus' is no command"));
    EXPECT_THAT(said[5], HasSubstr("now: 1 V"));
    EXPECT_THAT(said[6], AllOf(HasSubstr("expected: yes or no"), HasSubstr("new value")));
}

TEST_F(TerminalForm, EditsListsTextsAndChoosers) {
    CArray<CStringArray> rows = {{"a", "1"}};
    TCString text = "x";
    unsigned long colour = 0;
    TCPropertyList(description, "rows", "Rows",
                   {{.key = "name", .label = "Name", .unique = true}, {.key = "value", .label = "Value"}},
                   rows);
    TCPropertyText(description, "text", "Text", "", text);
    TCPropertyColour(description, "colour", "Colour", colour);
    EXPECT_EQ(Type({"1",   "add", "b",        "2",        "add",  "a",   "3", "edit 1",
                    "",    "7",   "move 2 1", "remove 9", "what", "",    "2", "one",
                    "two", ".",   "choose 3", "red=255",  "ok",   "c 1", "ok"}),
              TCDialog::OK);
    EXPECT_THAT(said[1], HasSubstr("row 1: Name a, Value 1\n"));
    EXPECT_THAT(said[7], HasSubstr("'a' is in an earlier row already"));
    EXPECT_EQ(said[8], "Name (a)> ");
    EXPECT_THAT(said[11], HasSubstr("row 1: Name b, Value 2\nrow 2: Name a, Value 7\n"));
    EXPECT_THAT(said[12], HasSubstr("there is no such row"));
    EXPECT_THAT(said[19], HasSubstr("Colour: Settings (page 1 of 1)\n1. Red: 0\n"));
    EXPECT_THAT(said[21], HasSubstr("Colour: #ff0000\n"));
    EXPECT_THAT(said[22], HasSubstr("there is nothing to choose from"));
    EXPECT_THAT(rows, ElementsAre(ElementsAre("b", "2"), ElementsAre("a", "7")));
    EXPECT_EQ(text, "one\ntwo");
    EXPECT_EQ(colour, 0x0000FFUL);
    for (const std::vector<std::string>& cut :
         {std::vector<std::string>{"1", "add", "c"}, {"2", "y"}, {"c 3"}, {"3"}})
        EXPECT_EQ(Type(cut), TCDialog::CANCEL);
    EXPECT_EQ(rows.size(), 2U);
    EXPECT_EQ(text, "one\ntwo");
}

struct Screen {
    std::string text;
    int code = -1;
};

constexpr int PATIENCE = 60000;  // ms, with a program that says nothing

// Runs the program in a pseudo terminal. Somebody types the next line whenever it has asked for one.
Screen Converse(std::vector<std::string> arguments, const std::vector<std::string>& lines) {
    std::vector<char*> words;
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        execv(words[0], words.data());
        _exit(127);
    }
    Screen screen;
    char part[4096];
    std::size_t typed = 0;
    pollfd shown{terminal, POLLIN, 0};
    while (poll(&shown, 1, PATIENCE) > 0) {
        const ssize_t count = read(terminal, part, sizeof part);
        if (count <= 0) break;
        screen.text.append(part, static_cast<std::size_t>(count));
        if (!screen.text.ends_with("> ") || typed == lines.size()) continue;
        const std::string& line = lines[typed++];
        if (write(terminal, line.data(), line.size()) < 0) break;
    }
    close(terminal);  // which ends a program that still reads from it
    int status = 0;
    waitpid(child, &status, 0);
    screen.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return screen;
}

// What ends the form otherwise than with `ok` changes nothing, and it says so.
TEST_F(Program, ATerminalFormChangesWhatOkWrites) {
    const std::string graph = "[d]\nmodule=TestDialog\ninput=a.wav\n";
    setenv("SIGWEAVE_MODULE_PATH", TEST_LIBRARIES "/dialog", 1);
    const struct {
        std::vector<std::string> typed;
        int code;
        const char* said;
        const char* added;
    } rows[] = {
        {{"size=5\n", "\003"}, 130, "a.graph was not changed", ""},
        {{"size=5\n", "\004"}, 0, "a.graph was not changed", ""},
        {{"size=5\n", "cancel\n"}, 0, "a.graph was not changed", ""},
        {{"6\n", "4.125\n", "size=5\n", "ok\n"}, 0, "written: pin=(hidden)\r\n", "size=5\npin=4.125\n"}};
    for (const auto& row : rows) {
        Write("a.graph", graph);
        const Screen screen = Converse(
            {SIGWEAVE_PROGRAM, "--language", "en", "set", (folder / "a.graph").string(), "d"}, row.typed);
        EXPECT_EQ(screen.code, row.code) << screen.text;
        EXPECT_THAT(screen.text, AllOf(HasSubstr(row.said), Not(HasSubstr("4.125"))));
        EXPECT_EQ(ReadAll(folder / "a.graph"), graph + row.added);
    }
    unsetenv("SIGWEAVE_MODULE_PATH");
}

}  // namespace
