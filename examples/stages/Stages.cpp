// An amplifier whose dialog has groups, values that count only at times, a list and a button.
#include "sigweave/sigweave.h"

struct Stages final : TCBaseModuleEx {
    static constexpr const char* ID = "Stages";
    static constexpr TCModuleParameter PARAMETERS[] = {{.name = "mode",
                                                        .kind = TCModuleParameter::CHOICE,
                                                        .defaultValue = "gain",
                                                        .choices = "gain|stages",
                                                        .group = {"Amplifier", "Verstärker"}},
                                                       {.name = "gain",
                                                        .kind = TCModuleParameter::NUMBER,
                                                        .defaultValue = "1",
                                                        .group = {"Amplifier", "Verstärker"},
                                                        .enabledWhen = {"mode", "gain"}},
                                                       {.name = "stages",
                                                        .kind = TCModuleParameter::TEXT,
                                                        .defaultValue = "",
                                                        .group = {"Stages", "Stufen"},
                                                        .enabledWhen = {"mode", "stages"}}};
    TCArray<double, double> samples;
    double factor = 1.0;

    explicit Stages(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        for (auto side : {INPUT, OUTPUT}) portHelper->SetPort(side, 0, "Signal", "DOUBLE[]", "", true);
        portHelper->UseTypeInfoFromInput(0, 0);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "A signal through stages of an amplifier"; }
    int BuildPropertyDialog(TCPropertyDialog& dialog) override {
        TCBaseModuleEx::BuildPropertyDialog(dialog);
        auto& list = dialog.Find("stages")->AsList(
            {{.key = "name", .unique = true}, {.key = "gain", .kind = TCPropertyDialogInfo::DOUBLE}});
        const auto clear = [this, ignored = TCString()]() mutable { SetParameter("stages", "", ignored); };
        TCPropertyButton(dialog, "clear", {"Clear", "Leeren"}, clear).parent = list.parent;
        return 1;
    }
    bool OnSettingsChanged(TCString& error) override {
        CArray<CStringArray> rows;
        const bool isOne = ParamText("mode") == "gain";
        bool right = isOne || tc::ReadPropertyRows(ParamText("stages"), rows);
        double product = isOne ? ParamDbl("gain") : 1.0, gain = 1.0;
        for (const CStringArray& row : rows) {
            right = right && row.size() == 2 && tc::ReadPropertyDouble(row[1], gain);
            product *= gain;
        }
        (right ? factor : gain) = product;
        if (!right) error = "stages: expected rows of a name and a number";
        return right;
    }
    int Execute() override {
        if (const int code = portHelper->ReadDblArray(0, samples); code <= 0) return code;
        for (double& sample : samples) sample *= factor;
        return portHelper->WriteDblArray(0, samples);
    }
};
TC_MODULE_LIBRARY(Stages);
