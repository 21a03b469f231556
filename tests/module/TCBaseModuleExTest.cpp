#include <gtest/gtest.h>

#include <utility>

#include "sigweave/module/TCBaseModuleEx.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {"block", TCModuleParameter::INTEGER, "1024", "", "", 1, 1048576},
    {"rate", TCModuleParameter::NUMBER, "48000", "Hz", "", 0},
    {"title", TCModuleParameter::TEXT, ""},
    {"window", TCModuleParameter::CHOICE, "hann", "", "", 0, 0, "hann|hamming|flat"},
    {"loop", TCModuleParameter::SWITCH, "no"},
    {"file", TCModuleParameter::FILE, nullptr},
};

class Recorder final : public TCBaseModuleEx {
 public:
    Recorder() : TCBaseModuleEx(0, PARAMETERS) { UseAnyNumberOfInputs("DOUBLE[]", ""); }
    const char* GetModuleId() const override { return "Recorder"; }
    const char* GetDescription() const override { return "Has one parameter of each kind."; }
    int Execute() override { return 0; }
    const char* GetBaseName() const override { return "Recorder"; }
    bool OnSettingsChanged(TCString& error) override {
        if (ParamStr("file") != "missing.wav") return true;
        error = "there is no file 'missing.wav'";
        return false;
    }
    void OnInputsDeclared(int count) override {
        for (int i = 0; i < count; ++i) GetPortHelper()->SetPort(OUTPUT, i, "Out", "DOUBLE[]", "", true);
    }

    using TCBaseModuleEx::AddResult;
    using TCBaseModuleEx::Fail;
    using TCBaseModuleEx::IsGiven;
    using TCBaseModuleEx::IsInterrupted;
    using TCBaseModuleEx::ParamInt;
    using TCBaseModuleEx::ParamStr;
    using TCBaseModuleEx::WarnWithoutEffect;
};

TEST(TCBaseModuleEx, WrongValuesSayWhatIsAllowedAndChangeNothing) {
    const struct {
        const char* name;
        const char* value;
        const char* error;
    } rows[] = {
        {"block", "0", "block: '0' is not valid; expected an integer from 1 to 1048576"},
        {"rate", "nan", "rate: 'nan' is not valid; expected a number of at least 0 (in Hz)"},
        {"rate", "0,5",
         "rate: '0,5' is not valid; expected a number of at least 0 (in Hz); write a point: 0.5"},
        {"rate", "1,000,5", "rate: '1,000,5' is not valid; expected a number of at least 0 (in Hz)"},
        {"rate", "-0,5", "rate: '-0,5' is not valid; expected a number of at least 0 (in Hz)"},
        {"window", "Hann", "window: 'Hann' is not valid; expected one of hann, hamming, flat"},
        {"loop", "1", "loop: '1' is not valid; expected yes or no"},
        {"file", "", "file: '' is not valid; expected a file name"},
        {"blok", "1", "blok: there is no such parameter; did you mean 'block'?"},
        {"zzz", "1", "zzz: there is no such parameter; known are block, rate, title, window, loop, file"},
    };
    Recorder module;
    const TCString before = module.GetSettings();
    for (const auto& row : rows) {
        TCString error;
        EXPECT_FALSE(module.SetParameter(row.name, row.value, error));
        EXPECT_STREQ(error, row.error);
    }
    EXPECT_STREQ(module.GetSettings(), before);
}

TEST(TCBaseModuleEx, SettingsCarryAnyText) {
    for (const char* text : {"", "plain", " a = b ; # [x]", "\"", "\\", "\\\"", "two\r\nlines\ttab",
                             "C:\\new\\'q'", "\xC3\xA4\x01\x7F"}) {
        Recorder from, to;
        TCString error;
        ASSERT_TRUE(from.SetParameter("title", text, error));
        ASSERT_TRUE(from.SetParameter("file", "a.wav", error));
        EXPECT_TRUE(to.SetSettings(from.GetSettings(), error)) << error;
        EXPECT_STREQ(to.ParamStr("title"), text);
        EXPECT_STREQ(to.GetSettings(), from.GetSettings());
    }
}

TEST(TCBaseModuleEx, SettingsThatFailLeaveTheOldOnes) {
    const struct {
        const char* text;
        const char* error;
    } rows[] = {
        {"block=8", "file: must be given; expected a file name"},
        {"file=x\nblock=8\nblock=9", "block: is given twice; remove one of the two"},
        {"file=missing.wav", "there is no file 'missing.wav'"},
        {"file=\"x", "settings: Ending quotation mark is missing at parameter file"},
    };
    Recorder module;
    TCString error;
    ASSERT_TRUE(module.SetSettings("block=64\r\n# how fast\nrate=8000\nfile=a.wav", error)) << error;
    const TCString before = module.GetSettings();
    for (const auto& row : rows) {
        EXPECT_FALSE(module.SetSettings(row.text, error));
        EXPECT_STREQ(error, row.error);
        EXPECT_STREQ(module.GetSettings(), before);
    }
    EXPECT_TRUE(module.SetSettings("file=b.wav", error));
    EXPECT_EQ(module.ParamInt("block"), 1024) << "what the text does not name has its default";
}

TEST(TCBaseModuleEx, ARunForgetsTheOneBefore) {
    Recorder module;
    module.AddResult("voice", "rms", 1.0, TCSI_Unit());
    EXPECT_EQ(module.Fail(-7, "the disk is full"), -7);
    module.Interrupt();
    module.GetMessageA(TCPortHelper::MESSAGE_RUNNING, 0);
    EXPECT_EQ(module.GetResults().GetSize(), 1) << "the end of a run keeps them";
    EXPECT_STREQ(module.GetLastErrorText(), "the disk is full");
    module.GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
    EXPECT_EQ(module.GetResults().GetSize(), 0);
    EXPECT_STREQ(module.GetLastErrorText(), "");
    EXPECT_FALSE(module.IsInterrupted());
}

TEST(TCBaseModuleEx, WarnsOfWhatWasGivenAndDoesNotCount) {
    constexpr TCParameterEffect EFFECTS[] = {{"block", "window", "hamming|flat"}, {"rate", "loop", "yes"}};
    const std::pair<const char*, const char*> rows[] = {
        {"", ""},
        {"block=1024", ""},  // its default
        {"block=8\nwindow=flat", ""},
        {"block=8\nrate=1",
         "block: has no effect with window=hann, only with hamming, flat\n"
         "rate: has no effect with loop=no, only with yes"}};
    for (const auto& [settings, warnings] : rows) {
        Recorder module;
        TCString error;
        TCStartCheck check;
        ASSERT_TRUE(module.SetSettings(TCString("file=a.wav\n") + settings, error)) << error;
        module.WarnWithoutEffect(EFFECTS, check);
        EXPECT_STREQ(check.warnings, warnings);
        EXPECT_TRUE(check.mistakes.IsEmpty());
        EXPECT_TRUE(module.IsGiven("file"));
    }
}

TEST(TCBaseModuleEx, InputsAreNamedByTheirNumber) {
    Recorder module;
    for (const auto& [inputs, last] : {std::pair(3, "Signal 3"), std::pair(1, "Signal")}) {
        EXPECT_EQ(module.GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, inputs), inputs);
        EXPECT_EQ(module.GetNoOutput(), inputs);
        EXPECT_STREQ(module.GetInputName(inputs - 1), last);
    }
}

}  // namespace
