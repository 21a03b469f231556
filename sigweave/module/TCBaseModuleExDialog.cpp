#include <limits>
#include <sstream>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/ui/TCPropertyDialog.h"

namespace {

using Info = TCPropertyDialogInfo;

// By TCModuleParameter::Kind.
constexpr Info::KIND KINDS[] = {Info::INT,  Info::DOUBLE, Info::STRING,     Info::COMBO,
                                Info::BOOL, Info::FILE,   Info::OUTPUT_FILE};

// What a front end shows of the declaration; its texts live as long as the module.
void Describe(const TCModuleParameter& parameter, Info& item) {
    item.help = parameter.help;
    item.unit = parameter.unit;
    item.minimum = parameter.minimum;
    item.maximum = parameter.maximum;
    item.required = parameter.defaultValue == nullptr;
    std::istringstream words(parameter.choices);
    for (CString word; std::getline(words, word, '|');) item.choices.push_back(word);
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
    for (const TCModuleParameter& parameter : parameters) {
        const char* const name = parameter.name;
        TCPropertyBinding binding;
        binding.get = [this, name] { return CString(static_cast<const char*>(GetParameter(name))); };
        binding.set = [this, name](const CString& text) {
            TCString error;
            SetParameter(name, text.c_str(), error);
        };
        binding.check = [this, name](const CString& text) { return WhyNotSettable(name, text); };
        Describe(parameter, dialog.Add(KINDS[parameter.kind], name, name, binding));
    }
    dialog.apply = [this](CString& refusal) {
        TCString error;
        const bool done = ApplySettings(error);
        if (!done) refusal = static_cast<const char*>(error);
        return done;
    };
    return parameters.empty() ? 0 : 1;
}
