#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "sigweave/persistence/TCSerializeHelper.h"
#include "sigweave/persistence/TCSerializeOldStream.h"
#include "tests/support/Allocations.h"

namespace {

using namespace std::string_literals;

using Packed = TCSerializeHelper;
using Token = TCSerializeOldStream;

TCTypeInfo Sample() {
    TCTypeInfo info;
    info.SetSignalnameString("a\0b\xFF"s);
    info.SetTimestamp(1.5e12);
    info.SetSamplerate(48000.0);
    info.SetRangeMin(-0.0);
    info.SetRangeMax(1e-310);
    info.GetUnit().SetFactor(0.001);
    info.GetUnit().SetExponent(TCSI_Unit::METRE, 2);
    info.GetUnit().SetExponent(TCSI_Unit::CANDELA, -10);
    info.SetState(STOP);
    return info;
}

void ExpectSameWithoutState(const TCTypeInfo& a, const TCTypeInfo& b) {
    EXPECT_EQ(a.GetSignalnameString(), b.GetSignalnameString());
    EXPECT_EQ(a.GetTimestamp(), b.GetTimestamp());
    EXPECT_EQ(a.GetSamplerate(), b.GetSamplerate());
    EXPECT_EQ(a.GetRangeMin(), b.GetRangeMin());
    EXPECT_EQ(a.GetRangeMax(), b.GetRangeMax());
    EXPECT_EQ(a.GetUnit().GetFactor(), b.GetUnit().GetFactor());
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        EXPECT_EQ(a.GetUnit().GetExponent(i), b.GetUnit().GetExponent(i)) << i;
}

std::string Bytes(const TCString& text) {
    return {static_cast<const char*>(text), static_cast<std::size_t>(text.GetLength())};
}

// What Serialize writes, after checking that measuring announced it.
template <typename... Value>
std::string Pack(const Value&... value) {
    const int size = Packed::Serialize(nullptr, value...);
    std::string bytes(static_cast<std::size_t>(size) + 1, '~');
    EXPECT_EQ(Packed::Serialize(bytes.data(), value...), size);
    EXPECT_EQ(bytes.back(), '~') << "wrote too much";
    bytes.pop_back();
    return bytes;
}

TEST(TCSerializeHelper, WritesTheStoredLayout) {
    TCSI_Unit unit;
    unit.SetExponent(TCSI_Unit::SECOND, -2);
    const unsigned char block[] = {7, 0, 9};
    const auto* address = reinterpret_cast<const void*>(0x1122334455667788);
    EXPECT_EQ(Pack(true) + Pack(false), "\1\0"s);
    EXPECT_EQ(Pack(-2), "\xFE\xFF\xFF\xFF");
    EXPECT_EQ(Pack(1.0), "\0\0\0\0\0\0\xF0\x3F"s);
    EXPECT_EQ(Pack(address), "\x88\x77\x66\x55");
    EXPECT_EQ(Pack(TCString("a\0b", 3)), "\3\0\0\0a\0b"s);
    EXPECT_EQ(Pack(CString()), "\0\0\0\0"s);
    EXPECT_EQ(Pack(unit), "\0\0\0\0\0\0\xF0\x3F\0\0\xFE\0\0\0\0"s);
    EXPECT_EQ(Pack(static_cast<const unsigned char*>(block), 3, 1), "\3\0\0\0\7\0\t"s);
    EXPECT_EQ(Pack(static_cast<const unsigned char*>(block), 3, 0), "\7\0\t"s);
}

TEST(TCSerializeHelper, ReadsBackAndAnswersTheEnd) {
    const std::string bytes = Pack(true) + Pack(INT_MIN) + Pack(-1) + Pack(-1) + Pack(0.1) +
                              Pack(TCString("x\0", 2)) + Pack(CString("yz"));
    bool flag = false;
    int number = 0;
    unsigned word = 0;
    unsigned long wide = 0;
    double real = 0;
    TCString text;
    CString other;
    const char* p = Packed::DeSerialize(number, Packed::DeSerialize(flag, bytes.data()));
    p = Packed::DeSerialize(real, Packed::DeSerialize(wide, Packed::DeSerialize(word, p)));
    p = Packed::DeSerialize(other, Packed::DeSerialize(text, p));
    EXPECT_EQ(p, bytes.data() + bytes.size());
    EXPECT_TRUE(flag && number == INT_MIN && word == 0xFFFFFFFFu && wide == 0xFFFFFFFFul && real == 0.1);
    EXPECT_EQ(Bytes(text), "x\0"s);
    EXPECT_EQ(other, "yz");
}

TEST(TCSerializeHelper, CountedBytesNeverLeaveTheRoomOfTheReader) {
    const unsigned char block[] = {1, 2, 3, 4};
    const std::string bytes = Pack(static_cast<const unsigned char*>(block), 4, 1);
    unsigned char room[3] = {0, 0, 99};
    EXPECT_EQ(Packed::DeSerialize(room, 2, bytes.data(), 1), bytes.data() + 8);
    EXPECT_TRUE(room[0] == 1 && room[1] == 2 && room[2] == 99);
    EXPECT_EQ(Packed::DeSerialize(room, 2, "\5\6\7", 0)[0], '\7');
    EXPECT_TRUE(room[0] == 5 && room[1] == 6 && room[2] == 99);
    EXPECT_EQ(Pack(static_cast<const unsigned char*>(block), -1, 1), "\0\0\0\0"s);
    EXPECT_EQ(Pack(static_cast<const unsigned char*>(block), -1, 0), "");
    CString text = "old";
    const std::string damaged = "\xFF\xFF\xFF\xFF";
    EXPECT_EQ(Packed::DeSerialize(text, damaged.data()), damaged.data() + 4);
    EXPECT_EQ(text, "");
}

TEST(TCSerializeHelper, MetadataRecordCarriesEveryFieldAndTheState) {
    const TCTypeInfo sample = Sample();
    ASSERT_EQ(Packed::SerializeWithStatus(nullptr, sample), 4 + 59);
    std::string record(63, '~');
    ASSERT_EQ(Packed::SerializeWithStatus(record.data(), sample), 63);
    EXPECT_EQ(record.substr(0, 4), Pack(4 + 55));
    EXPECT_EQ(record.substr(51), Pack(CString("a\0b\xFF"s)) + Pack(2));
    TCTypeInfo read;
    EXPECT_EQ(Packed::DeSerializeWithStatus(read, record.data()), record.data() + 63);
    ExpectSameWithoutState(read, sample);
    EXPECT_EQ(read.GetState(), STOP);
}

TEST(TCSerializeOldStream, WritesTheStoredTokens) {
    TCSI_Unit unit;
    unit.SetExponent(TCSI_Unit::METRE, -3);
    const std::string one = "\xFE\0\0\0\0\0\0\xF0\x3F "s;
    const double ones[] = {1, 1, 1, 1, 1};
    const int numbers[] = {INT_MIN, 0, INT_MAX};
    EXPECT_EQ(Bytes(Token::Serialize(42)), "42 ");
    EXPECT_EQ(Bytes(Token::Serialize(1.0)), one);
    EXPECT_EQ(Bytes(Token::Serialize(TCString())), "\xFF\0\0\0\0 "s);
    EXPECT_EQ(Bytes(Token::Serialize(CString("ab"))), "\xFF\2\0\0\0ab "s);
    EXPECT_EQ(Bytes(Token::Serialize(reinterpret_cast<const void*>(0x0102030405))), "\xFD\5\4\3\2"s);
    EXPECT_EQ(Bytes(Token::Serialize(unit)), one + "-3 0 0 0 0 0 0 ");
    EXPECT_EQ(Bytes(Token::Serialize(ones, 5)), one + one + one + one + one);
    EXPECT_EQ(Bytes(Token::Serialize(numbers, 3)), "-2147483648 0 2147483647 ");
    EXPECT_EQ(Token::Serialize(numbers, 1).GetAllocLength(), 19) << "13 times 1.5";
    EXPECT_TRUE(Token::Serialize(ones, 0).IsEmpty() && Token::Serialize(numbers, -1).IsEmpty());
}

TEST(TCSerializeOldStream, MetadataComesBackAndLeavesTheBlankAfterTheName) {
    const TCString text = Token::Serialize(COMPLETE, Sample()) + Token::Serialize(7);
    const char* p = text;
    TCBLOCKSTATUS state = INVALID;
    TCTypeInfo info;
    int next = 0;
    ASSERT_TRUE(Token::DeSerialize(state, info, p));
    EXPECT_EQ(*p, ' ');
    EXPECT_TRUE(Token::DeSerialize(next, p));
    EXPECT_EQ(p, static_cast<const char*>(text) + text.GetLength());
    EXPECT_TRUE(state == COMPLETE && info.GetState() == INVALID && next == 7);
    ExpectSameWithoutState(info, Sample());
}

TEST(Serialize, ReadingAllocatesNothing) {
    if (!allocations::AreSeen()) GTEST_SKIP() << "the checker counts for itself";
    TCTypeInfo sample = Sample(), info;
    sample.SetSignalnameString(CString(100, 'n'));
    info.SetSignalnameString(CString(100, 'o'));
    std::string record(159, '~');
    Packed::SerializeWithStatus(record.data(), sample);
    const TCString tokens = Token::Serialize(STOP, sample);
    const char* p = tokens;
    TCBLOCKSTATUS state = INVALID;
    const int before = allocations::Count();
    Packed::DeSerializeWithStatus(info, record.data());
    const bool read = Token::DeSerialize(state, info, p);
    EXPECT_EQ(allocations::Count(), before);
    EXPECT_TRUE(read && state == STOP);
    ExpectSameWithoutState(info, sample);
}

TEST(TCSerializeOldStream, NumbersNeedTheirBlank) {
    struct {
        const char* text;
        bool good;
        int value;
        int read;
    } const rows[] = {{"42 ", true, 42, 3},     {"010 ", true, 10, 4},
                      {" -7\n\n", true, -7, 4}, {"99999999999 ", true, INT_MAX, 12},
                      {"42", false, 0, 0},      {"", false, 0, 0},
                      {"4x ", false, 0, 0},     {" x ", false, 0, 0},
                      {nullptr, false, 0, 0}};
    for (const auto& row : rows) {
        const char* p = row.text;
        int value = 0;
        EXPECT_EQ(Token::DeSerialize(value, p), row.good) << row.text;
        EXPECT_EQ(value, row.value);
        EXPECT_EQ(p - row.text, row.read) << row.text;
    }
    int pair[2] = {};
    const char* p = "1 2";
    EXPECT_FALSE(Token::DeSerialize(pair, 2, p));
    EXPECT_TRUE(Token::DeSerialize(pair, 0, p));
}

TEST(TCSerializeOldStream, EveryMarkIsRequired) {
    const std::string whole = Bytes(Token::SerializeWithoutStatus(Sample()));
    for (const std::size_t mark : {0, 10, 20, 30, 46, 56, 66}) {
        std::string damaged = whole;
        damaged[mark] = 'x';
        const char* p = damaged.c_str();
        TCTypeInfo info;
        EXPECT_FALSE(Token::DeSerializeWithoutStatus(info, p)) << mark;
        EXPECT_EQ(p, damaged.c_str() + mark);
        ExpectSameWithoutState(info, TCTypeInfo());
    }
}

}  // namespace
