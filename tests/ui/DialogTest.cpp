#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sigweave/foundation/HostRecords.h"
#include "sigweave/ui/PropertyItems.h"
#include "sigweave/ui/PropertyText.h"
#include "sigweave/ui/TCDialog.h"
#include "tests/support/FakeWindow.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// Every kind that has a value, with what its variable shows and takes.
struct Values {
    int count = 3;
    double gain = 0.5;
    TCString name = "left";
    bool on = false;
    int mode = 1;
    TCString rate = "48000";
    int shape = 0;
    double level = 20;
    double start = 1772366400250.0;  // 2026-03-01 12:00:00.250 UTC
    TCString input;
    TCString folder = "/tmp";
    TCLogFont font;
    unsigned long colour = 0x0080FF;
    CArray<CStringArray> rows = {{"low"}};
    TCString script = "x = 1\ny = 2";
};

void Describe(TCPropertyDialog& dialog, Values& values) {
    TCPropertyInt(dialog, "count", "Count", values.count).Limits(1, 8);
    TCPropertyDouble(dialog, "gain", "Gain", values.gain).Unit("V");
    TCPropertyString(dialog, "name", "Name", values.name).Required();
    TCPropertyBool(dialog, "on", "On", values.on);
    TCPropertyCombo(dialog, "mode", "Mode", {"cut", "pad"}, values.mode);
    TCPropertyEditCombo(dialog, "rate", "Rate", {"44100", "48000"}, values.rate);
    TCPropertyRadio(dialog, "shape", "Shape", {"sine", "square"}, values.shape);
    TCPropertySlider(dialog, "level", "Level", 0, 100, 1, values.level);
    TCPropertyDateTime(dialog, "start", "Start", values.start);
    TCPropertyFile(dialog, "input", "Input", "*.wav", values.input);
    TCPropertyFolder(dialog, "folder", "Folder", values.folder);
    TCPropertyFont(dialog, "font", "Font", values.font);
    TCPropertyColour(dialog, "colour", "Colour", values.colour);
    TCPropertyList(dialog, "rows", "Rows", {{.key = "band", .label = "Band", .unique = true}}, values.rows);
    TCPropertyText(dialog, "script", "Script", "lua", values.script);
}

class Dialog : public testing::Test {
 protected:
    bool Set(TCDialog& shown, const char* key, const char* text) { return shown.SetText(key, text, refusal); }

    Values values;
    TCPropertyDialog description;
    TCDialog::Refusal refusal;
};

TEST_F(Dialog, ExchangesEveryKindBothWays) {
    struct Row {
        const char* key;
        const char* shown;
        const char* wrong;  // null: every text is right
        const char* right;
    };
    constexpr Row ROWS[] = {
        {"count", "3", "9", "8"},
        {"gain", "0.5", "0,5", "-2.5"},
        {"name", "left", " ", "right"},
        {"on", "no", "true", "yes"},
        {"mode", "pad", "Pad", "cut"},
        {"rate", "48000", nullptr, "any"},
        {"shape", "sine", "", "square"},
        {"level", "20", "100.5", "100"},
        {"start", "2026-03-01 12:00:00.250", "2026-02-29 12:00", "2024-02-29 00:00:00.000"},
        {"input", "", nullptr, "a b.wav"},
        {"folder", "/tmp", nullptr, "/"},
        {"font", "Tahoma 10", "Tahoma", "DejaVu Sans 12 bold italic"},
        {"colour", "#ff8000", "#ff80", "#000102"},
        {"rows", "low\n", "low\nlow\n", "low\nhigh\n"},
        {"script", "x = 1\ny = 2", nullptr, "return 1"},
    };
    Describe(description, values);
    TCDialog shown(description);
    for (const Row& row : ROWS) {
        EXPECT_EQ(shown.GetText(row.key), row.shown);
        if (row.wrong != nullptr) {
            EXPECT_FALSE(Set(shown, row.key, row.wrong)) << row.key;
            EXPECT_EQ(refusal.key, row.key);
            EXPECT_TRUE(refusal.text.starts_with(std::string(row.key) + ": ")) << refusal.text;
        }
        EXPECT_EQ(shown.GetText(row.key), row.shown);
        EXPECT_TRUE(Set(shown, row.key, row.right)) << refusal.text;
    }
    EXPECT_EQ(values.count, 3);  // nothing has left the dialog yet
    ASSERT_TRUE(shown.Store(refusal)) << refusal.text;
    EXPECT_EQ(values.count, 8);
    EXPECT_EQ(values.gain, -2.5);
    EXPECT_EQ(values.mode, 0);
    EXPECT_EQ(values.start, 1709164800000.0);
    EXPECT_STREQ(values.font.lfFaceName, "DejaVu Sans");
    EXPECT_EQ(values.font.lfHeight, -16);  // 12 points of 96 pixels per inch
    EXPECT_EQ(values.font.lfWeight, 700);
    EXPECT_EQ(values.colour, 0x020100UL);
    EXPECT_THAT(values.rows, ElementsAre(ElementsAre("low"), ElementsAre("high")));
    for (const Row& row : ROWS) EXPECT_EQ(TCDialog(description).GetText(row.key), row.right);
}

// What a font is written as says all of its style.
TEST(PropertyText, LeavesOutTheStyleThatAFontHad) {
    TCLogFont font;
    ASSERT_TRUE(tc::ReadPropertyFont("Tahoma 10 bold italic underline", font));
    ASSERT_TRUE(tc::ReadPropertyFont("Tahoma 10", font));
    EXPECT_EQ(tc::WritePropertyFont(font), "Tahoma 10");
    const CString longest(sizeof font.lfFaceName - 1, 'x');
    for (const CString& right :
         {CString("Tahoma 1 underline"), CString("Tahoma 1000 italic strikeout"), longest + " 7"}) {
        EXPECT_TRUE(tc::ReadPropertyFont(right, font)) << right;
        EXPECT_EQ(tc::WritePropertyFont(font), right);
    }
    for (const CString& wrong : {CString("Tahoma 0"), CString("Tahoma 1001"), CString("10"), longest + "x 7"})
        EXPECT_FALSE(tc::ReadPropertyFont(wrong, font)) << wrong;
}

TEST(PropertyText, RefusesNumbersAndColoursThatAreNone) {
    int number = 7;
    double real = 7;
    unsigned long colour = 7;
    for (const char* wrong : {"", "+", "+-5", "5x", "5 5", "2147483648"})
        EXPECT_FALSE(tc::ReadPropertyInt(wrong, number));
    for (const char* wrong : {"", "+-5", "inf", "nan", "1e999", "0x10"})
        EXPECT_FALSE(tc::ReadPropertyDouble(wrong, real));
    for (const char* wrong : {"", "#12345", "0123456", "#12345x", "#1234567"})
        EXPECT_FALSE(tc::ReadPropertyColour(wrong, colour)) << wrong;
    EXPECT_TRUE(number == 7 && real == 7 && colour == 7) << "nothing has changed";
    EXPECT_TRUE(tc::ReadPropertyInt(" +5\t", number) && number == 5);
    EXPECT_TRUE(tc::ReadPropertyDouble("+2.5", real) && real == 2.5);
}

TEST(PropertyText, RefusesTimesThatAreNone) {
    double time = 7;
    for (const char* wrong :
         {"", "2026-13-01", "2026-03-01 24:00", "2026-03-01 12", "2026-03-01 12:60", "2026-03-01 12:00:60",
          "2026-3-1", "2026-03-01 12:00:00.25", "2026-03-01x", "99999-01-01"})
        EXPECT_FALSE(tc::ReadPropertyTime(wrong, time)) << wrong;
    EXPECT_EQ(time, 7);
    EXPECT_TRUE(tc::ReadPropertyTime("1969-12-31T23:59:59.999Z", time));
    EXPECT_EQ(time, -1);
    EXPECT_TRUE(tc::ReadPropertyTime("1970-01-02", time));
    EXPECT_EQ(time, 86400000);
    EXPECT_EQ(tc::WritePropertyTime(-1), "1969-12-31 23:59:59.999");
    EXPECT_EQ(tc::WritePropertyTime(1e300), "");
    // The first and the last millisecond of years with four digits, by date(1).
    EXPECT_EQ(tc::WritePropertyTime(-62167219200000), "0000-01-01 00:00:00.000");
    EXPECT_EQ(tc::WritePropertyTime(253402300799999), "9999-12-31 23:59:59.999");
    EXPECT_EQ(tc::WritePropertyTime(-62167219200001) + tc::WritePropertyTime(253402300800000), "");
}

// The second item is wrong from the start; it is named, and the first is not set either.
TEST_F(Dialog, ChangesNothingWhenOneIsWrong) {
    values.mode = 5;
    Describe(description, values);
    TCDialog shown(description);
    ASSERT_TRUE(Set(shown, "count", "5"));
    EXPECT_FALSE(shown.End(TCDialog::OK, refusal));
    EXPECT_EQ(refusal.key, "mode");
    EXPECT_EQ(values.count, 3);
    EXPECT_TRUE(shown.End(TCDialog::CANCEL, refusal));
    EXPECT_EQ(values.count, 3);
    ASSERT_TRUE(Set(shown, "mode", "cut"));
    EXPECT_TRUE(shown.End(TCDialog::OK, refusal));
    EXPECT_EQ(values.count, 5);
}

TEST_F(Dialog, TakesAllBackWhenTheyDoNotFitTogether) {
    Describe(description, values);
    description.checkTogether = [](const TCPropertyDialog::Texts& wanted) {
        return wanted("count") == "7" ? CString("gain: too much for 7") : CString();
    };
    description.apply = [this](CString& reason) {
        reason = "both are odd";
        return values.count != 5;
    };
    TCDialog shown(description);
    ASSERT_TRUE(Set(shown, "count", "7") && Set(shown, "gain", "2"));
    EXPECT_FALSE(shown.Store(refusal));
    EXPECT_EQ(refusal.key, "gain");
    ASSERT_TRUE(Set(shown, "count", "5"));
    EXPECT_FALSE(shown.Store(refusal));
    EXPECT_EQ(refusal.key, "");
    EXPECT_EQ(refusal.text, "both are odd");
    EXPECT_EQ(values.count, 3);
    EXPECT_EQ(values.gain, 0.5);
    EXPECT_EQ(shown.GetText("count"), "5");  // still there to be mended
}

TEST_F(Dialog, EnablesAndShowsByOtherValues) {
    TCPropertyBool(description, "on", "On", values.on);
    TCPropertyPage(description, "more", "More").ShownWhen("on", {"yes"});
    TCPropertyGroup(description, "group", "Group");
    TCPropertyInt(description, "count", "Count", values.count).Limits(1, 2).EnabledWhen("mode", {"cut"});
    description.EndPage();
    TCPropertyCombo(description, "mode", "Mode", {"cut", "pad"}, values.mode);
    TCDialog shown(description);
    EXPECT_FALSE(shown.IsShown("count") || shown.IsShown("group") || shown.IsEnabled("count"));
    EXPECT_TRUE(shown.IsShown("mode") && shown.IsEnabled("group"));
    EXPECT_FALSE(shown.IsShown("none") || shown.IsEnabled("none"));
    EXPECT_FALSE(Set(shown, "count", "1"));
    EXPECT_THAT(refusal.text, HasSubstr("only while mode is cut"));
    EXPECT_TRUE(shown.Store(refusal));  // its 3 is beyond the limit, but left out
    ASSERT_TRUE(Set(shown, "mode", "cut"));
    EXPECT_FALSE(Set(shown, "count", "1"));
    EXPECT_THAT(refusal.text, HasSubstr("only while on is yes"));
    ASSERT_TRUE(Set(shown, "on", "yes"));
    EXPECT_FALSE(shown.Store(refusal));
    EXPECT_TRUE(Set(shown, "count", "1"));
    EXPECT_TRUE(shown.Undo() && shown.Undo());
    EXPECT_FALSE(shown.IsShown("count"));
    EXPECT_TRUE(shown.Undo());
    EXPECT_FALSE(shown.Undo());
    EXPECT_FALSE(shown.IsChanged("mode"));
}

TEST_F(Dialog, IsRebuiltByAChange) {
    int second = 4;
    TCPropertyInt(description, "count", "Count", values.count).Rebuilds();
    TCPropertyString(description, "name", "Name", values.name);
    description.onRebuild = [&](TCPropertyDialog& dialog, const TCPropertyDialog::Texts& now) {
        dialog.Clear();
        TCPropertyInt(dialog, "count", "Count", values.count).Rebuilds();
        TCPropertyString(dialog, "name", "Name", values.name);
        if (now("count") == "2") TCPropertyInt(dialog, "second", "Second", second);
    };
    TCDialog shown(description);
    ASSERT_TRUE(Set(shown, "name", "kept"));
    EXPECT_FALSE(Set(shown, "second", "5"));
    ASSERT_TRUE(Set(shown, "count", "2"));
    EXPECT_EQ(shown.GetText("second"), "4");
    EXPECT_EQ(shown.GetText("name"), "kept");
    ASSERT_TRUE(Set(shown, "count", "1"));
    EXPECT_EQ(shown.GetText("second"), "");
    EXPECT_TRUE(shown.Store(refusal));
    EXPECT_EQ(values.count, 1);
}

TEST_F(Dialog, AltersWhatWasDescribedBefore) {
    Describe(description, values);
    const int count = description.GetCount();
    TCPropertyReadOnly(description, "count", "Count", [] { return CString("12"); });
    EXPECT_EQ(description.GetCount(), count);
    EXPECT_EQ(description.Get(0)->kind, TCPropertyDialogInfo::READ_ONLY);
    TCPropertyPage(description, "page", "Page");
    TCPropertyGroup(description, "group", "Group");
    TCPropertyLabel(description, "label", "Text");
    TCPropertySeparator(description, "line");
    EXPECT_EQ(description.Find("label")->parent, "group");
    EXPECT_EQ(description.Find("group")->parent, "page");
    EXPECT_TRUE(description.Remove("page"));
    EXPECT_EQ(description.GetCount(), count);
    EXPECT_FALSE(description.Remove("page"));
    TCDialog shown(description);
    EXPECT_EQ(shown.GetText("count"), "12");
    EXPECT_FALSE(Set(shown, "count", "1"));
}

TEST_F(Dialog, PressesButtons) {
    TCPropertyInt(description, "count", "Count", values.count);
    TCPropertyString(description, "name", "Name", values.name);
    TCPropertyButton(description, "reset", "Reset", [this] { values.count = 1; }).EnabledWhen("name", {"x"});
    TCDialog shown(description);
    EXPECT_FALSE(shown.Press("reset", refusal));
    EXPECT_FALSE(shown.Press("count", refusal));
    ASSERT_TRUE(Set(shown, "name", "x"));
    EXPECT_TRUE(shown.Press("reset", refusal));
    EXPECT_EQ(shown.GetText("count"), "1");
    EXPECT_EQ(shown.GetText("name"), "x");
}

TEST_F(Dialog, PointsAtPortNamesThatAreGivenTwice) {
    struct Row {
        const char* input;
        CArray<CStringArray> outputs;
        int kind;  // of the balloon; 0: none
        const char* name;
    };
    const Row rows[] = {{"a", {{"b"}, {"a"}}, 0, ""},
                        {"Signal", {{"b"}, {"b"}}, 7, "b"},
                        {"x", {{"b"}}, 6, "x"},
                        {"", {{""}, {""}}, 0, ""}};
    FakeMainWindow window;
    int kind = 0;
    std::string name;
    window.onCommand = [&](unsigned long command, void* record) {
        EXPECT_EQ(command, 8UL);
        const auto& balloon = *static_cast<TCBalloonRecord*>(record);
        EXPECT_EQ(balloon.one, 1);
        EXPECT_EQ(balloon.window, &window);
        EXPECT_EQ(balloon.x, balloon.kind == 6 ? -2 : 320);  // the middle of the control, or of the window
        kind = balloon.kind;
        name = balloon.portText;
    };
    for (const Row& row : rows) {
        TCString first = "x";
        TCString second = row.input;
        CArray<CStringArray> outputs = row.outputs;
        TCPropertyDialog ports;
        TCPropertyString(ports, "in1", "Input 1", first).NamesPorts(TCPropertyDialogInfo::INPUT_PORTS);
        TCPropertyString(ports, "in2", "Input 2", second)
            .NamesPorts(TCPropertyDialogInfo::INPUT_PORTS)
            .controlId = 7;
        TCPropertyList(ports, "out", "Outputs",
                       {{.key = "name", .label = "", .ports = TCPropertyDialogInfo::OUTPUT_PORTS}}, outputs);
        kind = 0;
        name = "";
        TCDialog shown(ports);
        EXPECT_EQ(shown.Store(refusal), row.kind == 0);
        EXPECT_EQ(kind, row.kind);
        EXPECT_EQ(name, row.name);
        if (row.kind != 0) {
            EXPECT_EQ(refusal.key, row.kind == 6 ? "in2" : "out");
        }
    }
}

}  // namespace
