#include "studio/server/Workshop.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "host/Console.h"
#include "host/FormSession.h"
#include "host/HostWindow.h"
#include "host/ModuleCatalogue.h"
#include "host/Presets.h"
#include "host/SettingEdit.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/platform/PipedProgram.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/StringResources.h"
#include "sigweave/ui/TCPropertyDialog.h"
#include "studio/server/Frames.h"
#include "studio/server/GraphPicture.h"

namespace studio {
namespace {

using tc::Bilingual;
using Json = nlohmann::ordered_json;

constexpr Bilingual NO_FORM("there is nothing to be set at '%1'", "an '%1' gibt es nichts einzustellen");

Json Refuse(const std::string& reason) {
    return {{"ok", false}, {"text", reason}};
}

// A dialog for the settings as they are in the text, and what belongs to it.
struct OpenForm {
    host::ModulePointer module;
    TCPropertyDialog description;
    std::unique_ptr<TCDialog> shown;
    std::unique_ptr<host::FormSession> session;
};

bool OpenFormOf(const host::GraphFile& file, const std::string& instance,
                const host::ModuleCatalogue& catalogue, OpenForm& form, std::string& error) {
    const host::InstanceEntry* const entry = host::FindInstance(file, instance);
    if (entry == nullptr) {
        std::string ignored;
        host::EditSettings(file, instance, {}, ignored, error);
        return false;
    }
    const host::CatalogueEntry* const module = catalogue.Find(entry->module);
    if (module == nullptr) {
        error = catalogue.WhyUnusable(entry->module);
        return false;
    }
    form.module = catalogue.Create(*module, 1, error);
    if (form.module == nullptr) return false;
    auto* const settable = dynamic_cast<TCBaseModuleEx*>(form.module.get());
    for (const host::Setting& setting : entry->settings) {
        TCString refusal;  // which the check of the graph reports
        if (settable != nullptr) settable->SetParameter(setting.name.c_str(), setting.value.c_str(), refusal);
    }
    if (form.module->BuildPropertyDialog(form.description) == 0) {
        error = NO_FORM.With({instance});
        return false;
    }
    form.shown = std::make_unique<TCDialog>(form.description);
    form.session = std::make_unique<host::FormSession>(*form.shown);
    return true;
}

// Which parameters may be changed while the graph runs, and how their texts may look.
Json ParametersOf(TCBaseModule& module) {
    Json parameters = Json::object();
    const auto* const settable = dynamic_cast<TCBaseModuleEx*>(&module);
    if (settable == nullptr) return parameters;
    for (const TCModuleParameter& parameter : settable->GetParameters())
        parameters[parameter.name] = {{"live", parameter.live},
                                      {"allowed", std::string(parameter.DescribeAllowed())}};
    return parameters;
}

// One request after the other, each from the text that it brings.
class Workshop {
 public:
    explicit Workshop(const std::vector<std::string>& folders) : catalogue(folders) {}

    Json Do(const Json& request);

 private:
    Json Ids() const;
    Json Wire(const Json& request);
    Json Form(const Json& request) const;
    Json Set(const Json& request) const;
    Json Presets(const Json& request) const;
    Json Keep(const Json& request) const;
    Json Load(const Json& request) const;
    Json Change(const host::GraphFile& file, const Json& request, TCBaseModule& module,
                const host::SettingValues& changed) const;
    static host::GraphFile FileOf(const Json& request);
    bool Open(const Json& request, OpenForm& form, std::string& error) const {
        return OpenFormOf(FileOf(request), request.value("name", ""), catalogue, form, error);
    }

    host::HostWindow window;
    host::ModuleCatalogue catalogue;
};

host::GraphFile Workshop::FileOf(const Json& request) {
    host::Mistakes ignored;
    return host::GraphFile::Parse(request.value("path", ""), request.value("text", ""), ignored);
}

Json Workshop::Do(const Json& request) {
    const std::string ask = request.value("ask", "");
    const std::string path = request.value("path", "");
    const std::string text = request.value("text", "");
    if (ask == "catalogue") return {{"modules", DescribeCatalogue(catalogue)}};
    if (ask == "ids") return Ids();
    if (ask == "module") return {{"modules", DescribeCatalogue(catalogue, request.value("id", ""))}};
    if (ask == "check") return CheckText(path, text, catalogue, window);
    if (ask == "wire") return Wire(request);
    if (ask == "form") return Form(request);
    if (ask == "set") return Set(request);
    if (ask == "presets") return Presets(request);
    if (ask == "keep") return Keep(request);
    if (ask == "load") return Load(request);
    if (ask == "language") TCSetLoadStrResLanguage(request.value("code", "") == "de" ? 1 : 0);
    return {{"ok", true}};
}

Json Workshop::Ids() const {
    Json ids = Json::array();
    for (const auto& [id, entry] : catalogue.Entries()) ids.push_back(id);
    return {{"ids", std::move(ids)}};
}

Json Workshop::Wire(const Json& request) {
    return {{"reason", WhyNotWired(request.value("path", ""), request.value("text", ""),
                                   request.value("from", ""), request.value("to", ""), catalogue, window)}};
}

Json Workshop::Form(const Json& request) const {
    OpenForm form;
    std::string error;
    if (!Open(request, form, error)) return Refuse(error);
    Json answer = Json::parse(form.session->Describe(), nullptr, false);
    answer["ok"] = true;
    answer["name"] = request.value("name", "");
    answer["parameters"] = ParametersOf(*form.module);
    return answer;
}

// The line is {"set": ...} or {"press": ...} of a form. Values that do not fit together are reported by the
// check of the graph.
Json Workshop::Set(const Json& request) const {
    OpenForm form;
    std::string error;
    if (!Open(request, form, error)) return Refuse(error);
    const Json said = Json::parse(form.session->Answer(request.value("line", "")), nullptr, false);
    if (!said.value("ok", false)) return said;
    auto* const settable = dynamic_cast<TCBaseModuleEx*>(form.module.get());
    if (settable == nullptr) return Refuse(NO_FORM.With({request.value("name", "")}));
    host::SettingValues changed;
    for (const TCModuleParameter& parameter : settable->GetParameters())
        if (form.shown->IsChanged(parameter.name))
            changed.emplace_back(parameter.name, form.shown->GetText(parameter.name));
    return Change(FileOf(request), request, *form.module, changed);
}

// The form as it is with the new text, and which of the changes count in a run too.
Json Workshop::Change(const host::GraphFile& file, const Json& request, TCBaseModule& module,
                      const host::SettingValues& changed) const {
    std::string text = request.value("text", "");
    std::string error;
    if (!host::EditSettings(file, request.value("name", ""), changed, text, error)) return Refuse(error);
    Json now = request;
    now["text"] = text;
    Json answer = Form(now);
    answer["text"] = text;
    answer["changed"] = Json::array();
    const auto* const settable = dynamic_cast<TCBaseModuleEx*>(&module);
    for (const auto& [name, value] : changed) {
        const TCModuleParameter* const parameter =
            settable != nullptr ? settable->FindParameter(name.c_str()) : nullptr;
        answer["changed"].push_back({name, value, parameter != nullptr && parameter->live});
    }
    return answer;
}

Json Workshop::Presets(const Json& request) const {
    const host::GraphFile file = FileOf(request);
    const host::InstanceEntry* const entry = host::FindInstance(file, request.value("name", ""));
    Json names = Json::array();
    if (entry != nullptr && !entry->module.empty())
        for (const host::PresetName& preset : host::ListPresets(entry->module)) names.push_back(preset.name);
    return {{"ok", true}, {"presets", std::move(names)}};
}

Json Workshop::Keep(const Json& request) const {
    const std::string preset = request.value("preset", "");
    const host::GraphFile file = FileOf(request);
    OpenForm form;
    std::string error = host::WhyNoPresets(preset);
    if (!error.empty() || !Open(request, form, error)) return Refuse(error);
    const std::string& id = host::FindInstance(file, request.value("name", ""))->module;
    auto* const settable = dynamic_cast<TCBaseModuleEx*>(form.module.get());
    if (settable == nullptr) return Refuse(NO_FORM.With({request.value("name", "")}));
    if (!host::StorePreset(*settable, id, preset, error)) return Refuse(error);
    return Presets(request);
}

Json Workshop::Load(const Json& request) const {
    const std::string preset = request.value("preset", "");
    const host::GraphFile file = FileOf(request);
    std::string error = host::WhyNoPresets(preset);
    if (!error.empty()) return Refuse(error);
    const host::InstanceEntry* const entry = host::FindInstance(file, request.value("name", ""));
    const host::CatalogueEntry* const module = entry != nullptr ? catalogue.Find(entry->module) : nullptr;
    if (module == nullptr)
        return Refuse(entry != nullptr ? catalogue.WhyUnusable(entry->module)
                                       : NO_FORM.With({request.value("name", "")}));
    const host::ModulePointer created = catalogue.Create(*module, 0, error);
    auto* const settable = dynamic_cast<TCBaseModuleEx*>(created.get());
    if (settable == nullptr) return Refuse(created == nullptr ? error : NO_FORM.With({entry->name}));
    if (!host::LoadPreset(*settable, entry->module, preset, error)) return Refuse(error);
    return Change(file, request, *created, host::PresetValues(*settable, *entry));
}

}  // namespace

int RunWorkshop() {
    std::FILE* const pipe = std::fopen(tc::PipedProgram::REPORT_PATH, "wb");
    std::string line;
    if (pipe == nullptr || !std::getline(std::cin, line)) return 2;
    const Json order = Json::parse(line, nullptr, false);
    if (!order.is_object()) return 2;
    host::console::BeSilent();
    TCSetLoadStrResLanguage(order.value("language", 0));
    Frames frames(pipe);
    Workshop workshop(order.value("folders", std::vector<std::string>()));
    while (std::getline(std::cin, line)) {
        const Json request = Json::parse(line, nullptr, false);
        try {
            frames.Send(request.is_object() ? workshop.Do(request) : Json::object());
        } catch (const Json::exception&) {  // not what the server sends
            frames.Send(Json::object());
        }
    }
    return 0;
}

}  // namespace studio
