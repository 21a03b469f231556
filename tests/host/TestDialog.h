#pragma once

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/ui/PropertyItems.h"

// A module whose dialog has an item of every kind that can refuse something.
class TestDialog final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TestDialog";
    static constexpr TCModuleParameter PARAMETERS[] = {
        {"size", TCModuleParameter::INTEGER, "4", "", "How many", 1, 1e6},
        {"rate", TCModuleParameter::NUMBER, "1", "Hz"},
        {.name = "kind", .kind = TCModuleParameter::CHOICE, .defaultValue = "cut", .choices = "cut|pad"},
        {.name = "on", .kind = TCModuleParameter::SWITCH, .defaultValue = "no"},
        {.name = "input", .kind = TCModuleParameter::FILE, .defaultValue = nullptr, .fileFilter = "*.wav"},
        {.name = "pin",
         .kind = TCModuleParameter::NUMBER,
         .defaultValue = "0",
         .unit = "V",
         .minimum = 0,
         .maximum = 5,
         .secret = true},
        {.name = "later",
         .kind = TCModuleParameter::INTEGER,
         .defaultValue = "1",
         .label = {"Later", "Später"},
         .group = {"Times", "Zeiten"},
         .enabledWhen = {"on", "yes"},
         .suggestions = "1|2",
         .scale = TCModuleParameter::LOGARITHMIC,
         .step = 1,
         .live = true},
    };

    explicit TestDialog(int instance) : TCBaseModuleEx(instance, PARAMETERS) {}
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Has a dialog"; }
    const char* GetBaseName() const override { return "Test dialog"; }
    int Execute() override { return 0; }

    int BuildPropertyDialog(TCPropertyDialog& dialog) override {
        TCBaseModuleEx::BuildPropertyDialog(dialog);
        TCPropertyInt(dialog, "count", "Count", count).Limits(1, 8).Unit("Hz");
        TCPropertyDouble(dialog, "gain", "Gain", gain).minimum = 0;
        TCPropertySlider(dialog, "level", "Level", 0, 100, 1, level);
        TCPropertyBool(dialog, "flag", "Flag", flag);
        TCPropertyCombo(dialog, "mode", "Mode", {"cut", "pad"}, mode);
        TCPropertyRadio(dialog, "shape", "Shape", {"sine", "square"}, shape);
        TCPropertyDateTime(dialog, "start", "Start", start);
        TCPropertyOutputFile(dialog, "output", "Output", "", output).Required();
        TCPropertyFolder(dialog, "folder", "Folder", folder).Required();
        TCPropertyFont(dialog, "font", "Font", font);
        TCPropertyColour(dialog, "colour", "Colour", colour);
        TCPropertyList(dialog, "rows", "Rows", COLUMNS, rows);
        TCPropertyString(dialog, "title", "Title", title).Required();
        TCPropertyString(dialog, "password", "Password", password).Required().Secret();
        TCPropertyReadOnly(dialog, "length", "Length", [] { return CString("3"); });
        TCPropertyInt(dialog, "extra", "Extra", extra).ShownWhen("flag", {"yes"});
        TCPropertyString(dialog, "in1", "Input 1", in1).NamesPorts(TCPropertyDialogInfo::INPUT_PORTS);
        TCPropertyString(dialog, "in2", "Input 2", in2).NamesPorts(TCPropertyDialogInfo::INPUT_PORTS);
        dialog.checkTogether = [](const TCPropertyDialog::Texts& wanted) {
            return wanted("count") == "7" && wanted("gain") == "7"
                       ? CString(tc::Bilingual("gain: too much for 7", "gain: zu viel für 7").Text())
                       : CString();
        };
        return 1;
    }

 private:
    const CArray<TCPropertyColumn> COLUMNS = {
        {.key = "band", .label = "Band", .unique = true},
        {.key = "corner", .label = "Corner", .kind = TCPropertyDialogInfo::DOUBLE, .minimum = 0}};
    int count = 2;
    double gain = 1;
    double level = 20;
    bool flag = false;
    int mode = 0;
    int shape = 0;
    double start = 0;
    TCString output = "a";
    TCString folder = "/";
    TCLogFont font;
    unsigned long colour = 0;
    CArray<CStringArray> rows;
    TCString title = "a";
    TCString password = "a";
    int extra = 1;
    TCString in1 = "a";
    TCString in2 = "b";
};
