#include <gmock/gmock.h>
#include <zlib.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "modules/table-file/NumberCell.h"
#include "modules/table-file/TimeAxis.h"
#include "tests/support/ModuleBench.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NONE = std::numeric_limits<double>::quiet_NaN();

std::string WriteTable(const std::string& text, const std::string& name = "table.csv") {
    const std::string path = FreshFile(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

// A module that is set to the file, with its first outputs wired.
struct Table : ModuleBench {
    explicit Table(const std::string& path, const std::string& settings = "", int wired = 1)
        : ModuleBench("table-file", "TableFile"), opened(Set("file=\"" + path + "\"\n" + settings)) {
        for (int i = 0; opened && i < wired; ++i) WireOutput(i);
    }
    std::string Unit(int output) {
        TCString text;
        return Blocks(output)[0].GetUnit().ToString(text);
    }
    bool opened;
};

TEST(TableFile, FindsTheForm) {
    const struct {
        const char *form, *text, *settings;
        double rate;
        const char* unit;
        std::vector<double> values;
    } rows[] = {
        {"names", "time,a\n0,1.5\n0.125,-2e3\n0.25,+3\n", "", 8, "", {1.5, -2000, 3}},
        {"units in a row", "t;a\nms;mV\n0;1,5\n2;2,5\n4;3,5\n", "", 500, "V * 1e-003", {1.5, 2.5, 3.5}},
        {"units in names", "Time (ms)\ta [m/s²]\r\n0\t1\r\n4\t2\r\n", "", 250, "m s^-2", {1, 2}},
        {"no header", "1,2\n3,4\n", "rate=10", 10, "", {1, 3}},
        {"one column", "1\n2\n3\n", "rate=2 kHz", 2000, "", {1, 2, 3}},
        {"blanks", "  t   a\n 0.0   7\n 0.5 \t 8\n 1.0  9\n", "", 2, "", {7, 8, 9}},
        {"a preamble", "Logger 7\nserial;12\n\nZeit;Kanal 1\ns;V\n0;1\n1;2\n2;3\n", "", 1, "V", {1, 2, 3}},
        {"comments", "# a\ntime,a\n0,1\n# b\n1,2\n\n2,3", "", 1, "", {1, 2, 3}},
        {"skipped lines", "1,2\n3,4\n5,6\n", "skip=1\nheader=none\nrate=1", 1, "", {3, 5}},
        {"numbers as names", "time,1,2\n0,5,6\n1,7,8\n", "columns=2", 1, "", {6, 8}},
        {"dates",
         "a,date\n1,2026-03-01T12:00:00.5Z\n2,2026-03-01 13:00:00.75+01:00\n",
         "time=date",
         4,
         "",
         {1, 2}},
        {"German dates", "Datum;a\n01.03.2026 23:59:59,9;1\n02.03.2026 00:00:00,0;2\n", "", 10, "", {1, 2}},
        {"clock", "time,a\n23:59:58,1\n23:59:59,2\n00:00:00,3\n", "", 1, "", {1, 2, 3}},
        {"quotes", "\"time\",\"a, \"\"b\"\" \nc\"\n\"0\",\"1\"\n\"1\",2\n", "", 1, "", {1, 2}},
        {"byte order mark, old line ends", "\xEF\xBB\xBFtime,a\r0,1\r1,2\r", "", 1, "", {1, 2}},
        {"Latin-1", "time,a\ns,\xB5V\n0,1\n1,2\n", "", 1, "V * 1e-006", {1, 2}},
        {"texts", "time,state,a\n0,ok,1\n1,bad,2\n", "", 1, "", {1, 2}},
        {"a separator too many", "time,a,\n0,1,\n1,2,\n", "", 1, "", {1, 2}},
        {"no time", "time,a\n5,1\n3,2\n", "rate=9\nunits=°C", 9, "K", {274.15, 275.15}},
        {"not finite", "time,a\n0,NaN\n1,-inf\n2,1e999\n3,-1e-999\n", "", 1, "", {NONE, -INF, INF, -0.0}},
        {"empty cells", "time,a,b\n0,,1\n1,2,2\n2,,3\n", "", 1, "", {NONE, 2, NONE}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.form);
        Table table(WriteTable(row.text), row.settings);
        ASSERT_TRUE(table.opened && table.Run()) << table.Error();
        EXPECT_THAT(table.Samples(0), testing::Pointwise(testing::NanSensitiveDoubleEq(), row.values));
        EXPECT_EQ(table.Blocks(0)[0].GetSamplerate(), row.rate);
        EXPECT_EQ(table.Unit(0), row.unit);
        EXPECT_EQ(table.States(0), "COMPLETE");
    }
    EXPECT_THAT(
        ModuleBench::TakeWarnings(),
        HasSubstr("table.csv, line 2, column 'a': the first of 2 empty cells; they are not a number"));
}

TEST(TableFile, NamesAndStartsItsSignals) {
    Table table(
        WriteTable("time,a,a,,Channels\n2026-03-01T12:00:00Z,1,2,3,4\n2026-03-01T12:00:01Z,1,2,3,4\n"), "",
        4);
    ASSERT_TRUE(table.Run()) << table.Error();
    std::vector<std::string> names;
    for (int i = 0; i < 5; ++i) names.emplace_back(table.Module().GetOutputName(i));
    EXPECT_THAT(names, ElementsAre("a", "a 2", "Column 3", "Channels 2", "Channels"));
    EXPECT_EQ(table.Blocks(0)[0].GetTimestamp(), 1772366400000.0);
    EXPECT_STREQ(table.Blocks(1)[0].GetSignalname(), "a 2");
    Table numbered(WriteTable("time,a\n1772366400.5,1\n1772366401.5,2\n"));
    ASSERT_TRUE(numbered.Run());
    EXPECT_EQ(numbered.Blocks(0)[0].GetTimestamp(), 1772366400500.0);
}

// Each row: what `check` says of the head, or the run of what comes later.
TEST(TableFile, SaysWhatIsWrongAndWhere) {
    const struct {
        const char *text, *settings, *message;
    } rows[] = {
        {"", "", "table.csv is empty"},
        {"\n\n", "", "no rows of numbers"},
        {"words\nand more\n", "", "no rows of numbers below the header"},
        {"a,b\n1,2\n", "",
         "rate: '0' is not valid for a table without a column of times; expected rows per second"},
        {"time,a\n1,2\n1,2\n", "", "rate: '0' is not valid for a table whose times do not rise"},
        {"time,a\n0,1\n1,2\n2,x\n", "",
         "table.csv, line 4: column 'a': 'x' is no number with the decimal sign '.'; correct it, or leave "
         "the column"},
        {"time,a\n0,1\n1,2\n2\n", "", "line 4: the row has 1 cells and the table 2 columns"},
        {"time,a\n0,1\n1,2\n2,3,4\n", "", "line 4: the row has 3 cells"},
        {"time,a\n0,1\n1,2\n2,\"3\n3,4\n", "", "line 4: a quotation mark is not closed"},
        {"time,a\n0,1\n1,1\n2,1\n3.6,1\n4,1\n", "",
         "line 5: the times are not even: '3.6' is after 2 s, expected is 3 s at 1 rows per second; set "
         "rate"},
        {"time,a\n0,1\n1,1\n0.5,1\n3,1\n", "", "line 4: the time does not rise: '0.5' is after 1 s; sort"},
        {"time,a\n0,1\n1,1\nsoon,1\n3,1\n", "",
         "line 4: column 'time': 'soon' is no time like that of the first"},
        {"\xFF\xFEt\0a", "", "is in UTF-16; save it in UTF-8"},
        {"time,volt,amp\n0,1,2\n1,2,3\n", "columns=volts",
         "columns: 'volts' is not valid; expected the name of a column or a "
         "number from 1 to 3; did you mean 'volt'?"},
        {"time,a\n0,1\n1,2\n", "time=x", "time: 'x' is not valid"},
        {"time,a\n0,1\n1,2\n", "units=furlong",
         "units: 'furlong' is not valid; expected units between commas"},
        {"time,a\n0,1\n1,2\n", "skip=9", "skip: '9' is not valid; expected fewer lines than the file has"},
        {"time\n0\n1\n", "", "no column of values beside the time"},
        {"time,a\n0,1\n1,2\n", "start=now", "start: 'now' is not valid"},
    };
    for (const auto& row : rows) {
        Table table(WriteTable(row.text), row.settings);
        EXPECT_FALSE(table.opened) << row.text;
        EXPECT_THAT(table.Error(), HasSubstr(row.message)) << row.text;
    }
    for (const auto& [name, reason] :
         {std::pair("missing.csv", "does not exist"), std::pair(".", "is a folder"),
          std::pair("/dev/null", "is a pipe or a device")})
        EXPECT_THAT(Table(name).Error(), HasSubstr(reason));
}

// Two rows are missing after the third, and the last ones begin anew at a time of their own.
TEST(TableFile, EndsItsSignalsWhereRowsAreMissing) {
    const struct {
        const char *text, *settings;
    } rows[] = {{"time,a\n0,1\n1,2\n2,3\n5,4\n6,5\n21.3,6\n22.3,7\n", "start=2026-03-01\n"},
                {"time,a,b\ns,,\nsamplerate,1,1\n0,1,9\n1,2,\n2,3,\n5,4,\n6,5,\n21.3,6,\n22.3,7,\n",
                 "start=2026-03-01\n"},
                {"t;a\n01.03.2026 00:00:00;1\n01.03.2026 00:00:01;2\n01.03.2026 00:00:02;3\n"
                 "01.03.2026 00:00:05;4\n01.03.2026 00:00:06;5\n"
                 "01.03.2026 00:00:21,3;6\n01.03.2026 00:00:22,3;7\n",
                 ""}};
    const double start = 1772323200e3;  // date -u -d 2026-03-01 +%s
    for (const auto& row : rows)
        for (const int block : {1, 2, 3, 1000}) {
            Table table(WriteTable(row.text), row.settings + ("block=" + std::to_string(block)));
            ASSERT_TRUE(table.opened && table.Run()) << table.Error() << row.text;
            EXPECT_EQ(table.Samples(0), (std::vector<double>{1, 2, 3, 4, 5, 6, 7}));
            EXPECT_EQ(table.Module().GetGaps().count, 2) << row.text;
            EXPECT_EQ(table.Module().GetGaps().samples, 2 + 14);
            EXPECT_EQ(table.Module().GetGaps().first, start + 3000.0);
            std::vector<double> begins;
            int ends = 0;
            for (const TCTypeInfo& ti : table.Blocks(0)) {
                if (ti.GetState() == START || ti.GetState() == COMPLETE) begins.push_back(ti.GetTimestamp());
                ends += ti.GetState() == STOP || ti.GetState() == COMPLETE ? 1 : 0;
            }
            EXPECT_EQ(begins, (std::vector<double>{start, start + 5000.0, start + 21300.0}))
                << row.text << block;
            EXPECT_EQ(ends, 3);
        }
}

std::string ManyRows(int count) {
    std::string text = "time,a,b\n";
    for (int i = 0; i < count; ++i) text += std::to_string(i) + "," + std::to_string(i * 3) + ",0.5\n";
    return text;
}

TEST(TableFile, RefusesAFileThatHasChangedSinceItWasChecked) {
    const std::string path = WriteTable("time,a\n0,1\n1,2\n");
    Table table(path);
    for (const char* text : {"time,a\n0,1\n0.5,2\n", "time,a,b\n0,1,1\n1,2,2\n"}) {
        std::ofstream(path, std::ios::binary) << text;
        EXPECT_FALSE(table.Start()) << text;
        EXPECT_THAT(table.Error(), HasSubstr("has changed since it was checked"));
    }
}

TEST(TableFile, DeliversWhatIsBeforeAMistake) {
    Table table(WriteTable(ManyRows(200000) + "200000,oops,1\n"), "block=1000");
    ASSERT_TRUE(table.opened);
    EXPECT_FALSE(table.Run());
    EXPECT_THAT(table.Error(), HasSubstr("table.csv, line 200002: column 'a': 'oops' is no number"));
    ASSERT_EQ(table.Samples(0).size(), 200000U);
    EXPECT_EQ(table.Samples(0)[199999], 599997.0);
    EXPECT_THAT(table.States(0), testing::MatchesRegex("START( BUSY)+ STOP"));
    EXPECT_EQ(table.Blocks(0)[2].GetTimestamp() - table.Blocks(0)[0].GetTimestamp(), 2e6);
}

TEST(TableFile, ReadsGzipAndSaysWhereItBreaksOff) {
    const std::string text = ManyRows(300000);
    const std::string path = FreshFile("table.csv.gz");
    const gzFile file = gzopen(path.c_str(), "wb1");
    gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
    gzclose(file);
    Table whole(path, "block=4096", 2);
    ASSERT_TRUE(whole.opened && whole.Run()) << whole.Error();
    EXPECT_EQ(whole.Samples(1).size(), 300000U);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    Table cut(path);
    ASSERT_TRUE(cut.opened);
    EXPECT_FALSE(cut.Run());
    EXPECT_THAT(cut.Error(),
                AllOf(HasSubstr("table.csv.gz breaks off or is damaged"), HasSubstr("copy it again")));
    EXPECT_GT(cut.Samples(0).size(), 50000U);
}

// Names with everything that is quoted, two signals of different lengths, values to the last digit.
TEST(TableFile, TakesBackWhatCsvWriterWrote) {
    const struct {
        const char* settings;
        double rates[2];
    } rows[] = {
        {"", {48000, 48000}}, {"separator=semicolon", {44100, 44100}}, {"", {8000, 3}}, {"time=no", {7, 7}}};
    const std::vector<double> a = {0.1, -1e-300, 1.0 / 3.0, NONE, INF}, b = {5e-324, 1.7976931348623157e308};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.settings) + std::to_string(row.rates[1]));
        ModuleBench writer("csv-writer", "CsvWriter");
        const std::string path = FreshFile("own.csv");
        ASSERT_TRUE(writer.Set("file=" + path + "\n" + row.settings));
        writer.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
        const TestSignal first{"a, \"b\"\nc", row.rates[0], "V * 1e-003", 0},
            second{"d", row.rates[1], "m s^-2", 0};
        ASSERT_TRUE(writer.Start() && writer.Feed(0, a, first) && writer.Feed(1, b, second) &&
                    writer.Finish());
        Table table(path, "", 2);
        ASSERT_TRUE(table.opened && table.Run()) << table.Error();
        EXPECT_THAT(table.Samples(0), testing::Pointwise(testing::NanSensitiveDoubleEq(), a));
        EXPECT_EQ(table.Samples(1), b);
        EXPECT_EQ(table.Unit(0) + "|" + table.Unit(1), "V * 1e-003|m s^-2");
        EXPECT_STREQ(table.Blocks(0)[0].GetSignalname(), "a, \"b\"\nc");
        for (int i : {0, 1}) EXPECT_EQ(table.Blocks(i)[0].GetSamplerate(), row.rates[i]);
    }
    EXPECT_EQ(ModuleBench::TakeWarnings(), "");
}

TEST(TableFile, TakesBackSignalsThatFollowEachOther) {
    Table table(WriteTable("time,a\ns,V\nsamplerate,4\n0,1\n0.25,2\n0,3\n0.25,4\n0.5,5\n"));
    ASSERT_TRUE(table.opened && table.Run()) << table.Error();
    EXPECT_EQ(table.States(0), "COMPLETE COMPLETE");
    EXPECT_THAT(table.Samples(0), ElementsAre(1, 2, 3, 4, 5));
    Table spectrum(WriteTable("frequency,a\nHz,V\nbin spacing,0.5\n0,1\n0.5,2\n1,3\n"));
    ASSERT_TRUE(spectrum.opened && spectrum.Run()) << spectrum.Error();
    EXPECT_EQ(spectrum.Blocks(0)[0].GetSamplerate(), 2.0);
    const char* type = nullptr;
    int count = 0;
    spectrum.Module().GetPortType(OUTPUT, 0, type, count);
    EXPECT_THAT(type, HasSubstr("FREQ_DOMAIN"));
}

// By the C library: all lengths, signs and exponents.
TEST(NumberCell, IsCorrectlyRounded) {
    std::mt19937_64 random(7);
    const auto upTo = [&](std::uint64_t limit) { return random() % limit; };
    for (int i = 0; i < 200000; ++i) {
        std::string text = upTo(3) == 0 ? "-" : upTo(9) == 0 ? "+" : "";
        const std::string digits =
            std::to_string(random()).substr(0, 1 + upTo(20)) + (upTo(50) == 0 ? std::string(70, '7') : "");
        const std::size_t point = upTo(digits.size() + 1);
        text += digits.substr(0, point) + (upTo(4) != 0 ? "." + digits.substr(point) : "");
        if (text.find_first_of("0123456789") == text.npos) text += "0";
        if (upTo(3) == 0) text += (upTo(2) == 0 ? "e" : "E-") + std::to_string(upTo(340));
        double value = 0.0;
        const char* const end = tc::ReadNumberCell(text.c_str(), '.', value);
        ASSERT_TRUE(end != nullptr && *end == '\0') << text;
        ASSERT_EQ(value, std::strtod(text.c_str(), nullptr)) << text;
        if (const std::size_t at = text.find('.'); at != text.npos) text[at] = ',';
        double withComma = 0.0;
        ASSERT_NE(tc::ReadNumberCell(text.c_str(), ',', withComma), nullptr);
        ASSERT_EQ(withComma, value) << text;
    }
    double ignored = 0.0;
    for (const char* text : {"", "-", "+-1", ".", "e5", "x", "--1"})
        EXPECT_EQ(tc::ReadNumberCell(text, '.', ignored), nullptr) << text;
}

TEST(TimeAxis, FindsTheSimplestRate) {
    const struct {
        double rate, resolution;
    } rows[] = {{48000, 1e-6},     {44100, 1e-9}, {1024, 1e-3}, {0.1, 1},
                {10.0 / 3.0, 0.1}, {1 / 60.0, 1}, {1e7, 1e-9}};
    for (const auto& row : rows) {
        std::vector<double> times(1000);
        for (std::size_t i = 0; i < times.size(); ++i)
            times[i] = std::round((5 + static_cast<double>(i) / row.rate) / row.resolution) * row.resolution;
        tc::TimeAxis axis;
        ASSERT_TRUE(axis.Learn(times, row.resolution));
        EXPECT_DOUBLE_EQ(axis.Samplerate(), row.rate);
        for (const double time : times) ASSERT_EQ(axis.Check(time), tc::TimeAxis::Step::EVEN) << row.rate;
        const double later = times.back() + 501.0 / row.rate;
        EXPECT_EQ(axis.Look(later), tc::TimeAxis::Step::GAP);
        EXPECT_EQ(axis.Missing(later), 500);
        // The same with a gap among the times.
        for (std::size_t i = 0; i < times.size(); ++i)
            times[i] =
                std::round((5 + static_cast<double>(i < 600 ? i : i + 1237) / row.rate) / row.resolution) *
                row.resolution;
        ASSERT_TRUE(axis.Learn(times, row.resolution));
        EXPECT_NEAR(axis.Samplerate() / row.rate, 1.0, 1e-3) << row.rate;
    }
}

}  // namespace
