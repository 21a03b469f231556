#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sigweave/ui/PropertyText.h"
#include "sigweave/ui/TC_ListEditCtrl.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ListEdit : public testing::Test {
 protected:
    ListEdit() {
        info.kind = TCPropertyDialogInfo::LIST;
        info.key = "bands";
        info.columns.resize(2);
        info.columns[0].key = "name";
        info.columns[0].unique = true;
        info.columns[1].key = "corner";
        info.columns[1].kind = TCPropertyDialogInfo::DOUBLE;
        info.columns[1].minimum = 0;
        info.columns[1].maximum = 5000;
        info.columns[1].unit = "Hz";
    }

    TCPropertyDialogInfo info;
    CString refusal;
};

TEST_F(ListEdit, AddsMovesEditsAndRemoves) {
    TC_ListEditCtrl list(info);
    EXPECT_TRUE(list.Add({"low", "10"}, refusal));
    EXPECT_TRUE(list.Add({"high", "1e3"}, refusal));
    EXPECT_TRUE(list.Add({"middle", "100"}, refusal, 1));
    EXPECT_TRUE(list.Move(2, 0));
    EXPECT_TRUE(list.Edit(0, list.FindColumn("corner"), "2000", refusal));
    EXPECT_TRUE(list.Remove(1));
    EXPECT_THAT(list.GetRows(), ElementsAre(ElementsAre("high", "2000"), ElementsAre("middle", "100")));
    EXPECT_FALSE(list.Remove(2) || list.Move(0, 2) || list.Move(-1, 0));
    EXPECT_EQ(list.GetCell(1, 0), "middle");
    for (const auto& [row, column] : {std::pair(1, 2), {1, -1}, {2, 0}, {-1, 0}})
        EXPECT_EQ(list.GetCell(row, column), "");
    EXPECT_EQ(list.FindColumn("Corner"), -1);
}

TEST_F(ListEdit, RefusesWithoutAChange) {
    TC_ListEditCtrl list(info);
    ASSERT_TRUE(list.SetText("low\t10\nhigh\t1000\n", refusal));
    EXPECT_FALSE(list.Add({"low", "5"}, refusal));
    EXPECT_THAT(refusal, HasSubstr("row 3, name: 'low'"));
    EXPECT_FALSE(list.Edit(1, 0, "low", refusal));
    EXPECT_FALSE(list.Edit(0, 1, "-1", refusal));
    EXPECT_EQ(refusal, "bands: row 1, corner: '-1' is not valid; expected a number from 0 to 5000 (in Hz)");
    EXPECT_FALSE(list.Add({"", "5"}, refusal));
    EXPECT_FALSE(list.Add({"only one"}, refusal));
    EXPECT_THAT(refusal, HasSubstr("row 3"));
    for (const int row : {-1, 2}) EXPECT_FALSE(list.Edit(row, 0, "x", refusal));
    EXPECT_EQ(refusal, "bands: there is no row 3; there are 2");
    for (const int column : {-1, 2}) EXPECT_FALSE(list.Edit(0, column, "x", refusal));
    EXPECT_EQ(refusal, "bands: there is no column 3; there are 2");
    EXPECT_FALSE(list.SetText("low\t10", refusal));
    EXPECT_THAT(refusal, HasSubstr("bands: these are no rows of cells"));
    EXPECT_EQ(list.GetText(), "low\t10\nhigh\t1000\n");
}

TEST(PropertyRows, KeepEveryText) {
    const CArray<CStringArray> rows = {{"a\tb", "\\t\n"}, {"", "\r"}, {"", ""}};
    CArray<CStringArray> read;
    EXPECT_EQ(tc::WritePropertyRows(rows), "a\\tb\t\\\\t\\n\n\t\\r\n\t\n");
    ASSERT_TRUE(tc::ReadPropertyRows(tc::WritePropertyRows(rows), read));
    EXPECT_EQ(read, rows);
    ASSERT_TRUE(tc::ReadPropertyRows("", read));
    EXPECT_TRUE(read.empty());
    for (const char* wrong : {"a", "a\\x\n", "\\", "\\\n"}) EXPECT_FALSE(tc::ReadPropertyRows(wrong, read));
}

}  // namespace
