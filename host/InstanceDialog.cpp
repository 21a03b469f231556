#include "host/InstanceDialog.h"

#include "host/Guard.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr Bilingual NO_DIALOG("the module '%1' has nothing to be set",
                              "am Modul '%1' gibt es nichts einzustellen");

// A mistake about the instance begins with its name and a point, which a dialog leaves out.
CString ForDialog(const Mistakes& mistakes, const std::string& instance) {
    CString text;
    for (const Mistake& mistake : mistakes.InOrder()) {
        const bool isOwn = mistake.text.starts_with(instance + ".");
        text += (text.empty() ? "" : "\n") + mistake.text.substr(isOwn ? instance.size() + 1 : 0);
    }
    return text;
}

}  // namespace

InstanceDialog::InstanceDialog(const SetOptions& set, const ModuleCatalogue& moduleCatalogue)
    : options(set), catalogue(moduleCatalogue) {}

bool InstanceDialog::Open(Mistakes& mistakes) {
    Mistakes ofFile;
    const GraphFile file = GraphFile::Read(options.graph, ofFile);
    const std::string reason = WhyNotOpened(file);
    if (reason.empty()) return true;
    for (const Mistake& mistake : ofFile.InOrder()) mistakes.Add(mistake.place, mistake.text);
    mistakes.Add({options.graph}, reason);
    return false;
}

std::string InstanceDialog::WhyNotOpened(const GraphFile& file) {
    std::string error;
    std::string text;
    if (!EditSettings(file, options.instance, {}, text, error)) return error;
    const InstanceEntry& entry = *FindInstance(file, options.instance);
    const CatalogueEntry* const found = catalogue.Find(entry.module);
    if (found == nullptr) return catalogue.WhyUnusable(entry.module);
    module = catalogue.Create(*found, 1, error);
    if (module == nullptr) return error;
    settable = dynamic_cast<TCBaseModuleEx*>(module.get());
    if (settable != nullptr) ReadSettings(entry);
    description.title = (options.instance + " (" + entry.module + ")").c_str();
    int answer = 0;
    const std::string thrown = WhatItThrows([&] { answer = module->BuildPropertyDialog(description); });
    if (!thrown.empty()) return options.instance + ": " + thrown;
    if (answer == 0) return NO_DIALOG.With({module->GetModuleId()});
    for (const auto& [parameter, value] : wrong) ShowAsWritten(parameter);
    if (settable != nullptr) description.apply = [this](CString& refusal) { return WriteChanges(refusal); };
    return "";
}

void InstanceDialog::ReadSettings(const InstanceEntry& entry) {
    for (const Setting& setting : entry.settings) {
        TCString ignored;
        const bool isKnown = settable->FindParameter(setting.name.c_str()) != nullptr;
        if (isKnown && !settable->SetParameter(setting.name.c_str(), setting.value.c_str(), ignored))
            wrong[setting.name] = setting.value;
    }
    for (const TCModuleParameter& parameter : settable->GetParameters())
        before[parameter.name] = Shown(parameter.name);
}

// A wrong value is what is to be mended, so the default does not take its place.
void InstanceDialog::ShowAsWritten(const std::string& parameter) {
    TCPropertyDialogInfo* const item = description.Find(parameter);
    if (item == nullptr || !item->IsEditable()) return;
    item->get = [this, parameter] { return Shown(parameter); };
    item->set = [this, parameter](const CString& text) {
        TCString ignored;
        if (settable->SetParameter(parameter.c_str(), text.c_str(), ignored))
            wrong.erase(parameter);
        else
            wrong[parameter] = text;
    };
}

std::string InstanceDialog::Shown(const std::string& parameter) const {
    const auto found = wrong.find(parameter);
    return found != wrong.end() ? found->second : std::string(settable->GetParameter(parameter.c_str()));
}

bool InstanceDialog::IsSecret(const std::string& parameter) const {
    const TCModuleParameter* const declared =
        settable != nullptr ? settable->FindParameter(parameter.c_str()) : nullptr;
    return declared != nullptr && declared->secret;
}

bool InstanceDialog::WriteChanges(CString& refusal) {
    SettingValues changed;
    for (const TCModuleParameter& parameter : settable->GetParameters())
        if (const std::string now = Shown(parameter.name); now != before[parameter.name])
            changed.emplace_back(parameter.name, now);
    Mistakes found;
    if (WriteSettings(options.graph, options.instance, changed, catalogue, found)) {
        written = std::move(changed);
        return true;
    }
    refusal = ForDialog(found, options.instance);
    return false;
}

void InstanceDialog::End(int result) {
    module->OnEndShowDialog(result);
}

}  // namespace host
