#include "modules/table-file/TableLayout.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <optional>

#include "modules/table-file/NumberCell.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"
#include "sigweave/signal/UnitText.h"

namespace tc {

namespace {

constexpr std::size_t MOST_COLUMNS = 4096;
constexpr const char* SAMPLERATE_MARK = "samplerate";
constexpr const char* SPACING_MARK = "bin spacing";

bool IsTimeCell(const std::string& cell, TimeForm form) {
    TimeCell time;
    const char* const end = ReadTimeCell(cell.c_str(), form, time);
    return end != nullptr && *end == '\0';
}

bool IsValueCell(const std::string& cell, char point) {
    return IsNumberCell(cell, point) || IsTimeCell(cell, TimeForm::DATE) || IsTimeCell(cell, TimeForm::CLOCK);
}

std::string Lower(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char byte) { return std::tolower(byte); });
    return text;
}

// Names and units in the text of the file, which is UTF-8 or, where it is not, Latin-1.
std::string ToUtf8(const std::string& text) {
    const auto byte = [&](std::size_t at) {
        return static_cast<unsigned char>(at < text.size() ? text[at] : 0);
    };
    bool isUtf8 = true;
    for (std::size_t at = 0; at < text.size() && isUtf8;) {
        const std::size_t length = byte(at) < 0x80 ? 1 : byte(at) < 0xE0 ? 2 : byte(at) < 0xF0 ? 3 : 4;
        isUtf8 = byte(at) < 0x80 || (byte(at) >= 0xC2 && byte(at) < 0xF5);
        for (std::size_t i = 1; i < length; ++i) isUtf8 = isUtf8 && (byte(at + i) & 0xC0) == 0x80;
        at += length;
    }
    if (isUtf8) return text;
    std::string converted;
    for (const char each : text) {
        const auto code = static_cast<unsigned char>(each);
        if (code < 0x80)
            converted += each;
        else
            converted.append(
                {static_cast<char>(0xC0 | (code >> 6)), static_cast<char>(0x80 | (code & 0x3F))});
    }
    return converted;
}

// "voltage [mV]", "time (s)": the name without the unit in brackets, which is one.
void SplitName(std::string& name, std::string& unit) {
    constexpr struct { char open, close; } BRACKETS[] = {{'[', ']'}, {'(', ')'}};
    for (const auto& bracket : BRACKETS) {
        const std::size_t open = name.rfind(bracket.open);
        if (name.empty() || name.back() != bracket.close || open == name.npos || open == 0) continue;
        const std::string inside = name.substr(open + 1, name.size() - open - 2);
        UnitMeaning ignored;
        CString error;
        if (!ReadUnit(inside, ignored, error)) continue;
        unit = inside;
        name.resize(open);
        while (!name.empty() && name.back() == ' ') name.pop_back();
        return;
    }
}

// A list with commas.
std::vector<std::string> SplitList(const std::string& text) {
    std::vector<std::string> parts;
    if (!text.empty()) SplitRow(text, ',', parts);
    return parts;
}

class Finder {
 public:
    Finder(const std::vector<TableRow>& headRows, const TableSettings& given, TableLayout& found)
        : rows(headRows), settings(given), layout(found) {}

    bool Find(std::string& error) {
        FindSeparator();
        Split();
        if (!FindFirstNumbers(error)) return false;
        FindHeader();
        FindTime(error);
        if (error.empty()) ReadUnits(error);
        if (error.empty()) ChooseColumns(error);
        return error.empty();
    }

 private:
    // The separator and the decimal sign that make most cells numbers.
    void FindSeparator() {
        constexpr struct {
            char separator, point;
        } CANDIDATES[] = {{';', '.'}, {';', ','}, {'\t', '.'}, {'\t', ','},
                          {',', '.'}, {' ', '.'}, {' ', ','}};
        std::optional<long> best;
        for (const auto& each : CANDIDATES) {
            if (settings.separator != '\0' && settings.separator != each.separator) continue;
            if (settings.point != '\0' && settings.point != each.point) continue;
            const long score = Score(each.separator, each.point);
            if (best && score <= *best) continue;
            best = score;
            layout.separator = each.separator;
            layout.point = each.point;
        }
        if (best) return;  // else the user wants a comma for both
        layout.separator = settings.separator;
        layout.point = settings.point;
    }

    // Numbers less texts, from the first row with a number on.
    long Score(char separator, char point) const {
        constexpr std::size_t ENOUGH = 100;
        long score = 0;
        bool hasBegun = false;
        std::vector<std::string> parts;
        for (std::size_t i = rows.size() > ENOUGH ? rows.size() - ENOUGH : 0; i < rows.size(); ++i) {
            SplitRow(rows[i].text, separator, parts);
            long ofRow = 0;
            for (const std::string& cell : parts) {
                const bool isValue = IsValueCell(cell, point);
                hasBegun = hasBegun || isValue;
                if (!cell.empty()) ofRow += isValue ? 1 : -1;
            }
            score += hasBegun ? ofRow : 0;
        }
        return score;
    }

    void Split() {
        cells.resize(rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i) SplitRow(rows[i].text, layout.separator, cells[i]);
        for (std::size_t i = rows.size() / 2; i < rows.size(); ++i) {
            holdsNumbers.resize(std::max(holdsNumbers.size(), cells[i].size()));
            for (std::size_t c = 0; c < cells[i].size(); ++c)
                if (!cells[i][c].empty()) holdsNumbers[c] += IsValueCell(cells[i][c], layout.point) ? 1 : -1;
        }
    }

    // The first row whose cells are numbers wherever those of later rows are.
    bool IsRowOfNumbers(const std::vector<std::string>& row) const {
        int numbers = 0;
        for (std::size_t c = 0; c < row.size() && c < holdsNumbers.size(); ++c) {
            if (row[c].empty()) continue;
            const bool isNumber = IsValueCell(row[c], layout.point);
            if (!isNumber && holdsNumbers[c] > 0) return false;
            numbers += isNumber ? 1 : 0;
        }
        return numbers > 0;
    }

    bool FindFirstNumbers(std::string& error) {
        using Header = TableSettings::Header;
        const auto found = std::ranges::find_if(
            cells, [&](const std::vector<std::string>& row) { return IsRowOfNumbers(row); });
        first = static_cast<std::size_t>(found - cells.begin());
        if (settings.header != Header::FOUND) first = static_cast<std::size_t>(settings.header) - 1;
        if (first >= rows.size()) {
            error = Bilingual(
                        "there are no rows of numbers below the header; name the separator and the decimal "
                        "sign, or the rows of the header",
                        "unter dem Kopf stehen keine Zeilen mit Zahlen; nennen Sie das Trennzeichen und das "
                        "Dezimalzeichen oder die Zeilen des Kopfs")
                        .Text();
            return false;
        }
        if (cells[first].size() > MOST_COLUMNS) {
            error = Bilingual("there are %1 columns; at most %2 can be read",
                              "die Tabelle hat %1 Spalten; höchstens %2 sind lesbar")
                        .With({std::to_string(cells[first].size()), std::to_string(MOST_COLUMNS)});
            return false;
        }
        layout.columns.resize(cells[first].size());
        return true;
    }

    // The rows right above the numbers that have as many cells, at most three.
    int HeaderRows() const {
        int count = 0;
        while (count < 3 && static_cast<std::size_t>(count) < first &&
               cells[first - static_cast<std::size_t>(count) - 1].size() == layout.columns.size())
            ++count;
        return count;
    }

    static bool IsUnit(const std::string& text) {
        UnitMeaning ignored;
        CString error;
        return !text.empty() && ReadUnit(text, ignored, error);
    }

    bool HasUnits(std::size_t row) const {
        return std::ranges::any_of(cells[row], IsUnit) ||
               std::ranges::all_of(cells[row], [](const std::string& cell) { return cell.empty(); });
    }

    void FindHeader() {
        using Header = TableSettings::Header;
        int count = HeaderRows();
        const std::string mark = count == 3 ? cells[first - 1].front() : std::string();
        const bool isMarked = mark == SAMPLERATE_MARK || mark == SPACING_MARK;
        if (settings.header != Header::FOUND)
            count = static_cast<int>(settings.header) - 1;
        else if (count == 3 && !isMarked)
            count = 2;
        if (settings.header == Header::FOUND && count == 2 && !HasUnits(first - 1)) count = 1;
        layout.isOwn = isMarked || settings.header == Header::NAMES_UNITS_RATES;
        layout.isSpectrum = mark == SPACING_MARK;
        if (settings.header == Header::FOUND && count == 2 && IsOwnWithoutAxis()) {
            layout.isOwn = true;
            ++first;
            ++count;
        }
        if (first >= rows.size()) --first;  // nothing but the rates
        layout.firstLine = rows[first].line;
        const std::size_t top =
            first - static_cast<std::size_t>(std::min<std::size_t>(static_cast<std::size_t>(count), first));
        names.resize(layout.columns.size());
        units.resize(layout.columns.size());
        for (std::size_t c = 0; c < layout.columns.size(); ++c) {
            const auto cell = [&](int row) {
                const std::vector<std::string>& of = cells[top + static_cast<std::size_t>(row)];
                return row < count && c < of.size() ? ToUtf8(of[c]) : std::string();
            };
            names[c] = cell(0);
            units[c] = cell(1);
            if (count == 1) SplitName(names[c], units[c]);
            if (layout.isOwn && count == 3) ReadOwnRate(c, cell(2));
            layout.columns[c].name = names[c];
        }
    }

    // Names and units, no time, and then a row of samplerates: what CsvWriter writes where the rates differ.
    bool IsOwnWithoutAxis() const {
        if (settings.rate > 0.0 || layout.isOwn || !settings.time.empty() ||
            IsTimeName(cells[first - 2].front()))
            return false;
        return std::ranges::all_of(cells[first], [&](const std::string& cell) {
            return cell.empty() || (IsNumberCell(cell, '.') && cell.front() != '-');
        });
    }

    void ReadOwnRate(std::size_t column, const std::string& cell) {
        double number = 0.0;
        if (!IsNumberCell(cell, '.')) return;
        ReadNumberCell(cell.c_str(), '.', number);
        layout.columns[column].rate = layout.isSpectrum ? 1.0 / number : number;
    }

    static bool IsTimeName(const std::string& written) {
        constexpr const char* NAMES[] = {"time",      "zeit",    "t",        "timestamp", "date",
                                         "datum",     "seconds", "elapsed",  "datetime",  "date/time",
                                         "zeitpunkt", "uhrzeit", "date time"};
        const std::string lower = Lower(written);
        const std::string name = lower.substr(0, lower.find_first_of("[(_"));
        const std::string trimmed = name.substr(0, name.find_last_not_of(' ') + 1);
        return std::ranges::find(NAMES, trimmed) != std::end(NAMES);
    }

    void FindTime(std::string& error) {
        if (settings.time == "none") return;
        const bool isGiven = !settings.time.empty();
        if (isGiven) {
            layout.timeColumn = FindColumn("time", settings.time, error);
            if (!error.empty()) return;
        } else if (layout.isOwn ? names[0] == "time" || names[0] == "frequency" : IsTimeName(names[0])) {
            layout.timeColumn = 0;
        }
        for (const TimeForm form : {TimeForm::DATE, TimeForm::CLOCK}) {
            if (!isGiven && layout.timeColumn < 0 && IsTimeCell(cells[first][0], form)) layout.timeColumn = 0;
            if (layout.timeColumn >= 0 && static_cast<std::size_t>(layout.timeColumn) < cells[first].size() &&
                IsTimeCell(cells[first][static_cast<std::size_t>(layout.timeColumn)], form))
                layout.timeForm = form;
        }
        if (layout.timeColumn < 0) return;
        layout.columns[static_cast<std::size_t>(layout.timeColumn)].use = TableLayout::Use::TIME;
        ReadTimeUnit(units[static_cast<std::size_t>(layout.timeColumn)]);
    }

    void ReadTimeUnit(const std::string& text) {
        UnitMeaning meaning;
        CString error;
        if (text.empty() || layout.isSpectrum || !ReadUnit(text, meaning, error)) return;
        if (meaning.unit.GetExponent(TCSI_Unit::SECOND) == 1) layout.timeUnit = meaning.Factor();
    }

    // By its name, else by its number; -1 with the error when there is none.
    int FindColumn(const char* parameter, const std::string& wanted, std::string& error) const {
        const auto found = std::ranges::find(names, wanted);
        if (found != names.end()) return static_cast<int>(found - names.begin());
        char* end = nullptr;
        const long number = std::strtol(wanted.c_str(), &end, 10);
        if (*end == '\0' && number >= 1 && number <= static_cast<long>(names.size()))
            return static_cast<int>(number) - 1;
        CStringArray known;
        for (const std::string& name : names)
            if (!name.empty()) known.push_back(name);
        error = NotValid(parameter, wanted,
                         Bilingual("the name of a column or a number from 1 to %1",
                                   "der Name einer Spalte oder eine Zahl von 1 bis %1")
                             .With({std::to_string(names.size())})) +
                (known.empty() ? "" : "; " + SuggestNames(wanted, known));
        return -1;
    }

    void ReadUnits(std::string& error) {
        const std::vector<std::string> given = SplitList(settings.units);
        std::size_t next = 0;
        for (std::size_t c = 0; c < units.size() && error.empty(); ++c) {
            if (layout.columns[c].use == TableLayout::Use::TIME) continue;
            const bool isGiven = !given.empty();
            if (isGiven) units[c] = given.size() == 1 ? given[0] : next < given.size() ? given[next] : "";
            ++next;
            UnitMeaning meaning;
            CString reason;
            if (ReadUnit(units[c], meaning, reason)) {
                layout.columns[c].unit = meaning.unit;
                layout.columns[c].unit.SetFactor(meaning.Factor());
                layout.columns[c].offset = meaning.offset;
            } else if (isGiven) {
                error = NotValid("units", units[c],
                                 Bilingual("units between commas, as V, mV, m/s^2",
                                           "Einheiten zwischen Kommas, wie V, mV, m/s^2")
                                     .Text());
            } else {
                layout.remarks.push_back(
                    Bilingual("units: '%1' of the column '%2' is no unit that is known; the signal has none",
                              "units: '%1' der Spalte '%2' ist keine bekannte Einheit; das Signal hat keine")
                        .With({units[c], ColumnName(layout, c)}));
            }
        }
    }

    void ChooseColumns(std::string& error) {
        const std::vector<std::string> given = SplitList(settings.columns);
        for (const std::string& wanted : given) {
            const int column = FindColumn("columns", wanted, error);
            if (column < 0) return;
            if (column != layout.timeColumn)
                layout.columns[static_cast<std::size_t>(column)].use = TableLayout::Use::VALUES;
        }
        std::string left;
        for (std::size_t c = 0; c < layout.columns.size() && given.empty(); ++c) {
            if (layout.columns[c].use == TableLayout::Use::TIME) continue;
            const int weight = c < holdsNumbers.size() ? holdsNumbers[c] : 0;
            if (weight > 0 || (weight == 0 && !names[c].empty()))
                layout.columns[c].use = TableLayout::Use::VALUES;
            else if (weight < 0)
                left += (left.empty() ? "'" : ", '") + ColumnName(layout, c) + "'";
        }
        if (!left.empty())
            layout.remarks.push_back(Bilingual("columns: %1 hold no numbers and are left out",
                                               "columns: %1 enthalten keine Zahlen und entfallen")
                                         .With({left}));
        if (std::ranges::none_of(layout.columns, [](const TableLayout::Column& column) {
                return column.use == TableLayout::Use::VALUES;
            }))
            error = Bilingual(
                        "there is no column of values beside the time; set time=none if it is one",
                        "neben der Zeit gibt es keine Spalte mit Werten; setzen Sie time=none, wenn sie eine "
                        "ist")
                        .Text();
    }

    const std::vector<TableRow>& rows;
    const TableSettings& settings;
    TableLayout& layout;
    std::vector<std::vector<std::string>> cells;  // of each row
    std::vector<int> holdsNumbers;                // by column: numbers less texts, of the later rows
    std::size_t first = 0;                        // the first row of numbers
    std::vector<std::string> names;
    std::vector<std::string> units;
};

}  // namespace

bool FindLayout(const std::vector<TableRow>& rows, const TableSettings& settings, TableLayout& layout,
                std::string& error) {
    layout = {};
    error.clear();
    return Finder(rows, settings, layout).Find(error);
}

bool IsNumberCell(const std::string& cell, char point) {
    double ignored = 0.0;
    const char* const end = cell.empty() ? nullptr : ReadNumberCell(cell.c_str(), point, ignored);
    return end != nullptr && *end == '\0';
}

std::string ColumnName(const TableLayout& layout, std::size_t column) {
    const std::string& name = layout.columns[column].name;
    return name.empty() ? std::to_string(column + 1) : name;
}

}  // namespace tc
