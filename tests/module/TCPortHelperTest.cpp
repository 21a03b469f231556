// Declaring and wiring ports, and the run's life cycle.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

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

// Four inputs that a test connects.
struct Inputs {
    Inputs() {
        for (unsigned i = 0; i < 4; ++i) helper.SetPort(INPUT, i, TCString::FormatS("In %u", i + 1), SIGNAL);
    }
    void Connect(unsigned input) { helper.SetInputStream(input, 0, 3); }
    int OffendingInput() const { return helper.GetErrorRecord().portIndex; }
    TCPortHelper helper{nullptr};
};

// What IsWired says of each kind of line of three inputs, and whether any input or output counts.
std::string Wired(const TCPortHelper& helper) {
    std::string text;
    for (const int lineType : {0, 1, 2, 3})
        for (unsigned i = 0; i < 3; ++i)
            text += helper.IsWired(INPUT, i, static_cast<Helper::LINETYPE>(lineType)) ? '1' : '0';
    for (const int kind : {1, 2, 3, 0}) text += helper.AnyPortWired(kind) ? '1' : '0';
    return text;
}

// The name and the code of each port.
std::string Ports(const TCPortHelper& helper, PORTTYPE kind) {
    TCString text;
    for (int i = 0; i < helper.GetPortCnt(kind); ++i) {
        text += " " + helper.GetPortName(kind, static_cast<unsigned>(i));
        text.FormatAppend(":%x", helper.DataType(kind, static_cast<unsigned>(i)));
    }
    return std::string(text);
}

}  // namespace

TEST(TCPortHelperPorts, APortKeepsItsFirstDeclaration) {
    const auto name = [](PORTTYPE kind, unsigned index) { return TCString::FormatS("%d/%u", kind, index); };
    TCPortHelper helper(nullptr);
    unsigned type = 9;
    EXPECT_EQ(helper.SetPort(INPUT, 1, "First", "DOUBLE[]", "", true), 0u);
    EXPECT_EQ(helper.SetPort(INPUT, 1, "Second", Helper::TYPE_TEXT), 1u);
    helper.AttachPort(INPUT, 0, "Nothing", 2);
    EXPECT_EQ(helper.DataType(INPUT, 0, &type), 0u) << "a gap has no type";
    EXPECT_EQ(type, 9u);
    EXPECT_EQ(Ports(helper, INPUT), " :0 First:4000040");
    helper.AttachPort(INPUT, 0, "Text", 1);
    EXPECT_EQ(helper.DataType(INPUT, 0, &type), Helper::TYPE_TEXT);
    EXPECT_EQ(type, 1u);
    helper.SetPort(OUTPUT, 1, "Own", Helper::TYPE_TEXT);
    helper.SetPortRange(OUTPUT, 0, 2, name, "DOUBLE[]", "", true);
    helper.AttachPortRange(static_cast<PORTTYPE>(3), 3, 2, name, 0);
    helper.AttachPortRange(OUTPUT, 2, 1, nullptr, 9);
    helper.AttachPortRange(OUTPUT, 6, 0, name, 0);
    helper.SetPort(OUTPUT, 65536, "absurd", SIGNAL);
    TCPortHelper most(nullptr);
    for (const unsigned last : {65535u, 65536u}) most.SetPort(INPUT, last, "Last", SIGNAL);
    EXPECT_EQ(most.GetPortCnt(INPUT), 65536);
    EXPECT_EQ(Ports(helper, OUTPUT), " 2/0:4000040 Own:100 :0 3/3:4000040 3/4:4000040 :0")
        << "no ports, and a type beyond the table, only make room";
    EXPECT_STREQ(helper.GetPortName(INPUT, 2), "");
}

TEST(TCPortHelperPorts, NamesAreThereAndDiffer) {
    TCPortHelper helper(nullptr);
    TCIOStream receiver;
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(helper.CheckPortNames(OUTPUT), 0);
        helper.SetPort(OUTPUT, i, i == 1 ? "Own" : "Out", SIGNAL);
        helper.AddOutputStream(i, receiver.SetInputStream(3));
    }
    EXPECT_EQ(helper.CheckPortNames(OUTPUT), -3);
    EXPECT_STREQ(helper.GetErrorText(), "Output \"Out\": Two ports have the same name (-3)");
    EXPECT_EQ(helper.GetErrorRecord().portIndex * 10 + helper.GetErrorRecord().otherIndex, 20);
    EXPECT_STREQ(helper.MakePortNameUnique(OUTPUT, 1, "Own"), "Own");
    EXPECT_STREQ(helper.MakePortNameUnique(OUTPUT, 2, "Out"), "Out 2");
    helper.SetPort(OUTPUT, 3, "Out 2", SIGNAL);
    EXPECT_STREQ(helper.MakePortNameUnique(OUTPUT, 2, "Out"), "Out 3");
    helper.SetPort(INPUT, 0, "", SIGNAL);
    EXPECT_EQ(helper.CheckPortNames(INPUT), -3);
    EXPECT_STREQ(helper.GetErrorText(), "Input \"\": The port has no name (-3)");
    helper.ClearPorts(false);
    EXPECT_EQ(helper.SetPort(OUTPUT, 0, "New", SIGNAL), 0u) << "the types are gone too";
    EXPECT_EQ(Ports(helper, OUTPUT), " New:4000040");
}

TEST(TCPortHelperWiring, DrawnLinesAndConnectionsAreTwoThings) {
    Inputs in;
    in.helper.DelLine(INPUT, 0);
    for (const unsigned index : {0u, 0u, 7u}) in.helper.AddLine(INPUT, index);
    in.helper.DelLine(INPUT, 7);
    in.Connect(1);
    EXPECT_EQ(Wired(in.helper), "1000101000001010") << "while the graph is edited, lines count";
    in.helper.GetMessageA(Helper::MESSAGE_RUNNING, 1);
    EXPECT_EQ(Wired(in.helper), "1000100100001010") << "in a run, streams do";
    in.helper.DelLine(INPUT, 0);
    EXPECT_TRUE(in.helper.IsWired(INPUT, 0, Helper::LINES_DRAWN)) << "one of two lines is left";
    in.helper.DelLine(INPUT, 0);
    in.helper.GetMessageA(Helper::MESSAGE_RUNNING, 0);
    EXPECT_EQ(Wired(in.helper), "0000100000000000");
    in.helper.SetPort(OUTPUT, 0, "Out", SIGNAL);
    in.helper.AddLine(OUTPUT, 0);
    EXPECT_EQ(Wired(in.helper).substr(12), "0111") << "other kinds are outputs";
}

// A check of inputs by their digits, in which A is the first: A needs B ">", both or none "=", one of a list
// "|", every one "&", a list by a mode that there is not "?".
int Check(TCPortHelper& helper, const std::string& check) {
    std::vector<unsigned> inputs;
    for (const char digit : check) inputs.push_back(Digit(digit));
    const auto mode = static_cast<Helper::CHECK_PT>(std::string("|&?").find(check[1]));
    const auto count = static_cast<unsigned>(check.size() - 2);
    if (check[1] == '>') return helper.CheckWired(inputs[0], inputs[2]);
    if (check[1] == '=') return helper.CheckAllOrNoneWired(inputs[0], inputs[2]);
    return helper.CheckWired(inputs[0], inputs.data() + 2, count, mode);
}

TEST(TCPortHelperWiring, ChecksNameTheFirstInputAtFault) {
    // Of four inputs 0 and 1 are connected. The input at fault, if any.
    for (const auto& [check, offender] :
         Rows("0>1: 0>2:2 2>3: 0>9: 9>2: 0=1: 2=3: 0=3:3 2=1:2 0|: 0&: 2&3: 9&3: 0|23:2 "
              "0|21: 0|29: 0&132:3 0&1: 0&93: 0?23:")) {
        Inputs in;
        in.Connect(0);
        in.Connect(1);
        EXPECT_EQ(Check(in.helper, check), offender.empty() ? 0 : -3) << check;
        EXPECT_EQ(in.OffendingInput(), offender.empty() ? -1 : static_cast<int>(Digit(offender[0]))) << check;
    }
    Inputs in;
    in.Connect(0);
    EXPECT_EQ(in.helper.CheckWired(0, nullptr, 1, Helper::CHECK_EVERY), 0);
}

TEST(TCPortHelperWiring, ErrorsNameWhatIsThere) {
    Line line;
    line.reader.SetPort(INPUT, 1, "Second", SIGNAL);
    const std::tuple<PORTTYPE, int, const char*> rows[] = {
        {INPUT, -1, "Input \"Signal 1\": one two (-2)"},
        {INPUT, 1, "Input \"Signal 1\" and input \"Second\": one two (-2)"},
        {INPUT, 2, "Input \"Signal 1\": one two (-2)"},
        {OUTPUT, 0, "Output \"Signal 1\", receiver 1: one two (-2)"},
        {OUTPUT, 1, "Output \"Signal 1\": one two (-2)"}};
    for (const auto& [kind, other, text] : rows) {
        Helper& helper = kind == INPUT ? line.reader : line.writer;
        EXPECT_EQ(helper.SetErrMsg(-2, kind, 0, other, "two", "one"), -2);
        const TCPortError& error = helper.GetErrorRecord();
        helper.SetErrMsg(-2, kind, 0, other, error.text2, error.text1);
        EXPECT_STREQ(helper.GetErrorText(), text);
        EXPECT_EQ(error.otherIndex, other);
        EXPECT_NE(error.ownStream, nullptr);
    }
    EXPECT_EQ(line.writer.SetErrMsg(-14, OUTPUT, 3, 0), -14);
    EXPECT_STREQ(line.writer.GetErrorText(), "Output \"\": the block could not be made (-14)");
    line.writer.ClearErrorRecord();
    EXPECT_STREQ(line.writer.GetErrorText(), "");
}

TEST(TCPortHelperWiring, RunNeedsObligatoryAndExternalInputs) {
    Inputs in;
    const unsigned list[] = {1, 9};
    in.helper.SetObligatoryInputs(nullptr, 1);
    in.helper.SetObligatoryInputs(list, 2);
    EXPECT_TRUE(in.helper.IsObligatoryInput(1));
    EXPECT_FALSE(in.helper.IsObligatoryInput(2) || in.helper.IsObligatoryInput(9));
    // c1 connects input 1, o2 makes input 2 obligatory, k1 checks such inputs and k0 does not, e- makes 2 and
    // 3 external ports, u1 uses the first of them: the input that a run then lacks, if any.
    int before = 0;
    EXPECT_FALSE(in.helper.ReadyToExecute());
    for (const auto& [step, lacking] : Rows("--:1 c1: u1: e-:2 u2:3 u3: u0: u2:3 o2:3 k0: k1:3 c3:2")) {
        const unsigned digit = Digit(step[1]);
        const int number = static_cast<int>(digit);
        in.helper.ClearErrorRecord();
        if (step[0] == 'c') in.Connect(digit);
        if (step[0] == 'o') in.helper.SetObligatoryInput(digit);
        if (step[0] == 'k') in.helper.GetMessageA(Helper::MESSAGE_CHECK_OBLIGATORY, number);
        if (step[0] == 'e') in.helper.SetExtPorts(2, 3);
        if (step[0] == 'u') {
            EXPECT_EQ(in.helper.UseExtPar(number), std::exchange(before, number));
        }
        in.helper.SetReadyFlag(false);
        EXPECT_EQ(in.helper.Init(), lacking.empty() ? 0 : -3) << step;
        EXPECT_EQ(in.helper.ReadyToExecute(), lacking.empty());
        EXPECT_EQ(in.OffendingInput(), lacking.empty() ? -1 : static_cast<int>(Digit(lacking[0]))) << step;
    }
    EXPECT_STREQ(in.helper.GetErrorText(), "Input \"In 3\": the port is not wired (-3)");
}

TEST(TCPortHelperWiring, TypesAreComparedWithThoseStored) {
    Inputs in;
    const auto expect = [&](CALLED_FROM from, bool store, int changed) {
        EXPECT_EQ(in.helper.ComputeValidationData(from, store), changed);
        EXPECT_EQ(in.helper.IsValidated(), changed == 0);
    };
    in.helper.SetPort(OUTPUT, 0, "Out", "MultiType", "", false);
    in.helper.AddLine(INPUT, 0);
    in.helper.AddLine(OUTPUT, 0);
    in.Connect(1);
    in.helper.StoreValidation(OUTPUT, 9);
    expect(CALLED_FROM_EDIT, true, 0);  // nothing was stored before
    in.helper.AddMultitype(4, "NULL", "no_parameters");
    for (const unsigned input : {0u, 1u}) in.helper.ChangeType(INPUT, input, "SWORD[]", "", false);
    expect(CALLED_FROM_EDIT, false, 1);  // the output's type reads as before
    in.helper.AddMultitype(4, "SWORD", "BIN");
    expect(CALLED_FROM_EDIT, false, 2);
    expect(CALLED_FROM_RUN, false, 0);  // the only connected one was never stored
    in.helper.StoreValidation(INPUT, 0);
    expect(CALLED_FROM_EDIT, true, 1);
    expect(CALLED_FROM_EDIT, false, 0);
    in.helper.StoreValidation(INPUT, 1);
    in.helper.ChangeType(INPUT, 1, "SWORD[]", "", true);
    expect(CALLED_FROM_RUN, true, 1);
    expect(CALLED_FROM_RUN, true, 0);
    in.helper.ClearPorts(false);
    in.helper.SetPort(INPUT, 1, "In 2", "SWORD[]", "", false);
    in.Connect(1);
    expect(CALLED_FROM_RUN, false, 1);  // declared anew, with another type than before
}

TEST(TCPortHelperRun, SourcesHaveWorkUntilTheyAreNoLongerReady) {
    const std::tuple<Helper::SourceBehaviour, int, int, int> rows[] = {
        {Helper::SOURCE_REPORT_END, 0, 2, 1},
        {Helper::SOURCE_UNTIL_READY_CLEARED, 0, 1, 1},
        {Helper::SOURCE_NONE, 1, 1, 1}};
    for (const auto& [behaviour, ready, cleared, afterwards] : rows) {
        Source source(behaviour);
        ASSERT_EQ(source.Init(), 0);
        EXPECT_EQ(source.Fetch(), ready);
        source.GetPortHelper()->SetReadyFlag(false);
        EXPECT_EQ(source.Fetch(), cleared);
        EXPECT_EQ(source.Fetch(), afterwards);
    }
}

TEST(TCPortHelperRun, TheHostSetsFlagsByMessage) {
    TCPortHelper helper(nullptr);
    EXPECT_STREQ(helper.GetModuleName(), "No module");
    EXPECT_EQ(helper.GetMessageA(Helper::MESSAGE_FIRST_IN_CYCLE, 0), 0);
    EXPECT_TRUE(helper.FirstInCycle(false) && helper.FirstInCycle(true));
    EXPECT_FALSE(helper.FirstInCycle(false));
    helper.GetMessageA(Helper::MESSAGE_INSTANCE_HANDLE, reinterpret_cast<long>(&helper));
    EXPECT_EQ(static_cast<const void*>(helper.GetInstanceHandle()), &helper);
    for (const bool on : {true, false}) {
        helper.GetMessageA(Helper::MESSAGE_VALIDATED, on);
        EXPECT_EQ(helper.IsValidated(), on);
    }
    const double before = helper.SyncTime();
    EXPECT_NEAR(before, TCSystemTime(), 60e3);
    while (TCSystemTime() <= before) {  // a double holds today's time in steps of 240 ns
    }
    helper.GetMessageA(Helper::MESSAGE_RUNNING, 0);
    EXPECT_EQ(helper.SyncTime(), before) << "kept for the run";
    EXPECT_FALSE(helper.IsRunning());
    helper.GetMessageA(Helper::MESSAGE_RUNNING, 1);
    EXPECT_TRUE(helper.IsRunning());
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
    helper.GetMessageA(Helper::MESSAGE_VALIDATED, 1);
    helper.ClearPorts(true);
    EXPECT_EQ(helper.GetMessageA(Helper::MESSAGE_DYN_PORTS, 3), -1);
    EXPECT_FALSE(helper.IsValidated());
    EXPECT_EQ(helper.GetPortCnt(INPUT), 0);
}

TEST(TCPortHelperRun, ARunBeginsAndEndsWithEmptyBuffers) {
    void (*const clear[])(Helper&) = {[](Helper& helper) { EXPECT_EQ(helper.Init(), 0); },
                                      [](Helper& helper) { EXPECT_EQ(helper.Done(), 0); },
                                      [](Helper& helper) {
                                          for (const PORTTYPE kind : {INPUT, OUTPUT})
                                              for (const unsigned port : {0u, 9u})
                                                  helper.ClearBuffer(kind, port);
                                      }};
    for (const auto& empty : clear) {
        Line line(SIGNAL | Helper::TYPE_MULTI);
        int count = 0;
        line.writer.UseAutoTypeInfo(0, false, true, false, false, false, false);
        line.writer.SetTI_Samplerate(0, 8.0);
        EXPECT_EQ(line.Send(0, START), 0);
        line.reader.TakeBlock(0);
        line.Send(0, BUSY);
        EXPECT_EQ(line.Send(0, COMPLETE), -18) << "a refused block";
        line.writer.WriteMultitypeInt(0, "begun", 1);
        empty(line.reader);
        empty(line.writer);
        EXPECT_FALSE(line.reader.AnyDataAvail());
        EXPECT_EQ(line.reader.AccessDblData(0, count), nullptr);
        EXPECT_EQ(line.reader.GetTypeInfo(0, nullptr), INVALID);
        EXPECT_EQ(line.writer.EndWriteMultitype(0), -14) << "what was begun is forgotten";
        line.writer.WriteDblVal(0, 1.0);
        EXPECT_EQ(line.reader.PeekStatus(0, false, nullptr), COMPLETE) << "the states begin anew";
        EXPECT_EQ(line.Receive().GetSamplerate(), 8.0) << "what was given stays";
    }
}

TEST(TCPortHelperRun, BlocksGoWithThePortsThatMadeThem) {
    Line line;
    line.Send(0, {START, BUSY});
    line.writer.ClearPorts(true);
    EXPECT_EQ(line.reader.BlocksOnStream(INPUT, 0), 0);
    Line deleted;
    deleted.Send(0, START);
    deleted.reader.DeleteStreams();
    deleted.writer.DeleteStreams();
    EXPECT_FALSE(deleted.reader.IsWired(INPUT, 0, Helper::STREAM_CONNECTED) ||
                 deleted.writer.IsWired(OUTPUT, 0, Helper::STREAM_CONNECTED));
    EXPECT_EQ(deleted.reader.BlocksOnStream(INPUT, 0), 0);
    Wire(deleted.writer, 0, deleted.reader, 0);
    for (int i = 0; i < 3; ++i) deleted.Send(0, BUSY);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(deleted.Receive().GetState(), BUSY) << "the streams serve again";
}
