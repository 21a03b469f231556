#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "modules/table-file/HeadRows.h"
#include "modules/table-file/TimeCell.h"
#include "sigweave/signal/TCSI_Unit.h"

namespace tc {

// What the user says of a table; what is left open is found in its first rows.
struct TableSettings {
    enum class Header { FOUND, NONE, NAMES, NAMES_UNITS, NAMES_UNITS_RATES };

    char separator = '\0';  // '\0': found
    char point = '\0';
    int skip = 0;  // lines before the table
    Header header = Header::FOUND;
    std::string columns;  // names or numbers; empty: all that hold numbers
    std::string time;     // name or number of a column, "none", empty: found
    std::string units;    // of the columns in their order; empty: those of the file
    double rate = 0.0;    // 0: by the time column
};

// How a table is to be read.
struct TableLayout {
    enum class Use { VALUES, TIME, NONE };
    struct Column {
        std::string name;
        Use use = Use::NONE;
        TCSI_Unit unit;       // of its values
        double offset = 0.0;  // to be added to them: of degrees Celsius
        double rate = 0.0;    // in a table of CsvWriter; 0: not known
    };

    char separator = ',';
    char point = '.';
    std::vector<Column> columns;
    bool isOwn = false;          // written by CsvWriter: empty cells are after the end of a signal
    bool isSpectrum = false;     // the axis is one of frequencies
    std::int64_t firstLine = 0;  // the first line of numbers
    int timeColumn = -1;         // -1: none
    TimeForm timeForm = TimeForm::NUMBER;
    double timeUnit = 1.0;             // in seconds
    std::vector<std::string> remarks;  // what the user may not expect, a line each
};

// Finds the layout by the first rows of a table. False with a line in `error`, which begins with a
// parameter's name and a colon where it is about one.
bool FindLayout(const std::vector<TableRow>& rows, const TableSettings& settings, TableLayout& layout,
                std::string& error);

// Whether the text of a cell is a number or a time.
bool IsNumberCell(const std::string& cell, char point);
// The name of a column for messages, as it is in the table or by its number.
std::string ColumnName(const TableLayout& layout, std::size_t column);

}  // namespace tc
