#include "modules/table-file/TableReader.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "modules/table-file/HeadRows.h"
#include "modules/table-file/NumberCell.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;
using tc::TableLayout;

constexpr std::size_t HEAD_BYTES = 1 << 18;
constexpr std::size_t HEAD_ROWS = 1000;
constexpr double UNIX_TIMES = 1e8;  // seconds since 1970: numbers from there on are dates
constexpr double DAY = 86400.0;

// Decimals of the number in a cell: how exactly it was written.
int Decimals(const std::string& cell, char point) {
    const std::size_t exponent = std::min(cell.find_first_of("eE"), cell.size());
    const std::size_t sign = cell.find(point);
    const int digits = sign < exponent ? static_cast<int>(exponent - sign - 1) : 0;
    return digits - (exponent < cell.size() ? std::atoi(cell.c_str() + exponent + 1) : 0);
}

}  // namespace

bool TableReader::Open(const std::string& name, const tc::TableSettings& settings, std::string& error) {
    *this = TableReader();
    path = name;
    if (!input.Open(path, error)) {
        error = "file: " + error;
        return false;
    }
    if (!SkipLines(settings.skip)) {
        error = tc::NotValid(
            "skip", std::to_string(settings.skip),
            Bilingual("fewer lines than the file has", "weniger Zeilen, als die Datei hat").Text());
        return false;
    }
    if (!ReadHead(settings, error)) {
        const bool isAboutSetting =
            error.find(": ") != std::string::npos && error.find(' ') > error.find(':');
        if (!isAboutSetting) error = "file: " + path + ": " + error;
        return false;
    }
    return true;
}

bool TableReader::SkipLines(std::int64_t count) {
    for (; count > 0; --count, ++line) {
        std::size_t end = input.Lines().find('\n');
        if (end == std::string_view::npos && input.Fill()) end = input.Lines().find('\n');
        if (end == std::string_view::npos) return false;
        input.Take(end + 1);
    }
    return !input.Lines().empty() || input.Fill();
}

bool TableReader::ReadHead(const tc::TableSettings& settings, std::string& error) {
    const std::string_view head = input.Lines();
    const bool isCut = head.size() > HEAD_BYTES;
    const std::size_t length = isCut ? head.rfind('\n', HEAD_BYTES) : head.size();
    const std::vector<tc::TableRow> rows =
        tc::ReadHeadRows(head.substr(0, length == head.npos ? head.size() : length), line, HEAD_ROWS);
    if (!tc::FindLayout(rows, settings, layout, error)) return false;
    SkipLines(layout.firstLine - line);
    plan.resize(layout.columns.size());
    for (std::size_t c = 0; c < plan.size(); ++c) {
        const TableLayout::Column& column = layout.columns[c];
        if (column.use == TableLayout::Use::VALUES) channels.push_back(c);
        plan[c].kind = column.use == TableLayout::Use::VALUES ? Kind::VALUE : Kind::SKIPPED;
        plan[c].offset = column.offset;
    }
    held.resize(channels.size());
    ended.resize(channels.size());
    return LearnTime(rows, settings.rate, error);
}

// What the time column of the first rows says of the samplerate and the start.
bool TableReader::LearnTime(const std::vector<tc::TableRow>& rows, double given, std::string& error) {
    rate = given;
    const auto column = static_cast<std::size_t>(layout.timeColumn);
    std::vector<double> times;
    int decimals = 0;
    for (const tc::TableRow& row : rows) {
        if (layout.timeColumn < 0 || row.line < layout.firstLine) continue;
        tc::SplitRow(row.text, layout.separator, cells);
        const char* end = nullptr;
        double seconds = 0.0;
        if (cells.size() <= column || !ReadTime(cells[column].c_str(), seconds, end) || *end != '\0') break;
        if (layout.isOwn && seconds == 0.0 && !times.empty()) break;
        tc::TimeCell time;
        const bool isNumber = layout.timeForm == tc::TimeForm::NUMBER;
        if (!isNumber) tc::ReadTimeCell(cells[column].c_str(), layout.timeForm, time);
        const int its = isNumber ? Decimals(cells[column], layout.point) : time.decimals;
        decimals = times.empty() ? its : std::max(decimals, its);
        times.push_back(seconds);
    }
    clockDays = lastClock = 0.0;
    if (!times.empty() && layout.timeForm == tc::TimeForm::DATE)
        start = 1000.0 * (DAY * static_cast<double>(firstDay) + times[0]);
    if (!times.empty() && layout.timeForm == tc::TimeForm::NUMBER && times[0] >= UNIX_TIMES)
        start = 1000.0 * times[0];
    if (rate > 0.0) return true;  // then the times do not count
    const double own = layout.isOwn && !channels.empty() ? Channel(0).rate : 0.0;
    const bool isTimed = layout.timeColumn >= 0;
    if (layout.isOwn && (!isTimed || layout.isSpectrum || own > 0.0)) {
        rate = own;
        checksTime = isTimed && !layout.isSpectrum;
        if (checksTime) axis.Learn({}, 0.0, own);
        return true;
    }
    const double resolution = layout.timeUnit * std::pow(10.0, -decimals);
    if (times.size() > 1 && axis.Learn(times, resolution)) {
        rate = axis.Samplerate();
        checksTime = true;
        return true;
    }
    error = tc::NotValid("rate", "0", Bilingual("rows per second", "Zeilen je Sekunde").Text(),
                         isTimed ? Bilingual("for a table whose times do not rise",
                                             "bei einer Tabelle, deren Zeiten nicht steigen")
                                       .Text()
                                 : Bilingual("for a table without a column of times",
                                             "bei einer Tabelle ohne Spalte mit Zeiten")
                                       .Text());
    return false;
}

double TableReader::Samplerate(std::size_t channel) const {
    return layout.isOwn && layout.timeColumn < 0 ? Channel(channel).rate : rate;
}

// In seconds: of a date since the midnight before the first row.
bool TableReader::ReadTime(const char* text, double& seconds, const char*& end) {
    if (layout.timeForm == tc::TimeForm::NUMBER) {
        end = tc::ReadNumberCell(text, layout.point, seconds);
        seconds *= layout.timeUnit;
        return end != nullptr && std::isfinite(seconds);
    }
    tc::TimeCell time;
    end = tc::ReadTimeCell(text, layout.timeForm, time);
    if (end == nullptr) return false;
    if (layout.timeForm == tc::TimeForm::CLOCK) {
        if (time.seconds < lastClock - DAY / 2) clockDays += DAY;
        lastClock = time.seconds;
        seconds = clockDays + time.seconds;
        return true;
    }
    if (firstDay == 0) firstDay = time.day;
    seconds = DAY * static_cast<double>(time.day - firstDay) + time.seconds;
    return true;
}

TableReader::Next TableReader::LookAhead() {
    const Next next = FindRow();
    return next == Next::ROW && IsGapNext() ? Next::GAP : next;
}

bool TableReader::IsGapNext() {
    if (!checksTime) return false;
    const std::size_t length = tc::RowLength(input.Lines());
    if (length == std::string_view::npos) return false;
    tc::SplitRow(tc::RowText(input.Lines().substr(0, length)), layout.separator, cells);
    const auto column = static_cast<std::size_t>(layout.timeColumn);
    const char* end = nullptr;
    return column < cells.size() && ReadTime(cells[column].c_str(), nextTime, end) && *end == '\0' &&
           axis.Look(nextTime) == tc::TimeAxis::Step::GAP;
}

// Leaves out what is no row.
TableReader::Next TableReader::FindRow() {
    for (;;) {
        std::string_view lines = input.Lines();
        if (lines.empty() && !input.Fill()) {
            if (failure.empty()) failure = input.Failure();
            return Next::END;
        }
        lines = input.Lines();
        if (!failure.empty()) return Next::END;
        const std::string_view row = lines.substr(0, lines.find('\n') + 1);
        if (!tc::IsBlankRow(row) && !tc::IsCommentRow(row)) break;
        input.Take(row.size());
        ++line;
    }
    double first = 1.0;
    const bool mayBegin = layout.isOwn && layout.timeColumn == 0 && read > 0;
    const bool begins =
        mayBegin && tc::ReadNumberCell(input.Lines().data(), '.', first) != nullptr && first == 0.0;
    return begins ? Next::SIGNAL : Next::ROW;
}

std::int64_t TableReader::Read(double* values, std::int64_t stride, std::int64_t most) {
    for (std::size_t c = 0; c < channels.size(); ++c)
        plan[channels[c]].target = values + static_cast<std::int64_t>(c) * stride;
    if (layout.timeColumn >= 0 && checksTime)
        plan[static_cast<std::size_t>(layout.timeColumn)].kind = Kind::TIME;
    std::ranges::fill(held, -1);
    std::int64_t count = 0;
    if (const Next next = LookAhead(); next == Next::SIGNAL || next == Next::GAP) {
        axis.Restart();
        std::ranges::fill(ended, 0);
        anyEnded = false;
        read = 0;
    }
    for (std::size_t c = 0; c < channels.size(); ++c)
        if (ended[c] != 0) held[c] = 0;
    for (; count < most; ++count, ++read) {
        if (!anyEnded && ReadFastRow(count)) continue;
        if (FindRow() != Next::ROW || !ReadRow(count)) break;
    }
    for (std::int64_t& each : held)
        if (each < 0) each = count;
    return count;
}

// The next row, when it is one that needs no second look; else nothing has happened.
bool TableReader::ReadFastRow(std::int64_t row) {
    const std::string_view lines = input.Lines();
    if (lines.empty()) return false;
    const char* at = lines.data();
    const char point = layout.point;
    const char separator = layout.separator;
    const std::size_t last = plan.size() - 1;
    double time = 0.0;
    for (std::size_t c = 0; c <= last; ++c) {
        const Cell& cell = plan[c];
        double value = 0.0;
        while (*at == ' ') ++at;
        if (cell.kind == Kind::SKIPPED) {
            while (*at != separator && *at != '\n' && *at != '"' && *at != '\r') ++at;
        } else {
            at = tc::ReadNumberCell(at, point, value);
            if (at == nullptr) return false;
            if (cell.kind == Kind::VALUE)
                cell.target[row] = value + cell.offset;
            else
                time = value * layout.timeUnit;
        }
        if (separator == ' ' && c < last && at[0] == ' ' && at[1] == ' ') ++at;
        if (c == last && *at == '\r') ++at;
        if (*at != (c < last ? separator : '\n')) return false;
        ++at;
    }
    if (checksTime) {
        if (layout.timeForm != tc::TimeForm::NUMBER || (layout.isOwn && time == 0.0 && read > 0))
            return false;
        if (axis.Check(time) != tc::TimeAxis::Step::EVEN) return false;
    }
    input.Take(static_cast<std::size_t>(at - lines.data()));
    ++line;
    return true;
}

// The next row, whatever is in it; false where it is wrong, or rows are missing before it.
bool TableReader::ReadRow(std::int64_t row) {
    std::size_t length = tc::RowLength(input.Lines());
    while (length == std::string_view::npos && input.Fill()) length = tc::RowLength(input.Lines());
    if (length == std::string_view::npos)
        return FailAt(line,
                      Bilingual("a quotation mark is not closed; add the closing one",
                                "ein Anführungszeichen wird nicht geschlossen; ergänzen Sie das schließende")
                          .Text());
    const std::string_view text = input.Lines().substr(0, length);
    tc::SplitRow(tc::RowText(text), layout.separator, cells);
    if (cells.size() != layout.columns.size())
        return FailAt(
            line, Bilingual("the row has %1 cells and the table %2 columns; correct it, or set the separator",
                            "die Zeile hat %1 Zellen und die Tabelle %2 Spalten; berichtigen Sie sie, oder "
                            "nennen Sie das Trennzeichen")
                      .With({std::to_string(cells.size()), std::to_string(layout.columns.size())}));
    for (std::size_t c = 0; c < cells.size(); ++c)
        if (plan[c].kind == Kind::TIME && !TakeTime(c)) return false;
    for (std::size_t channel = 0; channel < channels.size(); ++channel)
        if (!TakeCell(channel, row)) return false;
    line += std::count(text.begin(), text.end(), '\n');
    input.Take(length);
    return true;
}

bool TableReader::TakeCell(std::size_t channel, std::int64_t row) {
    const std::size_t column = channels[channel];
    const std::string& cell = cells[column];
    double& value = plan[column].target[row];
    value = std::numeric_limits<double>::quiet_NaN();
    if (cell.empty() && layout.isOwn) {
        if (ended[channel] == 0) held[channel] = row;
        ended[channel] = 1;
        anyEnded = true;
        return true;
    }
    if (ended[channel] != 0)
        return FailAt(
            line,
            Bilingual("the column '%1' goes on after its signal has ended; fill the empty cells before it",
                      "die Spalte '%1' geht weiter, obwohl ihr Signal zu Ende ist; füllen Sie die leeren "
                      "Zellen davor")
                .With({ColumnName(layout, column)}));
    if (cell.empty()) {
        if (blanks.times++ == 0) blanks.line = line, blanks.column = column;
        return true;
    }
    const char* const end = tc::ReadNumberCell(cell.c_str(), layout.point, value);
    value += plan[column].offset;
    if (end != nullptr && *end == '\0') return true;
    return FailAt(
        line,
        Bilingual("column '%1': %2 is no number with the decimal sign %3; correct it, or leave the "
                  "column out (columns)",
                  "Spalte '%1': %2 ist keine Zahl mit dem Dezimalzeichen %3; berichtigen Sie sie, oder "
                  "lassen Sie die Spalte weg (columns)")
            .With({ColumnName(layout, column), QuoteCell(column), layout.point == '.' ? "'.'" : "','"}));
}

bool TableReader::TakeTime(std::size_t column) {
    const char* end = nullptr;
    double seconds = 0.0;
    if (!ReadTime(cells[column].c_str(), seconds, end) || *end != '\0')
        return FailAt(
            line,
            Bilingual("column '%1': %2 is no time like that of the first row; correct it, or set rate to "
                      "count the rows instead",
                      "Spalte '%1': %2 ist keine Zeit wie die der ersten Zeile; berichtigen Sie sie, oder "
                      "setzen Sie rate, um stattdessen die Zeilen zu zählen")
                .With({ColumnName(layout, column), QuoteCell(column)}));
    const tc::TimeAxis::Step step = axis.Check(seconds);
    if (step == tc::TimeAxis::Step::EVEN) return true;
    if (step == tc::TimeAxis::Step::GAP) return false;
    const std::string last = tc::ShortestText(axis.Last());
    if (step == tc::TimeAxis::Step::BACK)
        return FailAt(
            line, Bilingual("the time does not rise: %1 is after %2 s; sort the rows, or set rate to count "
                            "the rows instead",
                            "die Zeit steigt nicht: %1 folgt auf %2 s; sortieren Sie die Zeilen, oder setzen "
                            "Sie rate, um stattdessen die Zeilen zu zählen")
                      .With({QuoteCell(column), last}));
    return FailAt(
        line,
        Bilingual("the times are not even: %1 is after %2 s, expected is %3 s at %4 rows per second; "
                  "set rate to count the rows instead",
                  "die Zeiten sind nicht gleichmäßig: %1 folgt auf %2 s, erwartet wird %3 s bei %4 Zeilen "
                  "je Sekunde; setzen Sie rate, um stattdessen die Zeilen zu zählen")
            .With({QuoteCell(column), last, tc::ShortestText(axis.Expected()), tc::ShortestText(rate)}));
}

bool TableReader::FailAt(std::int64_t atLine, const std::string& what) {
    if (failure.empty()) failure = Place(atLine) + ": " + what;
    return false;
}

std::string TableReader::Place(std::int64_t atLine) const {
    return Bilingual("%1, line %2", "%1, Zeile %2").With({path, std::to_string(atLine)});
}

// As much of it as a message can show.
std::string TableReader::QuoteCell(std::size_t column) const {
    constexpr std::size_t MOST = 40;
    std::string text = cells[column].substr(0, MOST);
    for (char& byte : text)
        if (static_cast<unsigned char>(byte) < ' ' || static_cast<unsigned char>(byte) >= 0x7F) byte = '?';
    return "'" + text + (cells[column].size() > MOST ? "...'" : "'");
}

std::vector<std::string> TableReader::Oddities() const {
    std::vector<std::string> lines;
    if (blanks.times > 0)
        lines.push_back(
            Bilingual("%1, column '%2': the first of %3 empty cells; they are not a number",
                      "%1, Spalte '%2': die erste von %3 leeren Zellen; sie gelten als keine Zahl")
                .With({Place(blanks.line), ColumnName(layout, blanks.column), std::to_string(blanks.times)}));
    return lines;
}
