#include <gtest/gtest.h>

#include "studio/server/GraphEdit.h"

namespace {

using studio::Edit;

constexpr const char* GRAPH =
    "# A graph.\n"
    "\n"
    "# the tone\n"
    "[tone]\n"
    "module=Generator\n"
    "  frequency = 50   \n"
    "\n"
    "[levels]\n"
    "module=Statistics\n"
    "\n"
    "# wiring\n"
    "[lines]\n"
    "# to the levels\n"
    "tone.Signal = levels.Signal\n";

Edit Make(Edit::Kind kind, const char* name, const char* other = "") {
    Edit edit;
    edit.kind = kind;
    edit.name = name;
    edit.other = other;
    return edit;
}

Edit Placed(Edit edit, const char* instance, int x, int y) {
    edit.positions.push_back({instance, x, y});
    return edit;
}

Edit Removal(const char* name) {
    Edit edit;
    edit.kind = Edit::Remove;
    edit.names = {name};
    return edit;
}

std::string Replace(std::string text, const std::string& old, const std::string& by) {
    const std::size_t at = text.find(old);
    EXPECT_NE(at, text.npos) << old;
    return at == text.npos ? text : text.replace(at, old.size(), by);
}

TEST(GraphEdit, RewritesItsOwnLinesAlone) {
    const std::string graph = GRAPH;
    const struct {
        const char* what;
        Edit edit;
        std::string before;
        std::string after;
    } rows[] = {
        {"a new instance comes before the lines and their comment", Make(Edit::Place, "pass", "Filter"),
         graph, Replace(graph, "# wiring\n", "[pass]\nmodule=Filter\n\n# wiring\n")},
        {"the first instance", Make(Edit::Place, "tone", "Generator"), "", "[tone]\nmodule=Generator\n"},
        {"a position makes a section at the end", Placed(Make(Edit::Move, ""), "tone", 10, -20), graph,
         graph + "\n[studio.positions]\ntone=10,-20\n"},
        {"a name that cannot be an entry is placed automatically", Placed(Make(Edit::Move, ""), "a=b", 1, 2),
         "[a=b]\nmodule=X\n[studio.positions]\n", "[a=b]\nmodule=X\n[studio.positions]\n"},
        {"a position that is there is changed in its line", Placed(Make(Edit::Move, ""), "a", 3, 4),
         "[a]\nmodule=X\n[studio.positions]\n# left\na = 1,2\nb=5,6\n",
         "[a]\nmodule=X\n[studio.positions]\n# left\na=3,4\nb=5,6\n"},
        {"a line follows the last one", Make(Edit::Connect, "tone.Signal", "levels.Signal 2"), graph,
         graph + "tone.Signal=levels.Signal 2\n"},
        {"the first line makes its section", Make(Edit::Connect, "a.Signal", "b.Signal"),
         "[a]\nmodule=X\n[b]\nmodule=Y", "[a]\nmodule=X\n[b]\nmodule=Y\n\n[lines]\na.Signal=b.Signal\n"},
        {"an empty section of lines is used", Make(Edit::Connect, "a.S", "b.S"),
         "[a]\r\nmodule=X\r\n[lines]\r\n# none\r\n", "[a]\r\nmodule=X\r\n[lines]\r\na.S=b.S\r\n# none\r\n"},
        {"a line goes alone", Make(Edit::Disconnect, "tone.Signal", "levels.Signal"), graph,
         Replace(graph, "tone.Signal = levels.Signal\n", "")},
        {"an instance goes with its comment, lines and position", Removal("tone"),
         graph + "[studio.positions]\ntone=1,2\n",
         "# A graph.\n\n[levels]\nmodule=Statistics\n\n# wiring\n[lines]\n# to the "
         "levels\n[studio.positions]\n"},
        {"an instance is renamed where it is named", Make(Edit::Rename, "tone", "hum"),
         graph + "[studio.positions]\ntone=1,2\n",
         Replace(Replace(graph, "[tone]", "[hum]"), "tone.Signal = levels.Signal",
                 "hum.Signal=levels.Signal") +
             "[studio.positions]\nhum=1,2\n"},
        {"a copy has the settings, not the lines", Make(Edit::Copy, "tone", "tone 2"), graph,
         Replace(graph, "# wiring\n", "[tone 2]\nmodule=Generator\n  frequency = 50   \n\n# wiring\n")},
    };
    for (const auto& row : rows) {
        std::string text = row.before;
        std::string error;
        EXPECT_TRUE(EditGraph(row.edit, text, error)) << row.what << ": " << error;
        EXPECT_EQ(text, row.after) << row.what;
    }
}

TEST(GraphEdit, ChangesNothingWhenItCannot) {
    const struct {
        Edit edit;
        const char* reason;
    } rows[] = {
        {Make(Edit::Place, "tone", "Filter"), "there is an instance 'tone' already"},
        {Make(Edit::Place, "a.b", "Filter"), "an instance cannot be called 'a.b'"},
        {Make(Edit::Place, "a]\n[b", "Filter"), "an instance cannot be called"},
        {Make(Edit::Place, "lines", "Filter"), "an instance cannot be called 'lines'"},
        {Make(Edit::Place, "", "Filter"), "an instance cannot be called ''"},
        {Make(Edit::Place, " a", "Filter"), "an instance cannot be called ' a'"},
        {Make(Edit::Rename, "tones", "x"), "there is no instance 'tones'; did you mean 'tone'?"},
        {Make(Edit::Rename, "tone", "levels"), "there is an instance 'levels' already"},
        {Removal("gone"), "there is no instance 'gone'"},
        {Make(Edit::Connect, "tone.Signal", "levels.Signal"), "there is a line from 'tone.Signal'"},
        {Make(Edit::Connect, "tone", "levels.Signal"), "cannot be written in a graph file"},
        {Make(Edit::Connect, "tone.Sig=nal", "levels.Signal"), "cannot be written in a graph file"},
        {Make(Edit::Disconnect, "tone.Signal", "levels.Other"), "there is no line from"},
        {Placed(Make(Edit::Move, ""), "tone\n[evil]", 1, 2), "there is no instance"},
    };
    for (const auto& row : rows) {
        std::string text = GRAPH;
        std::string error;
        EXPECT_FALSE(EditGraph(row.edit, text, error)) << row.reason;
        EXPECT_NE(error.find(row.reason), error.npos) << error;
        EXPECT_EQ(text, GRAPH);
    }
    std::string xml = "<Graph/>";
    std::string error;
    EXPECT_FALSE(EditGraph(Make(Edit::Place, "a", "Filter"), xml, error));
    EXPECT_NE(error.find("sigweave convert"), error.npos);
}

}  // namespace
