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

    using TCBaseModuleEx::ParamInt;
    using TCBaseModuleEx::ParamStr;
};

TEST(TCBaseModuleEx, WrongValuesSayWhatIsAllowedAndChangeNothing) {
    const struct {
        const char* name;
        const char* value;
        const char* error;
    } rows[] = {
        {"block", "0", "parameter 'block': '0' is not allowed; allowed is an integer from 1 to 1048576"},
        {"rate", "nan", "parameter 'rate': 'nan' is not allowed; allowed is a number of at least 0 (in Hz)"},
        {"window", "Hann",
         "parameter 'window': 'Hann' is not allowed; allowed is one of hann, hamming, flat"},
        {"loop", "1", "parameter 'loop': '1' is not allowed; allowed is yes or no"},
        {"file", "", "parameter 'file': '' is not allowed; allowed is a file name"},
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
        {"block=8", "parameter 'file' must be given; allowed is a file name"},
        {"file=x\nblock=8\nblock=9", "parameter 'block' is given twice"},
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
    for (const auto& [inputs, last] : {std::pair(3, "Signal 3"), std::pair(1, "Signal")}) {
        EXPECT_EQ(module.GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, inputs), inputs);
        EXPECT_EQ(module.GetNoOutput(), inputs);
        EXPECT_STREQ(module.GetInputName(inputs - 1), last);
    }
}

}  // namespace
