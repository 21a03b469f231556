#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>

#include "sigweave/foundation/HostRecords.h"
#include "sigweave/foundation/TCError.h"
#include "sigweave/foundation/TCFormatError.h"
#include "sigweave/platform/DebugOutput.h"
#include "sigweave/platform/SystemError.h"
#include "tests/support/FakeWindow.h"
#include "tests/support/MessageLog.h"

namespace {

using Lines = std::vector<std::string>;

TEST(TCError, SendsOneRecordToTheMainWindowAndNothingElse) {
    const MessageLog messages;
    FakeMainWindow mainWindow;
    FakeWindow parent;
    std::vector<TCErrorRecord> records;
    mainWindow.onCommand = [&](unsigned long command, void* record) {
        EXPECT_EQ(command, 11);
        records.push_back(*static_cast<TCErrorRecord*>(record));
    };
    EXPECT_EQ(TCError("Filter", "100% wrong", 7, &parent), -2);
    EXPECT_EQ(TCError("Filter", "wrong", 102), -2);
    EXPECT_EQ(TCError("Filter", "wrong"), -2);
    ASSERT_EQ(records.size(), 3);
    EXPECT_STREQ(records[0].module, "Filter");
    EXPECT_STREQ(records[0].text, "100% wrong");
    EXPECT_EQ(records[0].one, 1);
    EXPECT_EQ(records[0].parent, &parent);
    EXPECT_EQ(records[2].parent, nullptr);
    EXPECT_EQ((std::vector{records[0].kind, records[1].kind, records[2].kind}), (std::vector{101, 102, 101}));
    EXPECT_TRUE(messages.Lines().empty());
}

TEST(TCError, ReadsTheTextAsAFormatWithoutAWindow) {
    const MessageLog messages;
    EXPECT_EQ(TCError("M", "50%% done, %d left"), -2);
    TCError("M", "%n would write, %1$s would reach beyond");
    TCError("M", "%s%s%s%s%s%s%s%s%s");
    TCError("M", "50%% of 50%checked");
    for (const char* text : {"ends in %", "%+In", "%Zn", "%5-%n"}) TCError("M", text);
    EXPECT_EQ(messages.Lines(),
              (Lines{"4 M: 50% done, 0 left", "4 M: %n would write, %1$s would reach beyond",
                     "4 M: %s%s%s%s%s%s%s%s%s", "4 M: 50%% of 50%checked", "4 M: ends in %", "4 M: %+In",
                     "4 M: %Zn", "4 M: %5-%n"}));
}

TEST(TCError, KeepsTheFirstCallback) {
    const MessageLog messages;
    static std::string heard;
    const auto first =
        +[](const char* module, const char* text) { heard = std::string(module) + ":" + text; };
    const auto second = +[](const char*, const char*) { FAIL(); };
    static const int empty =
        TCError_SetErrorMessageCallback(0);  // asked once: it stays when tests are repeated
    EXPECT_EQ(empty, 1);
    EXPECT_EQ(TCError_SetErrorMessageCallback(reinterpret_cast<long>(first)), 1);
    EXPECT_EQ(TCError_SetErrorMessageCallback(reinterpret_cast<long>(second)), 0);
    EXPECT_EQ(TCError_SetErrorMessageCallback(0), 0);
    EXPECT_EQ(TCError_SetErrorMessageCallback(reinterpret_cast<long>(first)), 1);
    TCError("M", "50%%");
    EXPECT_EQ(heard, "M:50%%");
    EXPECT_EQ(messages.Lines(), Lines{"4 M: 50%"});
}

TEST(TCError, PointsABalloonAtTheMiddleOfItsTarget) {
    TCShowBalloon(nullptr, 7, "nobody", "sees this");
    FakeMainWindow mainWindow;
    FakeWindow dialog;
    std::vector<TCBalloonRecord> records;
    mainWindow.onCommand = [&](unsigned long command, void* record) {
        EXPECT_EQ(command, 8);
        records.push_back(*static_cast<TCBalloonRecord*>(record));
    };
    TCShowBalloon(&dialog, 7, "Caption", "Text");
    TCShowBalloon(nullptr, 8, nullptr, "Text");
    ASSERT_EQ(records.size(), 2);
    const TCBalloonRecord& control = records[0];
    EXPECT_EQ((std::vector{control.one, control.x, control.y, control.kind}), (std::vector{1, -2, 30, 0}));
    EXPECT_EQ(control.window, &dialog);
    EXPECT_STREQ(control.caption, "Caption");
    EXPECT_STREQ(control.text, "Text");
    EXPECT_EQ(control.icon, IDI_INFORMATION);
    EXPECT_EQ(records[1].window, &mainWindow);
    EXPECT_EQ((std::vector{records[1].x, records[1].y}), (std::vector{320, 240}));
}

TEST(TCError, ReportsAFailedVerificationAndGoesOn) {
    const MessageLog messages;
    const DebugLog debug;
    EXPECT_EQ(TCVerifyReleaseFailedLine("a%s.cpp", 12, "x % 2"), 1);
    const std::string text = "File: a%s.cpp, Line: 12, Expression 'x % 2' failed.";
    EXPECT_EQ(messages.Lines(), Lines{"64 TCVERIFY: " + text});
    EXPECT_EQ(debug.Text(), text);
    EXPECT_TRUE(TCVERIFY(1 + 1 == 2));
    EXPECT_FALSE(TCVERIFY(messages.Lines().empty()));
    EXPECT_EQ(messages.Lines().size(), 2);
}

TEST(TCError, WritesALineToStandardErrorForEachText) {
    testing::internal::CaptureStderr();
    for (const char* text : {"one 100%s", "two\n", ""}) OutputDebugStringA(text);
    OutputDebugStringA(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "one 100%s\ntwo\n\n");
}

TEST(TCError, TestsAddressesForNullAlone) {
    const char16_t wide = 0;
    EXPECT_TRUE(TCIsValidString("", 0) && TCIsValidString(&wide, -1) && TCIsValidAddress("", 0, 1));
    EXPECT_FALSE(TCIsValidString(static_cast<const char*>(nullptr), 0));
    EXPECT_FALSE(TCIsValidString(static_cast<const char16_t*>(nullptr), 0) ||
                 TCIsValidAddress(nullptr, 1, 0));
}

// The checksum of the published list, one "number name" line for each of its 2540 errors: CRC-32 as zlib
// computes it.
TEST(TCFormatError, NamesThePublishedErrorNumbers) {
    std::uint32_t checksum = 0xFFFFFFFF;
    for (unsigned long number = 0; number < 20000; ++number) {
        const std::string name = TCFormatError::GetErrorConstant(number);
        if (name == "Unknown error") continue;
        for (const char byte : std::to_string(number) + " " + name + "\n") {
            checksum ^= static_cast<unsigned char>(byte);
            for (int bit = 0; bit < 8; ++bit) checksum = checksum >> 1 ^ (checksum % 2 != 0 ? 0xEDB88320 : 0);
        }
    }
    EXPECT_EQ(~checksum, 0x656C9F89);
    for (const unsigned long number : {0xFFFFFFFFul, 0x100000005ul})
        EXPECT_STREQ(TCFormatError::GetErrorConstant(number), "Unknown error");
}

TEST(TCFormatError, BuildsOneLine) {
    const struct {
        const char* line;
        int error;
        const char* constant;
        const char* user;
        const char* system;
        const char* number;
    } rows[] = {
        {"5 (ERROR_ACCESS_DENIED): cannot open (denied)", 5, nullptr, "cannot open", "denied", "%d"},
        {"5 (ERROR_ACCESS_DENIED)", 5, nullptr, nullptr, "", "%d"},
        {"5", 5, "", nullptr, nullptr, "%d"},
        {"-1 (Unknown error): x%s", -1, nullptr, "x%s", nullptr, "%d"},
        {"4294967295 (MINE): (why)", -1, "MINE", "", "why", "%u"},
        {"5 (ERROR_ACCESS_DENIED): open", 5, nullptr, "open::", nullptr, "%d"},
    };
    for (const auto& row : rows) {
        EXPECT_STREQ(TCFormatError::AsString(row.error, row.constant, row.user, row.system, row.number),
                     row.line);
    }
}

TEST(TCFormatError, TranslatesSystemErrors) {
    errno = ENOENT;
    EXPECT_STREQ(TCFormatError::LastErrorAsString("open %s", "a.txt"),
                 "2 (ERROR_FILE_NOT_FOUND): open a.txt (No such file or directory)");
    EXPECT_STREQ(TCFormatError::ErrorAsString(10035, "send"),
                 "10035 (WSAEWOULDBLOCK): send (Resource temporarily unavailable)");
    EXPECT_STREQ(TCFormatError::ErrorAsString(22, "no twin"), "22 (ERROR_BAD_COMMAND): no twin");
    errno = ENOSTR;
    EXPECT_STREQ(TCFormatError::LastErrorAsString("ioctl"),
                 "31 (ERROR_GEN_FAILURE): ioctl (Device not a stream)");
    errno = 0;
    EXPECT_STREQ(TCFormatError::LastErrorAsString("none"), "0 (ERROR_SUCCESS): none");
    const std::pair<int, unsigned long> errors[] = {
        {0, 0}, {EINVAL, 87}, {EIO, 1117}, {EAGAIN, 10035}, {ENOSTR, 31}};
    for (const auto& [error, number] : errors) {
        errno = error;
        EXPECT_EQ(GetLastError(), number);
    }
}

}  // namespace
