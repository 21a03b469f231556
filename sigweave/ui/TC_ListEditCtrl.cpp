#include "sigweave/ui/TC_ListEditCtrl.h"

#include <set>
#include <utility>

#include "sigweave/services/Bilingual.h"
#include "sigweave/ui/PropertyText.h"

namespace {

using tc::Bilingual;

constexpr Bilingual CELLS("%1: row %2 has %3 cells; expected %4",
                          "%1: Zeile %2 hat %3 Zellen; erwartet werden %4");
constexpr Bilingual TWICE("%1: row %2, %3: '%4' is in an earlier row already; every row needs its own",
                          "%1: Zeile %2, %3: '%4' steht schon in einer früheren Zeile; jede Zeile braucht "
                          "etwas Eigenes");
constexpr Bilingual NO_ROW("%1: there is no row %2; there are %3",
                           "%1: es gibt keine Zeile %2; vorhanden sind %3");
constexpr Bilingual NO_COLUMN("%1: there is no column %2; there are %3",
                              "%1: es gibt keine Spalte %2; vorhanden sind %3");
constexpr Bilingual NO_ROWS(
    "%1: these are no rows of cells; write \\t, \\n, \\r and \\\\ in a cell, and end "
    "each row with a line feed",
    "%1: das sind keine Zeilen aus Zellen; schreiben Sie \\t, \\n, \\r und \\\\ in "
    "einer Zelle, und beenden Sie jede Zeile mit einem Zeilenvorschub");

// Of the cell, named by its place.
TCPropertyDialogInfo DescribeCell(const CString& list, std::size_t row, const TCPropertyColumn& column) {
    TCPropertyDialogInfo cell;
    cell.kind = column.kind;
    cell.key =
        Bilingual("%1: row %2, %3", "%1: Zeile %2, %3").With({list, std::to_string(row + 1), column.key});
    cell.unit = column.unit;
    cell.Limits(column.minimum, column.maximum);
    cell.choices = column.choices;
    cell.required = column.unique;
    return cell;
}

}  // namespace

CString TC_ListEditCtrl::GetCell(int row, int column) const {
    if (!IsRow(row)) return "";
    const CStringArray& cells = rows[static_cast<std::size_t>(row)];
    const bool isThere = column >= 0 && static_cast<std::size_t>(column) < cells.size();
    return isThere ? cells[static_cast<std::size_t>(column)] : CString();
}

int TC_ListEditCtrl::FindColumn(const CString& key) const {
    for (std::size_t i = 0; i < info.columns.size(); ++i)
        if (info.columns[i].key == key) return static_cast<int>(i);
    return -1;
}

CString TC_ListEditCtrl::WhyNotAllowed(const CArray<CStringArray>& wanted, std::size_t row) const {
    const CString number = std::to_string(row + 1);
    const CStringArray& cells = wanted[row];
    if (cells.size() != info.columns.size())
        return CELLS.With(
            {info.key, number, std::to_string(cells.size()), std::to_string(info.columns.size())});
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const TCPropertyColumn& column = info.columns[i];
        CString reason = DescribeCell(info.key, row, column).WhyNotAllowed(cells[i]);
        if (!reason.empty()) return reason;
    }
    return "";
}

bool TC_ListEditCtrl::Replace(CArray<CStringArray> wanted, CString& refusal) {
    CArray<std::set<CString>> seen(info.columns.size());
    for (std::size_t row = 0; row < wanted.size(); ++row) {
        if (CString reason = WhyNotAllowed(wanted, row); !reason.empty()) {
            refusal = std::move(reason);
            return false;
        }
        for (std::size_t i = 0; i < info.columns.size(); ++i) {
            const TCPropertyColumn& column = info.columns[i];
            const CString& cell = wanted[row][i];
            if (!column.unique || seen[i].insert(cell).second) continue;
            refusal = TWICE.With({info.key, std::to_string(row + 1), column.key, cell});
            return false;
        }
    }
    rows = std::move(wanted);
    return true;
}

bool TC_ListEditCtrl::Add(const CStringArray& cells, CString& refusal, int before) {
    CArray<CStringArray> wanted = rows;
    wanted.insert(IsRow(before) ? wanted.begin() + before : wanted.end(), cells);
    return Replace(std::move(wanted), refusal);
}

bool TC_ListEditCtrl::Edit(int row, int column, const CString& text, CString& refusal) {
    const bool isColumn = column >= 0 && static_cast<std::size_t>(column) < info.columns.size();
    if (!IsRow(row) || !isColumn) {
        refusal =
            !IsRow(row)
                ? NO_ROW.With({info.key, std::to_string(row + 1), std::to_string(rows.size())})
                : NO_COLUMN.With({info.key, std::to_string(column + 1), std::to_string(info.columns.size())});
        return false;
    }
    CArray<CStringArray> wanted = rows;
    wanted[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)] = text;
    return Replace(std::move(wanted), refusal);
}

bool TC_ListEditCtrl::Remove(int row) {
    if (!IsRow(row)) return false;
    rows.erase(rows.begin() + row);
    return true;
}

bool TC_ListEditCtrl::Move(int from, int to) {
    if (!IsRow(from) || !IsRow(to)) return false;
    CStringArray moved = std::move(rows[static_cast<std::size_t>(from)]);
    rows.erase(rows.begin() + from);
    rows.insert(rows.begin() + to, std::move(moved));
    return true;
}

CString TC_ListEditCtrl::GetText() const {
    return tc::WritePropertyRows(rows);
}

bool TC_ListEditCtrl::SetText(const CString& text, CString& refusal) {
    CArray<CStringArray> wanted;
    if (tc::ReadPropertyRows(text, wanted)) return Replace(std::move(wanted), refusal);
    refusal = NO_ROWS.With({info.key});
    return false;
}
