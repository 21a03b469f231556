#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <map>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <utility>

#include "sigweave/module/SettingsArchive.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/persistence/ArchiveTree.h"
#include "sigweave/persistence/ArchiveXml.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/ui/TCPropertyDialog.h"
#include "tests/support/Allocations.h"
#include "tests/support/MessageLog.h"

namespace {

enum class Window { FLAT, HANN, HAMMING };
constexpr tc::Choice<Window> WINDOWS[] = {
    {"hann", Window::HANN}, {"hamming", Window::HAMMING}, {"flat", Window::FLAT}};
constexpr tc::Choice<Window> OTHER_WINDOWS[] = {{"hann", Window::HANN}, {"flat", Window::FLAT}};
constexpr tc::Choice<int> WRONG_CHOICES[][2] = {
    {{"a", 1}, {"a", 2}}, {{"a", 1}, {"b", 1}}, {{"a|b", 1}, {"c", 2}}, {{"", 1}, {"c", 2}}};
static_assert(tc::AreChoicesValid<WINDOWS>() && !tc::AreChoicesValid<WRONG_CHOICES[0]>() &&
              !tc::AreChoicesValid<WRONG_CHOICES[1]>() && !tc::AreChoicesValid<WRONG_CHOICES[2]>() &&
              !tc::AreChoicesValid<WRONG_CHOICES[3]>());

constexpr TCModuleParameter PARAMETERS[] = {
    {"block", TCModuleParameter::INTEGER, "1024", "", "", 1, 1048576},
    {"rate", TCModuleParameter::NUMBER, "48000", "Hz", "", 0},
    {"title", TCModuleParameter::TEXT, ""},
    {"window", TCModuleParameter::CHOICE, "hann", "", "", 0, 0, tc::CHOICE_WORDS<WINDOWS>},
    {"loop", TCModuleParameter::SWITCH, "no"},
    {"file", TCModuleParameter::FILE, nullptr},
    {"gain", TCModuleParameter::NUMBER, "1", "", "", -HUGE_VAL, 4.5},
    {"out", TCModuleParameter::OUTPUT_FILE, ""},
    {.name = "taps",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "3",
     .enabledWhen = {"window", "hamming|flat"}},
    {.name = "pin",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "V",
     .maximum = 5,
     .live = true,
     .secret = true},
};

class Recorder final : public TCBaseModuleEx {
 public:
    Recorder() : TCBaseModuleEx(0, PARAMETERS) { UseAnyNumberOfInputs("DOUBLE[]", ""); }
    const char* GetModuleId() const override { return "Recorder"; }
    const char* GetDescription() const override { return "Has one parameter of each kind."; }
    int Execute() override { return 0; }
    bool OnSettingsChanged(TCString& error) override {
        if (ParamText("file") == "thrown.wav") throw std::runtime_error("thrown");
        if (ParamStr("file") != "missing.wav") return true;
        error = "there is no file 'missing.wav'";
        return false;
    }
    void OnInputsDeclared(int count) override {
        for (int i = 0; i < count; ++i) GetPortHelper()->SetPort(OUTPUT, i, "Out", "DOUBLE[]", "", true);
    }

    using TCBaseModuleEx::AddResult, TCBaseModuleEx::DeclareSource, TCBaseModuleEx::Fail,
        TCBaseModuleEx::IsGiven, TCBaseModuleEx::WarnWithoutEffect, TCBaseModuleEx::IsInterrupted,
        TCBaseModuleEx::ParamBool, TCBaseModuleEx::ParamChoice, TCBaseModuleEx::ParamDbl,
        TCBaseModuleEx::ParamIndex, TCBaseModuleEx::ParamInt, TCBaseModuleEx::ParamStr,
        TCBaseModuleEx::ParamText, TCBaseModuleEx::Warn;
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
        {"rate", "3,5 kHz",
         "rate: '3,5 kHz' is not valid; expected a number of at least 0 (in Hz); write a point: 3.5 kHz"},
        {"rate", "1,000,5",
         "rate: '1,000,5' is not valid; expected a number of at least 0 (in Hz); write a point in place of "
         "the "
         "comma"},
        {"rate", "-0,5",
         "rate: '-0,5' is not valid; expected a number of at least 0 (in Hz); write a point in place of the "
         "comma"},
        {"rate", "3 V",
         "rate: '3 V' is not valid; expected a number of at least 0 (in Hz); the unit V does not fit; "
         "expected Hz"},
        {"rate", "-1 kHz", "rate: '-1 kHz' is not valid; expected a number of at least 0 (in Hz)"},
        {"gain", "1e308k",
         "gain: '1e308k' is not valid; expected a number of at most 4.5; the number is too "
         "large or too small"},
        {"block", "1k", "block: '1k' is not valid; expected an integer from 1 to 1048576"},
        {"pin", "1234", "pin: the value is not valid; expected a number of at most 5 (in V)"},
        {"window", "Hann", "window: 'Hann' is not valid; expected one of hann, hamming, flat"},
        {"loop", "1", "loop: '1' is not valid; expected yes or no"},
        {"file", "", "file: '' is not valid; expected a file name"},
        {"blok", "1", "blok: there is no such parameter; did you mean 'block'?"},
        {"zzz", "1",
         "zzz: there is no such parameter; known are block, rate, title, window, loop, file, "
         "gain, out, taps, pin"},
        {"block", "1048577", "block: '1048577' is not valid; expected an integer from 1 to 1048576"},
        {"gain", "4.6", "gain: '4.6' is not valid; expected a number of at most 4.5"},
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

// The number of a setting is the FNV-1a hash of its name, without the highest bit.
TEST(TCBaseModuleEx, SettingsGoThroughAnArchive) {
    Recorder module;
    TCString error;
    for (const auto& [name, value] : {std::pair("block", "8"), {"window", "flat"}, {"pin", "2"}})
        ASSERT_TRUE(module.SetParameter(name, value, error)) << error;
    tc::ArchiveTree archive;
    ASSERT_TRUE(tc::SerializeSettings(archive, module, error)) << error;
    std::map<int, std::string> stored;
    for (const tc::ArchiveItem& item : archive.Items()) stored[item.number] = item.label + "=" + item.text;
    EXPECT_EQ(stored[1795997026], "block=8");
    EXPECT_EQ(stored[561166301], "window=flat");
    EXPECT_EQ(stored.size(), std::size(PARAMETERS) - 2) << "not the secret one, and none that was not given";
    const auto load = [&](const std::string& items) {
        TCXML document;
        tc::ArchiveTree read;
        EXPECT_TRUE(document.LoadXML(("<archive version='1'>" + items + "</archive>").c_str()));
        EXPECT_TRUE(tc::ReadXmlArchive(document, read)) << document.GetError();
        return tc::SerializeSettings(read, module, error);
    };
    EXPECT_TRUE(load("<string number='1795997026'>16</string>")) << error;
    EXPECT_STREQ(module.GetParameter("block"), "16");
    EXPECT_STREQ(module.GetParameter("window"), "flat") << "the archive says nothing of it";
    EXPECT_FALSE(load("<string number='1795997026'>32</string><string number='561166301'>round</string>"));
    EXPECT_STREQ(error, "window: 'round' is not valid; expected one of hann, hamming, flat");
    EXPECT_STREQ(module.GetParameter("block"), "16") << "nothing has changed";
}

TEST(TCBaseModuleEx, ValuesAreReadOnceAndByKind) {
    Recorder module;
    TCString error;
    EXPECT_EQ(module.ParamChoice<WINDOWS>("window"), Window::HANN);
    EXPECT_FALSE(module.ParamBool("loop"));
    EXPECT_EQ(module.ParamText("file"), "") << "not given yet";
    for (const auto& [name, value] : {std::pair("block", " 8\t"),
                                      {"rate", "+44100.5"},
                                      {"window", "flat"},
                                      {"loop", "yes"},
                                      {"title", "5"},
                                      {"gain", "-1e300"},
                                      {"block", "1048576"},
                                      {"gain", "4.5"},
                                      {"rate", "0"},
                                      {"block", "1"},
                                      {"pin", "20 mV"},
                                      {"gain", "30 %"},
                                      {"rate", " 0.0025 kHz"}})
        ASSERT_TRUE(module.SetParameter(name, value, error)) << error;
    const int block = module.ParamIndex("block"), rate = module.ParamIndex("rate");
    const int loop = module.ParamIndex("loop"), before = allocations::Count();
    double sum = 0.0;
    for (int i = 0; i < 1000; ++i) {
        sum += module.ParamInt("block") + module.ParamDbl("rate") + module.ParamDbl("block");
        sum += module.ParamInt(block) + module.ParamDbl(rate) + module.ParamDbl(block);
        sum += module.ParamBool("loop") + module.ParamBool(loop) + module.ParamChoice("window");
        sum += module.ParamChoice<WINDOWS>("window") == Window::FLAT;
    }
    EXPECT_EQ(allocations::Count() - before, 0);
    EXPECT_EQ(sum, 14000.0);
    EXPECT_EQ(module.ParamText("title") + module.ParamText("block"), "51");
    EXPECT_EQ(module.ParamDbl("pin"), 0.02);
    EXPECT_EQ(module.ParamDbl("gain"), 0.3);
    EXPECT_EQ(module.ParamText("rate"), " 0.0025 kHz") << "stored as it was typed";
}

TEST(TCBaseModuleEx, MistakesOfTheAuthorAreReportedOnce) {
    const MessageLog log;
    Recorder module;
    for (int i = 0; i < 3; ++i) {
        EXPECT_DEBUG_DEATH(EXPECT_EQ(module.ParamDbl("ratio"), 0.0), "declared");
        EXPECT_DEBUG_DEATH(EXPECT_EQ(module.ParamIndex(nullptr), -1), "declared");
        EXPECT_DEBUG_DEATH(EXPECT_EQ(module.ParamInt(10) + module.ParamInt("gain"), 0), "declared");
        EXPECT_DEBUG_DEATH(EXPECT_EQ(module.ParamDbl("title"), 0.0), "declared");
        EXPECT_DEBUG_DEATH(EXPECT_EQ(module.ParamChoice("block"), 0), "declared");
        EXPECT_DEBUG_DEATH(EXPECT_FALSE(module.ParamBool("window")), "declared");
        EXPECT_DEBUG_DEATH(EXPECT_EQ(module.ParamChoice<OTHER_WINDOWS>("window"), Window::HANN), "declared");
    }
    std::string names;
    for (const std::string& line : log.Lines()) {
        EXPECT_EQ(line.find("4 Recorder: the module reads its parameter '"), 0u) << line;
        names += line.substr(line.find('\''), line.rfind('\'') + 1 - line.find('\''));
        names += line.find("another kind") != line.npos ? " is of another kind, " : " is not declared, ";
    }
#ifdef NDEBUG
    EXPECT_EQ(
        names,
        "'ratio' is not declared, '-1' is not declared, '10' is not declared, 'gain' is of another kind, "
        "'title' is of another kind, 'block' is of another kind, 'window' is of another kind, ");
#endif
}

TEST(TCBaseModuleEx, DebugBuildsWatchOrderAndThread) {
    const MessageLog log;
    Recorder module;
    TCString error;
    for (int run = 0; run < 2; ++run) {
        module.SetSettings("file=x", error);
        module.Init(), module.Fetch(), module.Done();
    }
    EXPECT_EQ(log.Lines().size(), 0u);
    module.Done(), module.Fetch(), module.Init(), module.Init(), module.ApplySettings(error);
    std::thread([&module] { module.Fetch(), module.Done(); }).join();
    std::string calls;
    for (const std::string& line : log.Lines()) calls += line.substr(12) + "; ";
#ifdef NDEBUG
    EXPECT_EQ(calls, "");
#else
    EXPECT_EQ(calls,
              "Fetch was called outside of a run; Init was called during a run; ApplySettings was called "
              "during a run; Fetch was called on another thread than Init; Done was called on another thread "
              "than Init; ");
#endif
}

TEST(TCBaseModuleEx, FailuresAndWarningsAreInBothLanguages) {
    constexpr tc::Bilingual FULL("%1 is full", "%1 ist voll");
    const MessageLog log;
    Recorder module;
    const CString text("made elsewhere");
    for (const int language : {0, 1}) {
        module.GetMessageA(41, language);
        EXPECT_EQ(module.Fail(-7, FULL, {"disk"}), -7);
        EXPECT_STREQ(module.GetLastErrorText(), language == 0 ? "disk is full" : "disk ist voll");
        module.Warn(FULL, {"memory"});
    }
    module.GetMessageA(41, 0);
    EXPECT_EQ(log.Lines(),
              (std::vector<std::string>{"8 Recorder: memory is full", "8 Recorder: memory ist voll"}));
    EXPECT_EQ(module.Fail(-1, text) + module.Fail(-2, TCString(text.c_str())) + module.Fail(-4, text.c_str()),
              -7);
    EXPECT_STREQ(module.GetLastErrorText(), "made elsewhere");
    EXPECT_EQ(module.Fail(-3, "a literal"), -3);
    EXPECT_STREQ(module.GetLastErrorText(), "a literal");
}

TEST(TCBaseModuleEx, ARunBeginsWithNothingOfTheLastOne) {
    Recorder module;
    TCSI_Unit volt;
    volt.FromString("V");
    EXPECT_EQ(module.GetTypeOfModule(), 0);
    module.DeclareSource();
    EXPECT_EQ(module.GetTypeOfModule(), 1);
    module.AddResult("left", "rms", 0.5, volt);
    const TCModuleResult result = module.GetResults()[0];
    EXPECT_STREQ(result.signal + " " + result.quantity + " " + result.unit, "left rms V");
    EXPECT_EQ(result.value, 0.5);
    module.Fail(-1, "the disk is full");
    module.Interrupt();
    for (const long message : {0, 2, 1}) {
        module.GetMessageA(TCPortHelper::MESSAGE_RUNNING, message);
        EXPECT_EQ(module.GetResults().GetSize(), message == 1 ? 0 : 1) << message;
        EXPECT_STREQ(module.GetLastErrorText(), message == 1 ? "" : "the disk is full");
        EXPECT_EQ(module.IsInterrupted(), message != 1);
        EXPECT_EQ(module.GetPortHelper()->IsRunning(), message != 0) << "the base gets the message too";
    }
    EXPECT_EQ(module.GetProgress(), -1.0);
    EXPECT_EQ(module.Init(), 0);
    EXPECT_EQ(module.Fetch(), 0);
    module.GetPortHelper()->SetObligatoryInput(0);
    EXPECT_EQ(module.Init(), -3);
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
        {"", "file: must be given; expected a file name"},
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
    // The other door, on what was effective last.
    for (const char* file : {"missing.wav", "thrown.wav"}) {
        EXPECT_TRUE(module.SetParameter("block", "8", error) && module.SetParameter("file", file, error));
        try {
            EXPECT_FALSE(module.ApplySettings(error));
        } catch (const std::runtime_error&) {
        }
        EXPECT_STREQ(module.GetSettings(), before) << file;
        EXPECT_EQ(module.ParamInt("block"), 64);
    }
    EXPECT_TRUE(module.SetParameter("block", "8", error) && module.ApplySettings(error));
    EXPECT_TRUE(module.SetParameter("rate", "1", error));
    EXPECT_FALSE(module.SetSettings("file=missing.wav", error));
    EXPECT_EQ(module.ParamInt("block") + module.ParamDbl("rate"), 9.0);
    EXPECT_TRUE(module.SetSettings("file=b.wav", error));
    EXPECT_EQ(module.ParamInt("block"), 1024) << "what the text does not name has its default";
    EXPECT_EQ(module.FindParameter("rate")->unit, std::string("Hz"));
    EXPECT_EQ(module.FindParameter("none"), nullptr);
    EXPECT_STREQ(module.GetParameter("none"), "");
    EXPECT_STREQ(module.GetParameter("file"), "b.wav");
}

TEST(TCBaseModuleEx, WarnsOfWhatWasGivenAndDoesNotCount) {
    constexpr TCParameterEffect EFFECTS[] = {{"block", "window", "hamming|flat"}, {"rate", "loop", "yes"}};
    const std::pair<const char*, const char*> rows[] = {
        {"", ""},
        {"block=1024", ""},  // its default
        {"block=8\nwindow=flat", ""},
        {"taps=4", "taps: has no effect with window=hann, only with hamming, flat"},
        {"taps=4\nwindow=flat", ""},
        {"block=8\nrate=1",
         "block: has no effect with window=hann, only with hamming, flat\n"
         "rate: has no effect with loop=no, only with yes"}};
    for (const auto& [settings, warnings] : rows) {
        Recorder module;
        TCString error;
        TCStartCheck check;
        ASSERT_TRUE(module.SetSettings(TCString("file=a.wav\n") + settings, error)) << error;
        module.WarnWithoutEffect(EFFECTS, check);
        module.WarnWithoutEffect(check);
        EXPECT_STREQ(check.warnings, warnings);
        EXPECT_TRUE(check.mistakes.IsEmpty());
        EXPECT_TRUE(module.IsGiven("file"));
    }
}

TEST(TCBaseModuleEx, HostsReadTheDeclarationByIndex) {
    Recorder module;
    TCString error;
    EXPECT_EQ(&module.GetInfo(8), &PARAMETERS[8]) << "no copy";
    EXPECT_FALSE(module.IsEnabled(8));
    ASSERT_TRUE(module.SetParameter("window", "flat", error));
    EXPECT_TRUE(module.IsEnabled(8) && module.IsEnabled(0));
    EXPECT_FALSE(module.GetInfoExtern(8).isLive);
    const TCBaseModuleEx::InfoExtern pin = module.GetInfoExtern(9);
    EXPECT_TRUE(pin.isLive && pin.maximum == 5.0 && std::string(pin.unit) == "V");
    for (const int wrong : {-1, 10}) EXPECT_STREQ(module.GetInfo(wrong).name, "") << wrong;
}

TEST(TCBaseModuleEx, TheDialogIsMadeOfTheDeclaration) {
    Recorder module;
    TCPropertyDialog dialog;
    ASSERT_EQ(module.BuildPropertyDialog(dialog), 1);
    EXPECT_EQ(dialog.GetCount(), 10);
    const struct {
        const char* key;
        TCPropertyDialogInfo::KIND kind;
        bool required;
        const char* unit;
        double minimum, maximum;
    } rows[] = {{"block", TCPropertyDialogInfo::INT, false, "", 1, 1048576},
                {"title", TCPropertyDialogInfo::STRING, false, "", -DBL_MAX, DBL_MAX},
                {"window", TCPropertyDialogInfo::COMBO, false, "", 0, 0},
                {"loop", TCPropertyDialogInfo::BOOL, false, "", -DBL_MAX, DBL_MAX},
                {"file", TCPropertyDialogInfo::FILE, true, "", -DBL_MAX, DBL_MAX},
                {"out", TCPropertyDialogInfo::OUTPUT_FILE, false, "", -DBL_MAX, DBL_MAX},
                {"pin", TCPropertyDialogInfo::DOUBLE, false, "V", -DBL_MAX, 5}};
    for (const auto& row : rows) {
        const TCPropertyDialogInfo* const item = dialog.Find(row.key);
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(
            std::tuple(item->kind, item->required, std::string(item->unit), item->minimum, item->maximum),
            std::tuple(row.kind, row.required, std::string(row.unit), row.minimum, row.maximum))
            << row.key;
    }
    EXPECT_EQ(dialog.Find("window")->choices, (CStringArray{"hann", "hamming", "flat"}));
    const TCPropertyDialogInfo& block = *dialog.Find("block");
    EXPECT_EQ(block.get(), "1024");
    EXPECT_EQ(block.check("0"), "block: '0' is not valid; expected an integer from 1 to 1048576");
    EXPECT_EQ(block.check("8"), "");
    EXPECT_EQ(block.get(), "1024") << "a check changes nothing";
    block.set("8");
    CString refusal;
    EXPECT_FALSE(dialog.apply(refusal));
    EXPECT_EQ(refusal, "file: must be given; expected a file name");
    TCArray<TCModuleFile> files;
    for (const char* key : {"block", "file", "out"}) {
        module.GetFiles(files);
        dialog.Find(key)->set("9");
    }
    EXPECT_TRUE(dialog.apply(refusal)) << refusal;
    EXPECT_EQ(module.ParamInt("block"), 9);
    module.GetFiles(files);
    std::string uses;
    for (const TCModuleFile& file : files) uses += std::to_string(file.use) + std::string(file.path) + " ";
    EXPECT_EQ(uses, "09 09 19 ") << "those that are given, read and written";
}

TEST(TCBaseModuleEx, InputsAreNamedByTheirNumber) {
    Recorder module;
    for (const auto& [inputs, last] : {std::pair(3, "Signal 3"), {1, "Signal"}}) {
        EXPECT_EQ(module.GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, inputs), inputs);
        EXPECT_EQ(module.GetNoOutput(), inputs);
        EXPECT_STREQ(module.GetInputName(inputs - 1), last);
        EXPECT_EQ(module.GetPortHelper()->DataType(INPUT, 0), 0x04000040u);
    }
    EXPECT_EQ(module.GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, 0), 1);
}

}  // namespace
