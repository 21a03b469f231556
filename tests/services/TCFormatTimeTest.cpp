#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

#include "sigweave/services/TCFormatTime.h"

namespace {

// Seconds since 1970 as date(1) gives them; local times are those of Berlin.
constexpr double MARCH = 1709618889.012345 * 1000;  // Tuesday, 2024-03-05 07:08:09.012345
constexpr double HOUR = 3600e3;

class FormatTime : public testing::Test {
 protected:
    void SetUp() override {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
    void TearDown() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    static std::string Text(const char* format, double time, double reference = 0) {
        TCString text;
        return std::string(TCFormatTime::FormatTime(text, format, time, reference));
    }
};

TEST_F(FormatTime, WritesEachTokenOfATime) {
    EXPECT_EQ(Text("TCLogFile_%yyyy-%MM-%dd_%hh-%mm-%ss.%Us.txt", MARCH),
              "TCLogFile_2024-03-05_07-08-09.012345.txt");
    EXPECT_EQ(Text("%yy|%M|%d|%h|%m|%s|%Ms|%DoW|%DoY|%WoY|%isoWoY", MARCH), "24|3|5|7|8|9|012|2|64|09|10");
    EXPECT_EQ(Text("%MonDe %MonEn %MonFr %MDe %MEn %MFr", MARCH), "M\xE4rz March Mars M\xE4r Mar Mar");
    EXPECT_EQ(Text("%dayDe %dayEn %dayFr %dDe %dEn %dFr", MARCH), "Dienstag Tuesday Mardi Die Tue Mar");
    EXPECT_EQ(Text("%MonFr %MFr %MonDe", 1723676703e3), "Ao\xFBt Ao\xFB August");
    EXPECT_EQ(Text("%MonFr %MFr", 1709245800e3), "F\xE9vrier F\xE9v");
    EXPECT_EQ(Text("%aMs %aUs", 1709618889012.5), "1709618889013 1709618889012500");
    EXPECT_EQ(Text("%HH %H %PP", MARCH), "07 7 AM");
    EXPECT_EQ(Text("%HH %H %PP %h", MARCH + 6 * HOUR), "01 1 PM 13");
    EXPECT_EQ(Text("%HH %PP, %HH %PP", MARCH + 5 * HOUR), "12 PM, 12 PM");
    EXPECT_EQ(Text("%HH %PP %hh", MARCH - 7 * HOUR), "12 AM 00");
    EXPECT_EQ(Text("%h|%m|%s|%H|%hh|%mm|%ss|%Ms", 1709593200e3), "0|0|0|12|00|00|00|000") << "midnight";
}

TEST_F(FormatTime, LeavesWhatIsNoToken) {
    for (const char* plain : {"", "no token", "%", "a%", "%x", "% %y", "%i", "%\xE4%"})
        EXPECT_EQ(Text(plain, MARCH), plain);
    EXPECT_EQ(Text("100%% %x %y %isoWo %", MARCH), "100% %x %y %isoWo %");
    EXPECT_EQ(Text("%%mm %%%mm", MARCH), "%mm %08");
    EXPECT_EQ(Text("%Mon %dD %mmm", MARCH), "3on 5D 08m");
    EXPECT_EQ(Text(nullptr, MARCH), "");
    TCString self = "%yyyy";
    EXPECT_STREQ(TCFormatTime::FormatTime(self, self, MARCH, 0), "2024");
    EXPECT_EQ(Text(std::string(1000, 'x').append("%aUs").c_str(), 0), std::string(1000, 'x') + "0");
}

TEST_F(FormatTime, CutsToTheBuffer) {
    char buffer[] = "########";
    EXPECT_EQ(TCFormatTime::FormatTime(buffer, 5, "%yyyy-%MM", MARCH, 0), 4);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("2024\0###\0", 9));
    EXPECT_EQ(TCFormatTime::FormatTime(buffer, 4, "%yyyy-%MM", MARCH, 0), 3);
    EXPECT_STREQ(buffer, "202");
    EXPECT_EQ(TCFormatTime::FormatTime(buffer, 1, "%yyyy", MARCH, 0), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(TCFormatTime::FormatTime(buffer, 0, "%yyyy", MARCH, 0), 0);
    EXPECT_EQ(TCFormatTime::FormatTime(nullptr, 9, "%yyyy", MARCH, 0), 0);
}

TEST_F(FormatTime, CountsCenturiesBeforeTheFirst) {
    EXPECT_EQ(Text("%yy", -7e13), "51") << "the year -249";
}

TEST_F(FormatTime, KnowsWeeksAtTheTurnOfTheYear) {
    struct Row {
        double seconds;
        const char* text;
    };
    for (const Row& row : {Row{1104580800, "2005-01-01 00 53"}, Row{1104667200, "2005-01-02 01 53"},
                           Row{1199102400, "2007-12-31 52 01"}, Row{1262520000, "2010-01-03 01 53"},
                           Row{1609502400, "2021-01-01 00 53"}, Row{1735473600, "2024-12-29 52 52"}})
        EXPECT_EQ(Text("%yyyy-%MM-%dd %WoY %isoWoY", row.seconds * 1000), row.text);
}

TEST_F(FormatTime, FollowsSummerTime) {
    EXPECT_EQ(Text("%hh:%mm:%ss", 1711846799e3), "01:59:59");
    EXPECT_EQ(Text("%hh:%mm:%ss", 1711846800e3), "03:00:00");
    EXPECT_EQ(Text("%hh:%mm", 1729989000e3), "02:30");
    EXPECT_EQ(Text("%hh:%mm", 1729992600e3), "02:30");
}

TEST_F(FormatTime, ShowsDurationsFromAReference) {
    const double run = MARCH + 26.5 * HOUR + 1250;
    EXPECT_EQ(Text("%hh:%mm:%ss.%Ms", run, MARCH), "02:30:01.250");
    EXPECT_EQ(Text("%ad|%ah|%am|%as|%aMs", run, MARCH), "1|26|1590|95401|95401250");
    EXPECT_EQ(Text("%hh:%mm %ah %am", MARCH - 1.5 * HOUR, MARCH), "22:30 -1 -90");
    // The clock stood at midnight when the duration began, and jumps with the local one.
    EXPECT_EQ(Text("%hh:%mm %ah", 1711846800e3 + 3 * HOUR, 1711846800e3), "04:00 3");
}

TEST_F(FormatTime, RefusesTimesWithoutACalendar) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    struct Row {
        double time;
        double reference;
    };
    for (const Row& row : {Row{nan, 0}, Row{infinity, 0}, Row{-infinity, 0}, Row{1e300, 0}, Row{MARCH, nan},
                           Row{MARCH, infinity}, Row{1e22, MARCH}, Row{MARCH, -1e15}}) {
        EXPECT_EQ(Text("x%yyyy%aUs", row.time, row.reference), "");
        char buffer[] = "###";
        EXPECT_EQ(TCFormatTime::FormatTime(buffer, 4, "%yyyy", row.time, row.reference), 0);
        EXPECT_STREQ(buffer, "");
    }
    EXPECT_EQ(Text("%yyyy-%MM-%dd %hh:%mm:%ss.%Ms", -1500), "1970-01-01 00:59:59.000");
    EXPECT_EQ(Text("%ss.%Ms", 999.7), "00.1000");
}

TEST_F(FormatTime, KeepsAParsedFormat) {
    TCFormatTime format;
    EXPECT_TRUE(format.IsEmpty());
    EXPECT_EQ(format.CalcDiffTimeLow(MARCH + 5, MARCH), 5);
    format.SetFormatString("%%at %mm:%ss");
    const std::vector<TCFormatTime::TimeFormat> expected = {TCFormatTime::Percent, TCFormatTime::mm,
                                                            TCFormatTime::ss};
    EXPECT_EQ(format.GetTokens(), expected);
    EXPECT_EQ(format.GetSystem(), TCFormatTime::MINUTE);
    TCString text;
    EXPECT_STREQ(format.Format(text, MARCH, 0), "%at 08:09");
    char buffer[16];
    EXPECT_EQ(format.Format(buffer, sizeof buffer, MARCH, 0), 9);
    EXPECT_STREQ(buffer, "%at 08:09");
    EXPECT_STREQ(format.GetFormatString(), "%%at %mm:%ss");
    format.SetFormatString(nullptr);
    EXPECT_TRUE(format.IsEmpty() && format.GetTokens().empty());
}

TEST_F(FormatTime, RebuildsDurationsUpToTheFirstToken) {
    struct Row {
        const char* format;
        double duration;
    };
    const double run = std::floor(MARCH) + 25 * HOUR + 2 * 60e3 + 3500;
    for (const Row& row :
         {Row{"%Ms", 3500}, Row{"%s", 3500}, Row{"%mm:%hh", 123500}, Row{"%ah", HOUR + 123500},
          Row{"%d", 6 * 24 * HOUR + HOUR + 123500}, Row{"none", 25 * HOUR + 123500}}) {
        TCFormatTime format;
        format.SetFormatString(row.format);
        EXPECT_NEAR(format.CalcDiffTimeLow(run, std::floor(MARCH)), row.duration, 0.01) << row.format;
    }
}

}  // namespace
