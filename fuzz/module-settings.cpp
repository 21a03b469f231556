// The settings of a module with parameters of every kind, as parameter text. Parts of an input: the settings,
// the name of a parameter, and a value for it.
#include "fuzz/Fuzz.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "count", .kind = TCModuleParameter::INTEGER, .defaultValue = "3", .minimum = -5, .maximum = 1e6},
    {.name = "gain", .kind = TCModuleParameter::NUMBER, .defaultValue = "1", .unit = "V"},
    {.name = "share", .kind = TCModuleParameter::NUMBER, .defaultValue = "0", .minimum = 0, .maximum = 1},
    {.name = "label", .kind = TCModuleParameter::TEXT, .defaultValue = ""},
    {.name = "window",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "hann",
     .choices = "hann|flat top|x"},
    {.name = "on", .kind = TCModuleParameter::SWITCH, .defaultValue = "no"},
    {.name = "file", .kind = TCModuleParameter::FILE, .defaultValue = "a.wav"},
    {.name = "output", .kind = TCModuleParameter::OUTPUT_FILE, .defaultValue = nullptr},
};

class EveryKind final : public TCBaseModuleEx {
 public:
    EveryKind() : TCBaseModuleEx(1, PARAMETERS) {}
    const char* GetModuleId() const override { return "EveryKind"; }
    const char* GetDescription() const override { return ""; }
    int Execute() override { return 0; }
    const char* GetBaseName() const override { return "EveryKind"; }
};

std::string Settings(const TCBaseModuleEx& module) {
    return fuzz::Bytes(module.GetSettings());
}

void CheckValues(const EveryKind& module) {
    for (const TCModuleParameter& parameter : PARAMETERS) {
        const TCString value = module.GetParameter(parameter.name);
        fuzz::Require(parameter.Allows(value) || (parameter.defaultValue == nullptr && value.IsEmpty()),
                      "a value is one that is allowed");
    }
    EveryKind again;
    TCString error;
    fuzz::Require(again.SetSettings(module.GetSettings(), error), "settings that were told can be set");
    fuzz::RequireSame(Settings(again), Settings(module), "and are the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    EveryKind module;
    TCString error;
    fuzz::Require(module.SetSettings("output=b.csv\n", error), "the settings of the beginning are right");
    const std::string before = Settings(module);
    const bool isSet = module.SetSettings(parts.Next().c_str(), error);
    fuzz::Require(isSet || !error.IsEmpty(), "a failure has a message");
    fuzz::Require(isSet || Settings(module) == before, "and changes nothing");
    CheckValues(module);
    const std::string name = parts.Next();
    const std::string value = parts.Next();
    const std::string held = Settings(module);
    const bool isTaken = module.SetParameter(name.c_str(), value.c_str(), error);
    fuzz::Require(isTaken || Settings(module) == held, "a value that is refused changes nothing");
    if (isTaken)
        fuzz::RequireSame(static_cast<const char*>(module.GetParameter(name.c_str())), value,
                          "a value that is taken is kept");
    CheckValues(module);
    return 0;
}
