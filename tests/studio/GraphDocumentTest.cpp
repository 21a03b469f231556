#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "studio/server/GraphDocument.h"
#include "tests/support/OwnFolder.h"

namespace {

using studio::GraphDocument;
using Saving = GraphDocument::Saving;

class DocumentInFile : public testing::Test {
 protected:
    DocumentInFile()
        : own(MakeOwnFolder()), path((std::filesystem::path(own->Path()) / "a.graph").string()) {}

    void Write(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }
    std::string Read() const {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    std::unique_ptr<tc::OwnedFolder> own;
    std::string path;
    GraphDocument document;
    std::string error;
};

TEST_F(DocumentInFile, TakesEveryChangeBack) {
    Write("abc");
    ASSERT_TRUE(document.Open(path, error));
    const std::string texts[] = {"abc", "aXbc", "", "z", "zz", "z"};
    for (const std::string& text : texts) document.Change(text);
    for (std::size_t i = std::size(texts) - 1; i-- > 0;) {
        document.Undo();
        EXPECT_EQ(document.Text(), texts[i]);
    }
    EXPECT_FALSE(document.CanUndo());
    EXPECT_FALSE(document.IsChanged());
    for (std::size_t i = 1; i < std::size(texts); ++i) {
        document.Redo();
        EXPECT_EQ(document.Text(), texts[i]);
    }
    EXPECT_FALSE(document.CanRedo());
    document.Undo();
    document.Change("new");
    EXPECT_FALSE(document.CanRedo());
}

TEST_F(DocumentInFile, TakesWhatWasTypedBackAtOnce) {
    ASSERT_TRUE(document.Open(path, error));
    document.Change("drawn");
    document.Change("drawn a", "typing 1");
    document.Change("drawn an", "typing 1");
    document.Change("drawn any", "typing 1");
    document.Change("drawn any!", "typing 2");
    document.Undo();
    EXPECT_EQ(document.Text(), "drawn any");
    document.Undo();
    EXPECT_EQ(document.Text(), "drawn");
}

TEST_F(DocumentInFile, OverwritesNothingThatItHasNotSeen) {
    Write("old");
    ASSERT_TRUE(document.Open(path, error));
    document.Change("mine");
    Write("theirs");
    EXPECT_TRUE(document.HasChangedOutside());
    EXPECT_EQ(document.Save(false, error), Saving::ChangedOutside);
    EXPECT_EQ(Read(), "theirs");
    ASSERT_TRUE(document.Reload(error));
    EXPECT_EQ(document.Text(), "theirs");
    document.Undo();
    EXPECT_EQ(document.Text(), "mine");
    EXPECT_EQ(document.Save(false, error), Saving::Done);
    EXPECT_EQ(Read(), "mine");
    EXPECT_FALSE(document.IsChanged());
    Write("again");
    EXPECT_EQ(document.Save(true, error), Saving::Done);
    EXPECT_EQ(Read(), "mine");
}

TEST_F(DocumentInFile, NoticesAFileThatCameOrWent) {
    ASSERT_TRUE(document.Open(path, error));
    EXPECT_FALSE(document.HasChangedOutside());
    Write("");
    document.Change("mine");
    EXPECT_EQ(document.Save(false, error), Saving::ChangedOutside);
    ASSERT_EQ(document.Save(true, error), Saving::Done);
    std::filesystem::rename(path, path + ".moved");
    EXPECT_TRUE(document.HasChangedOutside());
}

TEST_F(DocumentInFile, IsNoFolderAndInNoneThatIsMissing) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    EXPECT_FALSE(document.Open(folder, error));
    EXPECT_EQ(error.find(folder + " is a folder"), 0u) << error;
    EXPECT_FALSE(document.Open(folder + "/none/a.graph", error));
    EXPECT_NE(error.find("no folder " + folder + "/none"), error.npos) << error;
}

TEST_F(DocumentInFile, IsSavedUnderAnotherNameInItsFolderAlone) {
    Write("x");
    ASSERT_TRUE(document.Open(path, error));
    for (const char* name : {"../b.graph", "/tmp/b.graph", "..", "", "a\nb", "a.graph"})
        EXPECT_EQ(document.SaveAs(name, error), Saving::Failed) << name;
    EXPECT_EQ(document.Path(), path);
    EXPECT_EQ(document.SaveAs("b.graph", error), Saving::Done) << error;
    path = document.Path();
    EXPECT_EQ(Read(), "x");
}

}  // namespace
