#include <algorithm>
#include <span>
#include <sstream>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/ui/PropertyItems.h"
#include "sigweave/ui/TCPropertyDialog.h"

namespace {

using Info = TCPropertyDialogInfo;

// By TCModuleParameter::Kind.
constexpr Info::KIND KINDS[] = {Info::INT,  Info::DOUBLE, Info::STRING,     Info::COMBO,
                                Info::BOOL, Info::FILE,   Info::OUTPUT_FILE};

Info::KIND KindOf(const TCModuleParameter& parameter) {
    const Info::KIND kind = KINDS[parameter.kind];
    const bool isTyped = kind == Info::INT || kind == Info::DOUBLE || kind == Info::STRING;
    return isTyped && *parameter.suggestions != '\0' ? Info::EDIT_COMBO : kind;
}

CStringArray WordsOf(const char* texts) {
    CStringArray words;
    std::istringstream all(texts);
    for (CString word; std::getline(all, word, '|');) words.push_back(word);
    return words;
}

// What a front end shows of the declaration; its texts live as long as the module.
void Describe(const TCModuleParameter& parameter, Info& item) {
    item.help = parameter.help;
    item.unit = parameter.unit;
    item.minimum = parameter.minimum;
    item.maximum = parameter.maximum;
    item.required = parameter.defaultValue == nullptr;
    item.choices = WordsOf(parameter.choices);
    item.suggestions = WordsOf(parameter.suggestions);
    item.enabledWhen = {parameter.enabledWhen.parameter, WordsOf(parameter.enabledWhen.values)};
    item.logarithmic = parameter.scale == TCModuleParameter::LOGARITHMIC;
    item.step = parameter.step;
    item.digits = parameter.digits;
    item.live = parameter.live;
    item.secret = parameter.secret;
    item.fileFilter = parameter.fileFilter;
    std::ranges::replace(item.fileFilter, '|', ';');
    item.allowed = [&parameter] { return CString(static_cast<const char*>(parameter.DescribeAllowed())); };
}

// Parameters of one group stand together, where the first of them is.
CArray<const TCModuleParameter*> InOrderOfGroups(std::span<const TCModuleParameter> parameters) {
    CArray<const TCModuleParameter*> ordered;
    for (const TCModuleParameter& parameter : parameters) {
        const CString group = parameter.group.Text();
        const auto isOfGroup = [&](const TCModuleParameter* other) { return other->group.Text() == group; };
        const auto last = std::find_if(ordered.rbegin(), ordered.rend(), isOfGroup);
        const bool isIn = !group.empty() && last != ordered.rend();
        ordered.insert(isIn ? last.base() : ordered.end(), &parameter);
    }
    return ordered;
}

}  // namespace

// A trial: the values are the same afterwards.
CString TCBaseModuleEx::WhyNotSettable(const char* name, const CString& text) {
    const int index = FindIndex(name);
    const Value before = parameterValues[index];
    TCString error;
    const bool isAllowed = SetParameter(name, text.c_str(), error);
    parameterValues[index] = before;
    return isAllowed ? CString() : CString(static_cast<const char*>(error));
}

int TCBaseModuleEx::BuildPropertyDialog(TCPropertyDialog& dialog) {
    if (dialog.title.IsEmpty()) dialog.title = GetModuleName();
    CString group;
    int groups = 0;
    for (const TCModuleParameter* const declared : InOrderOfGroups(parameters)) {
        const TCModuleParameter& parameter = *declared;
        const char* const name = parameter.name;
        if (group != parameter.group.Text()) {
            group = parameter.group.Text();
            dialog.EndGroup();
            const CString key = "group:" + std::to_string(++groups);
            if (!group.empty()) TCPropertyGroup(dialog, key.c_str(), parameter.group);
        }
        TCPropertyBinding binding;
        binding.get = [this, name] { return CString(static_cast<const char*>(GetParameter(name))); };
        binding.set = [this, name](const CString& text) {
            TCString error;
            SetParameter(name, text.c_str(), error);
        };
        binding.check = [this, name](const CString& text) { return WhyNotSettable(name, text); };
        const bool isLabelled = *parameter.label.Text() != '\0';
        const TCTranslatedString label = isLabelled ? TCTranslatedString(parameter.label) : name;
        Describe(parameter, dialog.Add(KindOf(parameter), name, label, binding));
    }
    dialog.EndGroup();
    dialog.apply = [this](CString& refusal) {
        TCString error;
        const bool done = ApplySettings(error);
        if (!done) refusal = static_cast<const char*>(error);
        return done;
    };
    return parameters.empty() ? 0 : 1;
}
