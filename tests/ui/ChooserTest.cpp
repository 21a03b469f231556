#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "sigweave/ui/TCDialog.h"
#include "sigweave/ui/TCPropertyChooser.h"
#include "tests/support/OwnFolder.h"

namespace {

using testing::ElementsAre;

class Chooser : public testing::Test {
 protected:
    // Sets the values in order, ends with OK, and answers the text; or the refusal.
    CString Choose(TCPropertyDialogInfo::KIND kind, CString text,
                   const CArray<std::pair<CString, CString>>& set) {
        TCPropertyDialogInfo item;
        item.kind = kind;
        item.fileFilter = "*.wav;*.flac";
        TCPropertyDialog description;
        EXPECT_EQ(TCPropertyChooser(description, item, text, folder), 1);
        TCDialog shown(description);
        TCDialog::Refusal refusal;
        for (const auto& [key, value] : set) EXPECT_TRUE(shown.SetText(key, value, refusal)) << refusal.text;
        const bool done = shown.End(TCDialog::OK, refusal);
        if (const TCPropertyDialogInfo* list = shown.GetDescription().Find("entries"))
            entries = list->choices;
        return done ? text : refusal.text;
    }

    CString folder;
    CStringArray entries;
};

TEST_F(Chooser, OfFontsAndColours) {
    using Info = TCPropertyDialogInfo;
    EXPECT_EQ(Choose(Info::FONT, "DejaVu Sans 12 bold", {}), "DejaVu Sans 12 bold");
    EXPECT_EQ(Choose(Info::FONT, "Tahoma 10 bold", {{"bold", "no"}, {"italic", "yes"}, {"points", "8"}}),
              "Tahoma 8 italic");
    EXPECT_EQ(Choose(Info::FONT, "", {{"face", "Sans"}}), "Sans 10");
    EXPECT_EQ(Choose(Info::COLOUR, "#010203", {{"blue", "255"}}), "#0102ff");
    TCPropertyDialog description;
    TCPropertyDialogInfo item;
    item.kind = Info::INT;
    CString text = "1";
    EXPECT_EQ(TCPropertyChooser(description, item, text), 0);
}

TEST_F(Chooser, OfFilesAndFolders) {
    using Info = TCPropertyDialogInfo;
    const auto own = MakeOwnFolder();
    const std::filesystem::path here = own->Path();
    folder = here.string();
    const CString root = here.string() + "/";
    std::filesystem::create_directories(here / "sub" / "deep");
    for (const char* name : {"b.wav", "a.flac", "c.txt", "sub/d.wav"}) std::ofstream(here / name) << "x";
    EXPECT_EQ(Choose(Info::FILE, "b.wav", {}), "b.wav");
    const CString above = here.parent_path().string();
    EXPECT_THAT(entries, ElementsAre(root, above.ends_with('/') ? above : above + "/", root + "sub/",
                                     root + "a.flac", root + "b.wav"));
    EXPECT_EQ(Choose(Info::FILE, "", {{"entries", root + "sub/"}, {"entries", root + "sub/d.wav"}}),
              "sub/d.wav");
    EXPECT_EQ(Choose(Info::FILE, "", {{"filter", "*"}, {"entries", root + "c.txt"}}), "c.txt");
    EXPECT_EQ(Choose(Info::FILE, "b.wav", {{"name", "none.wav"}}),
              "name: there is no file '" + root + "none.wav'");
    EXPECT_EQ(Choose(Info::OUTPUT_FILE, "b.wav", {{"name", "new.wav"}}), "new.wav");
    EXPECT_EQ(Choose(Info::OUTPUT_FILE, "b.wav", {{"name", "sub"}}), "name: '" + root + "sub' is a folder");
    EXPECT_EQ(Choose(Info::FILE, "b.wav", {{"folder", root + "none"}}),
              "folder: there is no folder '" + root + "none'");
    EXPECT_EQ(Choose(Info::FOLDER, "", {{"entries", root + "sub/"}, {"entries", root + "sub/deep/"}}),
              "sub/deep");
    EXPECT_EQ(Choose(Info::FOLDER, "sub/deep", {{"folder", "/"}}), "/");
}

}  // namespace
