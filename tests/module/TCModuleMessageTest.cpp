#include <gtest/gtest.h>

#include "sigweave/module/TCModuleMessage.h"
#include "tests/support/FakeWindow.h"
#include "tests/support/MessageLog.h"

namespace {

using Lines = std::vector<std::string>;

TEST(TCModuleMessage, GivesEachOperationItsSeverity) {
    const MessageLog log;
    TCModuleMessage::Emergency("M", "%d", 1);
    TCModuleMessage::Alert("M", "%s", "two");
    TCModuleMessage::Critical("M", "%.1f", 3.0);
    TCModuleMessage::Warning("Filter", "%d samples lost", 5);
    TCModuleMessage::Notice("M", "%d%%", 100);
    TCModuleMessage::Info("M", "%c%c", 'o', 'k');
    TCModuleMessage::Debug("M", "%c", 'x');
    EXPECT_EQ(log.Lines(), (Lines{"1 M: 1", "2 M: two", "4 M: 3.0", "8 Filter: 5 samples lost", "16 M: 100%",
                                  "32 M: ok", "64 M: x"}));
}

TEST(TCModuleMessage, PassesNullTextsToTheSink) {
    const MessageLog log;
    TCModuleMessage::Send(nullptr, TCModuleMessage::Types::Info, nullptr);
    EXPECT_EQ(log.Lines(), Lines{"32 null: null"});
}

TEST(TCModuleMessage, KeepsTheFirstSinkThatIsNotNull) {
    const auto first = +[](const char*, TCModuleMessage::Types, const char*) {};
    const auto second = +[](const char*, TCModuleMessage::Types, const char*) { FAIL(); };
    TCModuleMessage::Init(0);
    EXPECT_EQ(TCModuleMessage::s_PFN, nullptr);
    TCModuleMessage::Init(reinterpret_cast<long>(first));
    TCModuleMessage::Init(reinterpret_cast<long>(second));
    EXPECT_EQ(TCModuleMessage::s_PFN, first);
    TCModuleMessage::s_PFN = nullptr;
}

TEST(TCModuleMessage, GoesToTheDebuggerOnlyWithoutAWindow) {
    const DebugLog debug;
    {
        const FakeMainWindow window;
        TCModuleMessage::Warning("Filter", "dropped");
    }
    TCModuleMessage::Warning("Filter", "%d samples lost", 5);
    EXPECT_EQ(debug.Text(), "TCMessage: modul='Filter', type=8, message='5 samples lost'\n");
}

}  // namespace
