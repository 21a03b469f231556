#include "host/FormCommand.h"

#include <iostream>
#include <map>

#include "host/Console.h"
#include "host/FormSession.h"
#include "host/HostWindow.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/ui/TCPropertyDialog.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr Bilingual NO_DIALOG("the module '%1' has nothing to be set",
                              "am Modul '%1' gibt es nichts einzustellen");

// The module of the instance, with the settings as they stand in the file; null, with the reason.
ModulePointer OpenModule(const GraphFile& file, const std::string& instance, const ModuleCatalogue& catalogue,
                         std::string& error) {
    const InstanceEntry* const entry = FindInstance(file, instance);
    std::string text;
    if (entry == nullptr) {
        EditSettings(file, instance, {}, text, error);
        return nullptr;
    }
    const CatalogueEntry* const module = catalogue.Find(entry->module);
    if (module == nullptr) {
        error = catalogue.WhyUnusable(entry->module);
        return nullptr;
    }
    ModulePointer made = catalogue.Create(*module, 1, error);
    auto* const settable = dynamic_cast<TCBaseModuleEx*>(made.get());
    for (const Setting& setting : entry->settings) {
        TCString refusal;
        if (settable != nullptr &&
            !settable->SetParameter(setting.name.c_str(), setting.value.c_str(), refusal))
            console::Warning(instance + "." + std::string(refusal));
    }
    return made;
}

// The parameters whose values are others than before.
SettingValues ChangedSince(const std::map<std::string, std::string>& before, TCBaseModuleEx& module) {
    SettingValues changed;
    for (const TCModuleParameter& parameter : module.GetParameters()) {
        const std::string now(module.GetParameter(parameter.name));
        if (now != before.at(parameter.name)) changed.emplace_back(parameter.name, now);
    }
    return changed;
}

// A mistake about the instance begins with its name and a point, which the form leaves out.
CString ForForm(const Mistakes& mistakes, const std::string& instance) {
    CString text;
    for (const Mistake& mistake : mistakes.InOrder()) {
        const bool isOwn = mistake.text.starts_with(instance + ".");
        text += (text.empty() ? "" : "\n") + mistake.text.substr(isOwn ? instance.size() + 1 : 0);
    }
    return text;
}

}  // namespace

int ShowForm(const SetOptions& set, const CommandOptions& options) {
    Mistakes mistakes;
    const GraphFile file = GraphFile::Read(set.graph, mistakes);
    const ModuleCatalogue catalogue = OpenCatalogue(options);
    std::string error;
    const ModulePointer module = OpenModule(file, set.instance, catalogue, error);
    TCPropertyDialog description;
    if (module != nullptr && module->BuildPropertyDialog(description) == 0)
        error = NO_DIALOG.With({module->GetModuleId()});
    if (!error.empty()) {
        for (const Mistake& mistake : mistakes.InOrder())
            console::Error(ToText(mistake.place) + ": " + mistake.text);
        console::Error(set.graph + ": " + error);
        return EXIT_WRONG_INPUT;
    }
    auto* const settable = dynamic_cast<TCBaseModuleEx*>(module.get());
    std::map<std::string, std::string> before;
    if (settable != nullptr) {
        for (const TCModuleParameter& parameter : settable->GetParameters())
            before[parameter.name] = std::string(settable->GetParameter(parameter.name));
        description.apply = [&](CString& refusal) {
            Mistakes found;
            const SettingValues changed = ChangedSince(before, *settable);
            if (WriteSettings(set.graph, set.instance, changed, catalogue, found)) return true;
            refusal = ForForm(found, set.instance);
            return false;
        };
    }
    TCDialog shown(description);
    FormSession session(shown);
    session.Run(std::cin, std::cout);
    int result = session.GetResult();
    module->OnEndShowDialog(result);
    return std::cout ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace host
