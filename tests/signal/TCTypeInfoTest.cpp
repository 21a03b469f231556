#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>

#include "sigweave/platform/Archive.h"
#include "sigweave/signal/TCTypeInfo.h"

namespace {

TCTypeInfo Speed() {
    TCTypeInfo ti;
    ti.SetSignalname("abc");
    ti.SetTimestamp(1.7e12);
    ti.SetSamplerate(48000);
    ti.GetUnit().FromString("m s^-1 * 1e-003");
    ti.SetRangeMin(-10);
    ti.SetRangeMax(0.5);
    ti.SetState(STOP);
    return ti;
}

std::string Line(const TCTypeInfo& ti) {
    return static_cast<const char*>(ti.ConvertToString(-1));
}

std::string Record(const TCTypeInfo& ti) {
    std::string record(static_cast<std::size_t>(ti.SerializeWithStatus(nullptr)), '\0');
    ti.SerializeWithStatus(record.data());
    return record;
}

TEST(TCTypeInfo, ReadableLine) {
    TCTypeInfo ti = Speed();
    EXPECT_EQ(Line(ti),
              "State= 2 (STOP), Name= abc, TS= 1700000000000 (Tue Nov 14 22:13:20 2023), SR= 48000.0, "
              "Min= -10, Max= 0.5, Unit= m s^-1\r\n");
    EXPECT_EQ(ti.ConvertToString(10), "State= 2 (");
    ti.Init();
    EXPECT_EQ(Line(ti), "State= -1 (INVALID), Name= , TS= 0 (-), SR= 1.0, Min= 0, Max= 1, Unit= -\r\n");
    const struct {
        double timestamp;
        const char* text;
    } rows[] = {{999, "TS= 999 (-)"},
                {1000, "TS= 1000 (Thu Jan  1 00:00:01 1970)"},
                {-5000, "TS= -5000 ()"},
                {4e12, "TS= 4000000000000 ()"},
                {std::numeric_limits<double>::infinity(), "TS= inf ()"}};
    for (const auto& row : rows) {
        ti.SetTimestamp(row.timestamp);
        EXPECT_NE(Line(ti).find(row.text), std::string::npos) << Line(ti);
    }
}

TEST(TCTypeInfo, StatesHaveNames) {
    const char* names[] = {"INVALID", "START", "BUSY", "STOP", "COMPLETE"};
    for (int state = -1; state <= 3; ++state) {
        EXPECT_STREQ(TCTypeInfo::BlockStateToString(TCBLOCKSTATUS{state}), names[state + 1]);
        EXPECT_EQ(TCTypeInfo::StringToBlockState(names[state + 1]), state);
    }
    EXPECT_EQ(TCTypeInfo::StringToBlockState("busy"), BUSY);
    for (const char* none : {"UNKNOWN", "", " START"}) EXPECT_EQ(TCTypeInfo::StringToBlockState(none), -2);
    for (const int none : {-2, 4})
        EXPECT_STREQ(TCTypeInfo::BlockStateToString(static_cast<TCBLOCKSTATUS>(none)), "UNKNOWN");
}

TEST(TCTypeInfo, ReadableLineFollowsTheTimeZone) {
    TCTypeInfo ti = Speed();
    setenv("TZ", "EAST-3", 1);
    EXPECT_NE(Line(ti).find("(Wed Nov 15 01:13:20 2023)"), std::string::npos) << Line(ti);
    setenv("TZ", "UTC", 1);
    EXPECT_NE(Line(ti).find("(Tue Nov 14 22:13:20 2023)"), std::string::npos) << Line(ti);
}

TEST(TCTypeInfo, ArchiveForm) {
    std::stringstream text;
    CArchive storing(static_cast<std::ostream&>(text));
    Speed().Serialize(storing);
    EXPECT_EQ(text.str(), "1700000000000\n48000.000000\n1.000000e-03\nm s^-1\n-10\n0.5\nabc\n");
    TCTypeInfo loaded;
    loaded.SetState(BUSY);
    CArchive loading(static_cast<std::istream&>(text));
    loaded.Serialize(loading);
    EXPECT_EQ(loaded.GetState(), BUSY);
    loaded.SetState(STOP);
    EXPECT_EQ(Record(loaded), Record(Speed()));
}

TEST(TCTypeInfo, TextFormsGoOnAfterAZeroByteInTheName) {
    std::ostringstream text;
    CArchive storing(text);
    TCTypeInfo ti;
    ti.SetSignalnameString(std::string("a\0b", 3));
    ti.Serialize(storing);
    EXPECT_EQ(text.str(), "0\n1.000000\n1.000000e+00\n\n0\n1\na\n");
    EXPECT_EQ(Line(ti), "State= -1 (INVALID), Name= a, TS= 0 (-), SR= 1.0, Min= 0, Max= 1, Unit= -\r\n");
}

TEST(TCTypeInfo, ArchiveFormIsForgivingAboutUnitsOnly) {
    std::istringstream odd(" +5 ms\r\n1e400\n2\nno unit\n0\n1\n" + std::string(1000, 'n'));
    CArchive loading(odd);
    TCTypeInfo ti;
    ti.Serialize(loading);
    EXPECT_EQ(ti.GetTimestamp(), 5);
    EXPECT_EQ(ti.GetSamplerate(), HUGE_VAL);
    EXPECT_EQ(ti.GetUnit().GetFactor(), 2);
    EXPECT_EQ(ti.GetSignalnameString().size(), 1000u);
    for (const char* text : {"", "7\n8\nx\n", "7\n8\n1\n\n\n", "7\n8\n1\nm\n1\n"}) {
        std::istringstream damaged(text);
        CArchive archive(damaged);
        TCTypeInfo kept = Speed();
        try {
            kept.Serialize(archive);
            FAIL() << text;
        } catch (const CArchiveException& exception) {
            EXPECT_EQ(exception.m_cause, CArchiveException::endOfFile);
            EXPECT_EQ(kept.GetSamplerate(), *text == '7' ? 8 : 48000);
            EXPECT_EQ(kept.GetRangeMax(), 0.5);
        }
    }
}

TEST(TCTypeInfo, PackedRecord) {
    const std::string record = Record(Speed());
    ASSERT_EQ(record.size(), 62u);
    EXPECT_EQ(record.substr(0, 4), std::string("\x3A\0\0\0", 4));
    EXPECT_EQ(record.substr(28, 7), std::string("\1\0\xFF\0\0\0\0", 7));
    EXPECT_EQ(record.substr(51), std::string("\3\0\0\0abc\2\0\0\0", 11));
    TCTypeInfo read;
    read.DeSerializeWithStatus(TCString(record.data(), static_cast<int>(record.size())));
    EXPECT_EQ(Record(read), record);
}

}  // namespace
