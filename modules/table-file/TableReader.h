#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "modules/table-file/TableInput.h"
#include "modules/table-file/TableLayout.h"
#include "modules/table-file/TimeAxis.h"

// Reads the columns of a table, row by row, in memory that does not grow with the file. A channel is a column
// whose values are read.
class TableReader {
 public:
    // False with a line in `error`, which begins with the name of a parameter and a colon: a file that cannot
    // be read, whose layout cannot be found, or that has no samplerate.
    bool Open(const std::string& path, const tc::TableSettings& settings, std::string& error);

    const tc::TableLayout& Layout() const { return layout; }
    std::size_t Channels() const { return channels.size(); }
    const tc::TableLayout::Column& Channel(std::size_t channel) const {
        return layout.columns[channels[channel]];
    }
    // Rows per second; of a spectrum, bins per hertz. In a table of CsvWriter it may be 0.
    double Samplerate(std::size_t channel) const;
    // Of the first row, by its date, in milliseconds since 1970; 0 when the table has no dates.
    double Start() const { return start; }

    // What follows: the end (or a failure), a row, a row with which all signals begin anew, a row before
    // which others are missing by its time, so that all signals begin anew too.
    enum class Next { END, ROW, SIGNAL, GAP };
    Next LookAhead();
    // Before a GAP.
    std::int64_t MissingRows() const { return axis.Missing(nextTime); }
    double MissingSeconds() const { return axis.MissingSeconds(nextTime); }
    // Reads up to `most` rows of one signal; the value of row i in channel c goes to values[c * stride + i].
    // Fewer than asked at the end of the signal or the file, and before a row that is wrong.
    std::int64_t Read(double* values, std::int64_t stride, std::int64_t most);
    // How many of those rows a channel has: those after its end have empty cells.
    std::int64_t Held(std::size_t channel) const { return held[channel]; }
    bool HasEnded(std::size_t channel) const { return ended[channel] != 0; }

    // Why the file could not be read to its end, with line and column; empty when it could, so far.
    const std::string& Failure() const { return failure; }
    // What was odd and did not keep the file from being read, a line each.
    std::vector<std::string> Oddities() const;

 private:
    enum class Kind : char { VALUE, TIME, SKIPPED };
    struct Cell {
        Kind kind = Kind::SKIPPED;
        double offset = 0.0;
        double* target = nullptr;  // of row 0
    };
    // Something that happened a number of times.
    struct Count {
        std::int64_t times = 0;
        std::int64_t line = 0;  // of the first
        std::size_t column = 0;
    };

    bool ReadHead(const tc::TableSettings& settings, std::string& error);
    bool SkipLines(std::int64_t count);
    bool LearnTime(const std::vector<tc::TableRow>& rows, double rate, std::string& error);
    bool ReadTime(const char* text, double& seconds, const char*& end);
    Next FindRow();
    bool IsGapNext();
    bool ReadFastRow(std::int64_t row);
    bool ReadRow(std::int64_t row);
    bool TakeCell(std::size_t channel, std::int64_t row);
    bool TakeTime(std::size_t column);
    bool FailAt(std::int64_t atLine, const std::string& what);
    std::string Place(std::int64_t atLine) const;
    std::string QuoteCell(std::size_t column) const;

    std::string path;
    TableInput input;
    tc::TableLayout layout;
    std::vector<std::size_t> channels;  // the columns that are read
    std::vector<Cell> plan;             // by column
    std::vector<std::string> cells;     // of the row that is read
    std::vector<std::int64_t> held;
    std::vector<char> ended;
    bool anyEnded = false;
    std::int64_t line = 1;  // of the next row
    std::int64_t read = 0;  // rows
    tc::TimeAxis axis;
    bool checksTime = false;
    double nextTime = 0.0;  // of a GAP
    double rate = 0.0;
    double start = 0.0;
    std::int64_t firstDay = 0;
    double clockDays = 0.0;  // seconds of the days that a time of day has passed
    double lastClock = 0.0;
    std::string failure;
    Count blanks;
};
