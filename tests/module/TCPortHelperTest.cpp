// Declaring and wiring ports, and the run's life cycle.
#include <gtest/gtest.h>

#include "sigweave/module/TCBaseModule.h"
#include "sigweave/services/SystemTime.h"
#include "tests/module/PortBench.h"

using namespace bench;
using Helper = TCPortHelper;

namespace {

class Source : public TCBaseModule {
 public:
    explicit Source(Helper::SourceBehaviour behaviour) : TCBaseModule(0) {
        portHelper = std::make_unique<TCPortHelper>(this);
        portHelper->BehaviourAsSource(behaviour);
    }
    const char* GetModuleId() const override { return "source"; }
    int GetTypeOfModule() override { return 1; }
    const char* GetDescription() const override { return ""; }
    int Execute() override { return 0; }
    const char* GetBaseName() const override { return "Source"; }
};

// Four inputs, of which the even ones can be wired.
struct Inputs {
    Inputs() {
        for (unsigned i = 0; i < 4; ++i) helper.SetPort(INPUT, i, TCString::FormatS("In %u", i + 1), SIGNAL);
    }
    void Connect(unsigned input) { helper.SetInputStream(input, 0, 3); }
    int OffendingInput() const { return helper.GetErrorRecord().portIndex; }
    TCPortHelper helper{nullptr};
};

}  // namespace

TEST(TCPortHelperPorts, SecondDeclarationAddsATypeButKeepsThePort) {
    TCPortHelper helper(nullptr);
    EXPECT_EQ(helper.SetPort(INPUT, 1, "First", "DOUBLE[]", "", true), 0u);
    EXPECT_EQ(helper.SetPort(INPUT, 1, "Second", Helper::TYPE_TEXT), 1u);
    EXPECT_EQ(helper.GetPortCnt(INPUT), 2);
    EXPECT_STREQ(helper.GetPortName(INPUT, 1), "First");
    EXPECT_EQ(helper.DataType(INPUT, 1), SIGNAL);
    EXPECT_EQ(helper.DataType(INPUT, 0), 0u) << "a gap has no type";
}

TEST(TCPortHelperPorts, RangesSkipAttachedPortsAndNamesAreChecked) {
    TCPortHelper helper(nullptr);
    helper.SetPort(OUTPUT, 1, "Own", Helper::TYPE_TEXT);
    helper.SetPortRange(
        OUTPUT, 0, 3, [](PORTTYPE, unsigned) { return TCString("Out"); }, SIGNAL);
    EXPECT_STREQ(helper.GetPortName(OUTPUT, 1), "Own");
    EXPECT_EQ(helper.CheckPortNames(OUTPUT), -3);
    EXPECT_EQ(helper.GetErrorRecord().portIndex * 10 + helper.GetErrorRecord().otherIndex, 20);
    EXPECT_STREQ(helper.MakePortNameUnique(OUTPUT, 2, "Out"), "Out 2");
    EXPECT_STREQ(helper.MakePortNameUnique(OUTPUT, 1, "Own"), "Own");
    helper.SetPort(OUTPUT, 4000000000u, "absurd", SIGNAL);
    EXPECT_EQ(helper.GetPortCnt(OUTPUT), 3);
}

TEST(TCPortHelperWiring, DrawnLinesAndConnectionsAreTwoThings) {
    Inputs in;
    in.helper.DelLine(INPUT, 0);
    in.helper.AddLine(INPUT, 0);
    in.Connect(1);
    EXPECT_FALSE(in.helper.IsWired(INPUT, 0, Helper::STREAM_CONNECTED));
    EXPECT_TRUE(in.helper.IsWired(INPUT, 0)) << "while the graph is edited, lines count";
    EXPECT_TRUE(in.helper.AnyPortWired(3));
    for (const int kind : {0, 2, 5}) EXPECT_FALSE(in.helper.AnyPortWired(kind)) << "outputs";
    in.helper.GetMessageA(Helper::MESSAGE_RUNNING, 1);
    EXPECT_FALSE(in.helper.IsWired(INPUT, 0)) << "in a run, streams do";
    EXPECT_TRUE(in.helper.IsWired(INPUT, 1));
}

TEST(TCPortHelperWiring, ChecksNameTheFirstInputAtFault) {
    Inputs in;
    const unsigned odd[] = {1, 3};
    const unsigned beyond[] = {9, 1};
    EXPECT_EQ(in.helper.CheckWired(0, 1), 0) << "nothing is asked of an unwired input";
    EXPECT_EQ(in.helper.CheckWired(0, odd, 2, Helper::CHECK_EVERY), 0);
    in.Connect(0);
    EXPECT_EQ(in.helper.CheckWired(0, 1), -3);
    EXPECT_EQ(in.OffendingInput(), 1);
    EXPECT_EQ(in.helper.CheckWired(0, beyond, 2, Helper::CHECK_AT_LEAST_ONE), 0);
    EXPECT_EQ(in.helper.CheckWired(0, odd, 2, Helper::CHECK_AT_LEAST_ONE), -3);
    in.Connect(1);
    EXPECT_EQ(in.helper.CheckWired(0, odd, 2, Helper::CHECK_AT_LEAST_ONE), 0);
    EXPECT_EQ(in.helper.CheckWired(0, odd, 2, Helper::CHECK_EVERY), -3);
    EXPECT_EQ(in.OffendingInput(), 3);
    EXPECT_EQ(in.helper.CheckAllOrNoneWired(0, 1), 0);
    EXPECT_EQ(in.helper.CheckAllOrNoneWired(2, 1), -3);
    EXPECT_STREQ(in.helper.GetErrorText(), "Input \"In 3\": the port is not wired (-3)");
    in.helper.SetErrMsg(-2, INPUT, 0, -1, "one", "two");
    in.helper.SetErrMsg(-2, INPUT, 0, -1, in.helper.GetErrorRecord().text2, in.helper.GetErrorRecord().text1);
    EXPECT_STREQ(in.helper.GetErrorText(), "Input \"In 1\": two one (-2)");
}

TEST(TCPortHelperWiring, RunNeedsObligatoryAndExternalInputs) {
    Inputs in;
    in.helper.SetObligatoryInput(1);
    EXPECT_EQ(in.helper.Init(), -3);
    EXPECT_EQ(in.OffendingInput(), 1);
    EXPECT_FALSE(in.helper.ReadyToExecute());
    in.Connect(1);
    EXPECT_EQ(in.helper.Init(), 0);
    in.helper.SetExtPorts(2, 3);
    EXPECT_EQ(in.helper.UseExtPar(2), 0);
    EXPECT_EQ(in.helper.Init(), -3);
    EXPECT_EQ(in.OffendingInput(), 3);
    in.helper.GetMessageA(Helper::MESSAGE_CHECK_OBLIGATORY, 0);
    EXPECT_EQ(in.helper.Init(), 0);
}

TEST(TCPortHelperRun, SourcesHaveWorkUntilTheyAreNoLongerReady) {
    struct {
        Helper::SourceBehaviour behaviour;
        int ready, cleared, afterwards;
    } const rows[] = {{Helper::SOURCE_REPORT_END, 0, 2, 1},
                      {Helper::SOURCE_UNTIL_READY_CLEARED, 0, 1, 1},
                      {Helper::SOURCE_NONE, 1, 1, 1}};
    for (const auto& row : rows) {
        Source source(row.behaviour);
        ASSERT_EQ(source.Init(), 0);
        EXPECT_EQ(source.Fetch(), row.ready);
        source.GetPortHelper()->SetReadyFlag(false);
        EXPECT_EQ(source.Fetch(), row.cleared);
        EXPECT_EQ(source.Fetch(), row.afterwards);
    }
}

TEST(TCPortHelperRun, TheHostSetsFlagsByMessage) {
    TCPortHelper helper(nullptr);
    helper.GetMessageA(Helper::MESSAGE_FIRST_IN_CYCLE, 0);
    EXPECT_TRUE(helper.FirstInCycle(true));
    EXPECT_FALSE(helper.FirstInCycle(false));
    helper.GetMessageA(Helper::MESSAGE_VALIDATED, 1);
    EXPECT_TRUE(helper.IsValidated());
    const double before = helper.SyncTime();
    while (TCSystemTime() <= before) {  // a double holds today's time in steps of 240 ns
    }
    EXPECT_EQ(helper.SyncTime(), before) << "kept for the run";
    helper.GetMessageA(Helper::MESSAGE_RUNNING, 1);
    EXPECT_GT(helper.SyncTime(), before);
}

TEST(TCPortHelperRun, DynamicPortsAreMadeOnRequest) {
    TCPortHelper helper(nullptr);
    const auto declare = [](long user, int count) {
        auto* self = reinterpret_cast<TCPortHelper*>(user);
        self->SetPort(INPUT, static_cast<unsigned>(count) - 1, "Last", SIGNAL);
        return self->GetPortCnt(INPUT);
    };
    EXPECT_EQ(helper.GetMessageA(Helper::MESSAGE_DYN_PORTS, 3), -1) << "a fixed number of ports";
    helper.UseDynPorts(declare, reinterpret_cast<long>(&helper));
    EXPECT_EQ(helper.GetMessageA(Helper::MESSAGE_DYN_PORTS, 3), 3);
    helper.ClearPorts(true);
    EXPECT_EQ(helper.GetMessageA(Helper::MESSAGE_DYN_PORTS, 3), -1);
}

TEST(TCPortHelperRun, ARunBeginsWithEmptyBuffers) {
    Line line;
    line.Send(0, {START, BUSY});
    line.reader.TakeBlock(0);
    EXPECT_EQ(line.reader.Init(), 0);
    EXPECT_FALSE(line.reader.AnyDataAvail());
    EXPECT_EQ(line.reader.GetTypeInfo(0, nullptr), INVALID);
    line.Send(0, {BUSY, BUSY});
    line.writer.ClearPorts(true);
    EXPECT_EQ(line.reader.BlocksOnStream(INPUT, 0), 0) << "the blocks went with the ports that made them";
}
