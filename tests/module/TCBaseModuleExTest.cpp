#include <gtest/gtest.h>

#include <string>

#include "sigweave/module/TCBaseModuleEx.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "block",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1024",
     .minimum = 1,
     .maximum = 1048576},
    {.name = "rate", .kind = TCModuleParameter::NUMBER, .defaultValue = "48000", .unit = "Hz", .minimum = 0},
    {.name = "title", .kind = TCModuleParameter::TEXT, .defaultValue = ""},
    {.name = "window",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "hann",
     .choices = "hann|hamming|flat"},
    {.name = "loop", .kind = TCModuleParameter::SWITCH, .defaultValue = "no"},
    {.name = "file", .kind = TCModuleParameter::FILE, .defaultValue = nullptr},
};

class Recorder final : public TCBaseModuleEx {
 public:
    Recorder() : TCBaseModuleEx(0, PARAMETERS) { UseAnyNumberOfInputs("DOUBLE[]", ""); }
    const char* GetModuleId() const override { return "Recorder"; }
    const char* GetDescription() const override { return "Has one parameter of each kind."; }
    int Execute() override { return Fail(-14, "the disk is full"); }
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
    using TCBaseModuleEx::IsInterrupted;
    using TCBaseModuleEx::ParamBool;
    using TCBaseModuleEx::ParamChoice;
    using TCBaseModuleEx::ParamDbl;
    using TCBaseModuleEx::ParamInt;
    using TCBaseModuleEx::ParamStr;
};

TEST(TCBaseModuleEx, ValuesAreTypedAndDefaulted) {
    Recorder module;
    TCString error;
    EXPECT_EQ(module.ParamInt("block"), 1024);
    EXPECT_TRUE(module.SetParameter("block", " +16 ", error)) << error;
    EXPECT_TRUE(module.SetParameter("rate", "1.5e3", error)) << error;
    EXPECT_TRUE(module.SetParameter("window", "flat", error)) << error;
    EXPECT_TRUE(module.SetParameter("loop", "yes", error)) << error;
    EXPECT_EQ(module.ParamInt("block"), 16);
    EXPECT_EQ(module.ParamDbl("rate"), 1500.0);
    EXPECT_EQ(module.ParamChoice("window"), 2);
    EXPECT_TRUE(module.ParamBool("loop"));
    EXPECT_STREQ(module.ParamStr("title"), "");
}

TEST(TCBaseModuleEx, WrongValuesSayWhatIsAllowedAndChangeNothing) {
    const struct {
        const char* name;
        const char* value;
        const char* error;
    } rows[] = {
        {"block", "0", "parameter 'block': '0' is not allowed; an integer from 1 to 1048576"},
        {"block", "1e3", "parameter 'block': '1e3' is not allowed; an integer from 1 to 1048576"},
        {"rate", "nan", "parameter 'rate': 'nan' is not allowed; a number of at least 0 (in Hz)"},
        {"rate", "-1", "parameter 'rate': '-1' is not allowed; a number of at least 0 (in Hz)"},
        {"window", "Hann", "parameter 'window': 'Hann' is not allowed; one of hann, hamming, flat"},
        {"loop", "1", "parameter 'loop': '1' is not allowed; yes or no"},
        {"file", "", "parameter 'file': '' is not allowed; a file name"},
        {"blok", "1", "unknown parameter 'blok'; did you mean 'block'?"},
        {"zzz", "1", "unknown parameter 'zzz'; known are block, rate, title, window, loop, file"},
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
        {"block=8", "parameter 'file' must be given; a file name"},
        {"file=x\nblock=8\nblock=9", "parameter 'block' is given twice"},
        {"file=x\nblock=", "parameter 'block': '' is not allowed; an integer from 1 to 1048576"},
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

TEST(TCBaseModuleEx, InputsAreNamedByTheirNumber) {
    Recorder module;
    ASSERT_EQ(module.GetNoInput(), 1);
    EXPECT_STREQ(module.GetInputName(0), "Signal");
    EXPECT_EQ(module.GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, 3), 3);
    EXPECT_EQ(module.GetNoInput(), 3);
    EXPECT_STREQ(module.GetInputName(2), "Signal 3");
    EXPECT_EQ(module.GetNoOutput(), 3);
    EXPECT_EQ(module.GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, 1), 1);
    EXPECT_EQ(module.GetNoInput(), 1);
    EXPECT_STREQ(module.GetInputName(0), "Signal");
}

TEST(TCBaseModuleEx, ANewRunForgetsTheLast) {
    Recorder module;
    TCSI_Unit volt;
    ASSERT_TRUE(volt.FromString("V"));
    module.AddResult("Front", "rms", 0.5, volt);
    module.Interrupt();
    EXPECT_EQ(module.Execute(), -14);
    EXPECT_STREQ(module.GetLastErrorText(), "the disk is full");
    EXPECT_STREQ(module.GetResults()[0].unit, "V");
    EXPECT_TRUE(module.IsInterrupted());

    module.GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
    EXPECT_STREQ(module.GetLastErrorText(), "");
    EXPECT_TRUE(module.GetResults().IsEmpty());
    EXPECT_FALSE(module.IsInterrupted());
}

}  // namespace
