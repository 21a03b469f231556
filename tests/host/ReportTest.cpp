#include <gmock/gmock.h>

#include <cmath>

#include "host/Console.h"
#include "host/HostWindow.h"
#include "host/IdleSinks.h"
#include "host/Report.h"
#include "host/Table.h"
#include "sigweave/foundation/HostRecords.h"

namespace {

using host::Message;
using host::RunReport;
using host::Severity;
using host::Verdict;
using testing::ElementsAre;

TEST(Table, AlignsColumnsAsPeopleSeeThem) {
    EXPECT_EQ(host::LayOut({{"Größe", "Wert", ""}, {"a", "12.5", "V"}, {"€", "1", ""}}, 1, "  "),
              "  Größe  Wert\n  a      12.5  V\n  €         1\n");
    EXPECT_EQ(host::LayOut({{"a", "b"}, {"cc", "d"}}), "a   b\ncc  d\n");
    EXPECT_EQ(host::LayOut({{" ", ""}}), "\n") << "no blanks at an end";
    EXPECT_EQ(host::NumberText(0.1, 3), "0.1");
    EXPECT_EQ(host::NumberText(2.0 / 3.0, 3), "0.667");
    EXPECT_EQ(host::NumberText(1e300, 15), "1e+300");
}

TEST(Report, TableHasCountsInFullAndOtherFiguresInTenDigits) {
    RunReport report;
    report.modules.push_back({"s", "Statistics", 1, 0, {{"x", "samples", 123456789012345.0, ""}}});
    report.modules.push_back({"t",
                              "Statistics",
                              1,
                              0,
                              {{"x", "mean", 1.0 / 3.0, "m s^-2 * 1e-003"},
                               {"y", "peak", 2.0, "1 * 1e+003"},
                               {"y", "n", NAN, ""}}});
    EXPECT_EQ(host::WriteTable(report),
              "instance  signal  quantity            value  unit\n"
              "s         x       samples   123456789012345\n"
              "t         x       mean         0.3333333333  mm/s²\n"
              "t         y       peak                    2  1 * 1e+003\n"
              "t         y       n                     nan\n");
    EXPECT_EQ(host::WriteTable({}), "");
}

TEST(Report, VerdictSaysHowLongAndWhy) {
    RunReport report;
    report.seconds = 1.23456;
    EXPECT_EQ(host::WriteVerdict(report, "g"), "complete: g, 1.23 s");
    report.signalSeconds = 0.0;
    EXPECT_EQ(host::WriteVerdict(report, "g"), "complete: g, 0 s of signal in 1.23 s");
    report.signalSeconds = 1234567.0;
    report.verdict = Verdict::Stalled;
    report.explanation = "nobody takes it";
    EXPECT_EQ(host::WriteVerdict(report, "g"),
              "stalled: g, 1.23457e+06 s of signal in 1.23 s; nobody takes it");
}

TEST(Report, WarningsNameTheirPlaceElseTheirInstance) {
    RunReport report;
    report.messages = {{Severity::Note, "a", "hello", {}, true},
                       {Severity::Warning, "a", "hot", {}, true, 3},
                       {Severity::Warning, "a", "a.x: has no effect", {"g", 7}},
                       {Severity::Error, "", "broken", {}},
                       {Severity::Warning, "", "odd", {}}};
    EXPECT_EQ(host::WriteWarnings(report, host::Warnings::All),
              "warning: a: hot (3 times)\nwarning: g:7: a.x: has no effect\nwarning: odd\n");
    EXPECT_EQ(host::WriteWarnings(report, host::Warnings::NotTold),
              "warning: g:7: a.x: has no effect\nwarning: odd\n");
    EXPECT_EQ(host::CountWarnings(report), 5);
}

TEST(Report, NamesEachInputOfASinkThatGotNoBlock) {
    RunReport report;
    report.modules = {{"a", "", 0, 1, {}}, {"f", "", 1, 0, {}}, {"s", "", 1, 0, {}}};
    report.lines = {
        {"a.Signal", "f.Signal", 0, 0}, {"f.Signal", "s.Signal 1", 0, 0}, {"a.Signal", "s.Signal 2", 1, 1}};
    const std::vector<host::RunLine> lines = {{0, 0, 1, 0}, {1, 0, 2, 0}, {0, 0, 2, 1}};
    const std::vector<Message> found = host::FindIdleSinks(report, lines);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].instance, "s");
    EXPECT_EQ(found[0].text, "no block came to 's.Signal 1' from 'f.Signal'");
}

TEST(Messages, KeepsAThousandAndCountsTheRest) {
    std::int64_t leftOut = 0;
    host::messages::Take(leftOut);
    for (int round = 0; round < 2; ++round)
        for (int index = 0; index < 1003; ++index)
            host::messages::Add({Severity::Note, "test", std::to_string(index), {}});
    host::messages::Add({Severity::Warning, "test", "hot", {}});
    const std::vector<Message> kept = host::messages::Take(leftOut);
    ASSERT_EQ(kept.size(), 1001U);
    EXPECT_EQ(kept[999].text, "999");
    EXPECT_EQ(kept[999].times, 2);
    EXPECT_EQ(kept[1000].severity, Severity::Warning) << "notes do not displace it";
    EXPECT_EQ(leftOut, 6);
    EXPECT_TRUE(host::messages::Take(leftOut).empty());
    EXPECT_EQ(leftOut, 0);
}

TEST(HostWindow, CollectsErrorsAndBalloonsUnderTheirInstance) {
    host::HostWindow window;
    host::console::NameInstance("Filter2", "low");
    host::console::SetSpeaker([] { return std::string("voice"); });
    TCErrorRecord error{};
    error.module = "Filter2";
    error.text = "no memory";
    TCBalloonRecord balloon{};
    balloon.caption = "Front Center";
    balloon.text = "is mono";
    EXPECT_EQ(
        window.SendMessageA(TC_HOST_MESSAGE, static_cast<unsigned long>(HostCommand::ShowError), &error), 1);
    EXPECT_EQ(
        window.SendMessageA(TC_HOST_MESSAGE, static_cast<unsigned long>(HostCommand::ShowBalloon), &balloon),
        1);
    EXPECT_EQ(
        window.SendMessageA(TC_HOST_MESSAGE, static_cast<unsigned long>(HostCommand::ShowError), nullptr), 0);
    EXPECT_EQ(
        window.SendMessageA(TC_HOST_MESSAGE + 1, static_cast<unsigned long>(HostCommand::ShowError), &error),
        0);
    host::console::SetSpeaker(nullptr);
    std::int64_t leftOut = 0;
    std::vector<std::string> told;
    for (const Message& message : host::messages::Take(leftOut))
        if (message.instance == "low" || message.instance == "voice")
            told.push_back(std::string(host::ToText(message.severity)) + " " + host::WriteMessage(message));
    EXPECT_THAT(told, ElementsAre("error low: no memory", "note voice: Front Center: is mono"));
}

TEST(Mistakes, AreToldInOrderAndQuoteNoMegabytes) {
    host::Mistakes mistakes;
    mistakes.Add({"g", 9}, "nine");
    mistakes.Add({"--set x", 0}, std::string(1500, 'a') + std::string(1500, 'b'));
    mistakes.Add({"g", 2}, std::string(2000, 'c'));
    mistakes.Add({"g", 9}, "nine too");
    std::vector<std::string> told;
    for (const host::Mistake& mistake : mistakes.InOrder())
        told.push_back(host::ToText(mistake.place) + ": " + mistake.text);
    EXPECT_THAT(told, ElementsAre("--set x: " + std::string(1000, 'a') + " ... " + std::string(1000, 'b'),
                                  "g:2: " + std::string(2000, 'c'), "g:9: nine", "g:9: nine too"));
}

}  // namespace
