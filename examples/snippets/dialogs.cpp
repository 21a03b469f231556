// A module that adds a group, a list and a button to the dialog of its parameters.
#include <cstdio>

#include "sigweave/sigweave.h"

namespace {

class Equaliser final : public TCBaseModuleEx {
 public:
    static constexpr TCModuleParameter PARAMETERS[] = {
        {.name = "type", .kind = TCModuleParameter::CHOICE, .defaultValue = "flat", .choices = "flat|bands"},
        {.name = "gain",
         .kind = TCModuleParameter::NUMBER,
         .defaultValue = "0",
         .minimum = -60,
         .maximum = 20},
    };
    explicit Equaliser(int instance) : TCBaseModuleEx(instance, PARAMETERS) {}
    const char* GetModuleId() const override { return "Equaliser"; }
    const char* GetDescription() const override { return "Raises and lowers bands"; }
    int Execute() override { return 0; }

    int BuildPropertyDialog(TCPropertyDialog& dialog) override {
        TCBaseModuleEx::BuildPropertyDialog(dialog);
        TCPropertyGroup(dialog, "shape", {"Bands", "Bänder"}).EnabledWhen("type", {"bands"});
        TCPropertyList(dialog, "bands", "", COLUMNS, bands);
        TCPropertyButton(dialog, "clear", {"Clear", "Leeren"}, [this] { bands.clear(); });
        return 1;
    }

    CArray<CStringArray> bands = {{"bass", "100"}};

 private:
    const CArray<TCPropertyColumn> COLUMNS = {{.key = "name", .label = {"Name", "Name"}, .unique = true},
                                              {.key = "corner",
                                               .label = {"Corner", "Eckfrequenz"},
                                               .kind = TCPropertyDialogInfo::DOUBLE,
                                               .minimum = 0}};
};

}  // namespace

int main() {
    Equaliser module(0);
    TCPropertyDialog description;
    module.BuildPropertyDialog(description);
    TCDialog dialog(description);
    TCDialog::Refusal refusal;
    for (const auto& [key, text] : {std::pair("gain", "99"), std::pair("bands", "bass\t80\n"),
                                    std::pair("type", "bands"), std::pair("bands", "bass\t80\n")}) {
        const bool done = dialog.SetText(key, text, refusal);
        std::printf("%s\n", done ? "set" : refusal.text.c_str());
    }
    if (!dialog.End(TCDialog::OK, refusal)) return 1;
    std::printf("%s, %s\n", static_cast<const char*>(module.GetParameter("type")),
                module.bands[0][1].c_str());
}
