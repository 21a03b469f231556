#include "sigweave/ui/PropertyItems.h"

#include <algorithm>
#include <utility>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/ui/PropertyText.h"

namespace {

using Info = TCPropertyDialogInfo;

TCPropertyBinding Bind(TCString& value) {
    return {[&value] { return CString(static_cast<const char*>(value)); },
            [&value](const CString& text) { value = text.c_str(); }, nullptr};
}

template <class Value>
TCPropertyBinding Bind(Value& value, auto write, auto read) {
    return {[&value, write] { return write(value); },
            [&value, read](const CString& text) { read(text, value); }, nullptr};
}

TCPropertyBinding Bind(double& value) {
    return Bind(value, tc::ShortestText, tc::ReadPropertyDouble);
}

Info& AddChoice(TCPropertyDialog& dialog, Info::KIND kind, const char* key, const TCTranslatedString& label,
                const CStringArray& choices, int& position) {
    const auto get = [&position, choices] {
        const bool isOne = position >= 0 && static_cast<std::size_t>(position) < choices.size();
        return isOne ? choices[static_cast<std::size_t>(position)] : CString();
    };
    const auto set = [&position, choices](const CString& text) {
        position = static_cast<int>(std::ranges::find(choices, text) - choices.begin());
    };
    Info& item = dialog.Add(kind, key, label, {get, set, nullptr});
    item.choices = choices;
    return item;
}

}  // namespace

Info& TCPropertyInt(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label, int& value) {
    const auto write = [](int number) { return std::to_string(number); };
    return dialog.Add(Info::INT, key, label, Bind(value, write, tc::ReadPropertyInt));
}

Info& TCPropertyDouble(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                       double& value) {
    return dialog.Add(Info::DOUBLE, key, label, Bind(value));
}

Info& TCPropertyString(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                       TCString& value) {
    return dialog.Add(Info::STRING, key, label, Bind(value));
}

Info& TCPropertyBool(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                     bool& value) {
    const auto write = [](bool is) { return CString(is ? "yes" : "no"); };
    const auto read = [](const CString& text, bool& is) { is = text == "yes"; };
    return dialog.Add(Info::BOOL, key, label, Bind(value, write, read));
}

Info& TCPropertyCombo(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                      const CStringArray& choices, int& position) {
    return AddChoice(dialog, Info::COMBO, key, label, choices, position);
}

Info& TCPropertyRadio(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                      const CStringArray& choices, int& position) {
    return AddChoice(dialog, Info::RADIO, key, label, choices, position);
}

Info& TCPropertyEditCombo(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                          const CStringArray& suggestions, TCString& value) {
    return dialog.Add(Info::EDIT_COMBO, key, label, Bind(value)).Suggest(suggestions);
}

Info& TCPropertySlider(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                       double minimum, double maximum, double step, double& value) {
    Info& item = dialog.Add(Info::SLIDER, key, label, Bind(value)).Limits(minimum, maximum);
    item.step = step;
    return item;
}

Info& TCPropertyDateTime(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                         double& time) {
    return dialog.Add(Info::DATE_TIME, key, label, Bind(time, tc::WritePropertyTime, tc::ReadPropertyTime));
}

Info& TCPropertyFile(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                     const char* filter, TCString& path) {
    return dialog.Add(Info::FILE, key, label, Bind(path)).Filter(filter);
}

Info& TCPropertyOutputFile(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                           const char* filter, TCString& path) {
    return dialog.Add(Info::OUTPUT_FILE, key, label, Bind(path)).Filter(filter);
}

Info& TCPropertyFolder(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                       TCString& path) {
    return dialog.Add(Info::FOLDER, key, label, Bind(path));
}

Info& TCPropertyFont(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                     TCLogFont& font) {
    return dialog.Add(Info::FONT, key, label, Bind(font, tc::WritePropertyFont, tc::ReadPropertyFont));
}

Info& TCPropertyColour(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                       unsigned long& colour) {
    return dialog.Add(Info::COLOUR, key, label,
                      Bind(colour, tc::WritePropertyColour, tc::ReadPropertyColour));
}

Info& TCPropertyList(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                     const CArray<TCPropertyColumn>& columns, CArray<CStringArray>& rows) {
    Info& item = dialog.Add(Info::LIST, key, label, Bind(rows, tc::WritePropertyRows, tc::ReadPropertyRows));
    item.columns = columns;
    return item;
}

Info& TCPropertyText(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                     const char* language, TCString& text) {
    return dialog.Add(Info::TEXT, key, label, Bind(text)).Language(language);
}

Info& TCPropertyButton(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                       std::function<void()> press) {
    Info& item = dialog.Add(Info::BUTTON, key, label);
    item.press = std::move(press);
    return item;
}

Info& TCPropertyReadOnly(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label,
                         std::function<CString()> value) {
    return dialog.Add(Info::READ_ONLY, key, label, {std::move(value), nullptr, nullptr});
}

Info& TCPropertyLabel(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& text) {
    return dialog.Add(Info::LABEL, key, text);
}

Info& TCPropertyGroup(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label) {
    return dialog.Add(Info::GROUP, key, label);
}

Info& TCPropertyPage(TCPropertyDialog& dialog, const char* key, const TCTranslatedString& label) {
    return dialog.Add(Info::PAGE, key, label);
}

Info& TCPropertySeparator(TCPropertyDialog& dialog, const char* key) {
    return dialog.Add(Info::SEPARATOR, key, "");
}
