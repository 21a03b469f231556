#pragma once

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/ui/TCPropertyDialogInfo.h"

// The rows of a list while they are edited: cells are texts, checked as values of their columns. What is
// refused leaves the rows as they are; `refusal` then names the list, the row (from 1), the column, and what
// is allowed. The description must outlive it.
class TC_API TC_ListEditCtrl {
 public:
    explicit TC_ListEditCtrl(const TCPropertyDialogInfo& list) : info(list) {}

    int GetRowCount() const { return static_cast<int>(rows.size()); }
    const CArray<CStringArray>& GetRows() const { return rows; }
    // Empty where there is none.
    CString GetCell(int row, int column) const;
    // A column of that key, or -1.
    int FindColumn(const CString& key) const;

    // `cells` is a cell a column. Before the row of that number; after the last one for any other number.
    bool Add(const CStringArray& cells, CString& refusal, int before = -1);
    bool Edit(int row, int column, const CString& text, CString& refusal);
    // False, and nothing changed, for rows that are not there.
    bool Remove(int row);
    bool Move(int from, int to);

    // All rows, as tc::WritePropertyRows writes them.
    CString GetText() const;
    bool SetText(const CString& text, CString& refusal);

 private:
    bool IsRow(int row) const { return row >= 0 && row < GetRowCount(); }
    TC_LOCAL bool Replace(CArray<CStringArray> wanted, CString& refusal);
    TC_LOCAL CString WhyNotAllowed(const CArray<CStringArray>& wanted, std::size_t row) const;

    const TCPropertyDialogInfo& info;
    CArray<CStringArray> rows;
};
