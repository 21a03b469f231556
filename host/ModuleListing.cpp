#include "host/ModuleListing.h"

#include <vector>

#include "host/Guard.h"
#include "host/Table.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace host {
namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string TypeText(TCBaseModule& module, PORTTYPE kind, int port) {
    const char* type = nullptr;
    int count = 0;
    module.GetPortType(kind, port, type, count);
    return type != nullptr ? type : "(the type of its line)";
}

std::string Ports(TCBaseModule& module, PORTTYPE kind) {
    Rows rows;
    const int count = kind == INPUT ? module.GetNoInput() : module.GetNoOutput();
    for (int port = 0; port < count; ++port)
        rows.push_back({Text(kind == INPUT ? module.GetInputName(port) : module.GetOutputName(port)),
                        TypeText(module, kind, port)});
    return rows.empty() ? "  (none)\n" : LayOut(rows, -1, "  ");
}

std::string DefaultText(const char* value) {
    if (value == nullptr) return "(required)";
    return *value != '\0' ? value : "(empty)";
}

std::string Parameters(const TCBaseModuleEx& module) {
    Rows rows;
    for (const TCModuleParameter& parameter : module.GetParameters())
        rows.push_back({parameter.name, DefaultText(parameter.defaultValue), parameter.unit,
                        std::string(parameter.DescribeAllowed()), parameter.help});
    if (rows.empty()) return "  (none)\n";
    rows.insert(rows.begin(), {"name", "default", "unit", "allowed", ""});
    return LayOut(rows, -1, "  ");
}

}  // namespace

std::string ListModules(const ModuleCatalogue& catalogue) {
    Rows rows{{"id", "what it does", "library"}};
    for (const auto& [id, entry] : catalogue.Entries()) {
        std::string error;
        const ModulePointer module = catalogue.Create(entry, 0, error);
        rows.push_back(
            {id, module != nullptr ? Text(module->GetDescription()) : error, ModuleCatalogue::FileOf(entry)});
    }
    if (rows.size() > 1) return LayOut(rows);
    std::string text = "no modules in";
    for (const std::string& folder : catalogue.Folders()) text += " " + folder;
    return text + "; name other folders with --module-path\n";
}

std::string DescribeModule(const ModuleCatalogue& catalogue, const CatalogueEntry& entry) {
    std::string error;
    const ModulePointer module = catalogue.Create(entry, 0, error);
    if (module == nullptr) return entry.id + ": " + error + "\n";
    auto* extended = dynamic_cast<TCBaseModuleEx*>(module.get());
    TCString missing;  // without a parameter that must be given there are no ports that depend on it
    const bool hasSettings = extended == nullptr || extended->ApplySettings(missing);
    std::string text = entry.id + ": " + Text(module->GetDescription()) +
                       "\nlibrary: " + ModuleCatalogue::FileOf(entry) + "\n";
    const bool pairs =
        module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, 2) >= 0 && module->GetNoOutput() == 2;
    const bool anyNumber = module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, 1) >= 0;
    const bool mayGrow = !hasSettings && module->GetNoOutput() > 0;
    text += std::string("inputs") + (anyNumber ? " (as many as are wired: Signal 1, Signal 2 ...)" : "") +
            ":\n" + Ports(*module, INPUT) + "outputs" +
            (pairs     ? " (one for each input)"
             : mayGrow ? " (there may be more when the required parameters are given)"
                       : "") +
            ":\n" + Ports(*module, OUTPUT);
    if (extended != nullptr) text += "parameters:\n" + Parameters(*extended);
    return text;
}

}  // namespace host
