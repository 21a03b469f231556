// How long does a form of 200 parameters take to open, and a change of one of them?
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "host/FormSession.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/ui/TCPropertyDialog.h"

namespace {

constexpr int PARAMETERS = 200;

// Every fifth counts only while the one before it is on.
const std::vector<TCModuleParameter>& Table() {
    static const std::vector<TCModuleParameter> table = [] {
        static std::vector<std::string> names;
        for (int i = 0; i < PARAMETERS; ++i) names.push_back("parameter_" + std::to_string(i));
        std::vector<TCModuleParameter> made;
        for (int i = 0; i < PARAMETERS; ++i) {
            const auto at = static_cast<std::size_t>(i);
            TCModuleParameter one = {names[at].c_str(), TCModuleParameter::NUMBER, "100", "Hz",
                                     "what it does"};
            if (i % 5 == 3) one = {names[at].c_str(), TCModuleParameter::SWITCH, "yes"};
            if (i % 5 == 4) one.enabledWhen = {names[at - 1].c_str(), "yes"};
            one.label = "A parameter";
            made.push_back(one);
        }
        return made;
    }();
    return table;
}

class Many final : public TCBaseModuleEx {
 public:
    explicit Many(int instance) : TCBaseModuleEx(instance, Table()) {}
    const char* GetModuleId() const override { return "Many"; }
    const char* GetDescription() const override { return "Has many parameters"; }
    int Execute() override { return 0; }
};

// Module, description, values and the line that a front end gets.
void BM_Form_Open200(benchmark::State& state) {
    for (auto _ : state) {
        Many module(0);
        TCPropertyDialog description;
        module.BuildPropertyDialog(description);
        TCDialog shown(description);
        host::FormSession session(shown);
        benchmark::DoNotOptimize(session.Describe());
    }
}
BENCHMARK(BM_Form_Open200)->Unit(benchmark::kMillisecond);

void BM_Form_ChangeOneOf200(benchmark::State& state) {
    Many module(0);
    TCPropertyDialog description;
    module.BuildPropertyDialog(description);
    TCDialog shown(description);
    host::FormSession session(shown);
    int value = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            session.Answer("{\"set\": {\"parameter_100\": " + std::to_string(++value % 2) + "}}"));
}
BENCHMARK(BM_Form_ChangeOneOf200)->Unit(benchmark::kMillisecond);

}  // namespace
