#include "host/ModuleListing.h"

#include <vector>

#include "host/Guard.h"
#include "host/Table.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr Bilingual NONE("  (none)\n", "  (keine)\n");
constexpr Bilingual INPUTS("inputs:\n", "Eingänge:\n");
constexpr Bilingual ANY_INPUTS("inputs (as many as are wired: Signal 1, Signal 2 ...):\n",
                               "Eingänge (so viele wie verbunden: Signal 1, Signal 2 ...):\n");
constexpr Bilingual OUTPUTS("outputs:\n", "Ausgänge:\n");
constexpr Bilingual PAIRED_OUTPUTS("outputs (one for each input):\n", "Ausgänge (einer je Eingang):\n");
constexpr Bilingual GROWING_OUTPUTS("outputs (there may be more when the required parameters are given):\n",
                                    "Ausgänge (mit den erforderlichen Parametern können es mehr sein):\n");

using Rows = std::vector<std::vector<std::string>>;

std::string TypeText(TCBaseModule& module, PORTTYPE kind, int port) {
    const char* type = nullptr;
    int count = 0;
    module.GetPortType(kind, port, type, count);
    return type != nullptr ? type : Bilingual("(the type of its line)", "(der Typ der Verbindung)").Text();
}

std::string Ports(TCBaseModule& module, PORTTYPE kind) {
    Rows rows;
    const int count = kind == INPUT ? module.GetNoInput() : module.GetNoOutput();
    for (int port = 0; port < count; ++port)
        rows.push_back({Text(kind == INPUT ? module.GetInputName(port) : module.GetOutputName(port)),
                        TypeText(module, kind, port)});
    return rows.empty() ? NONE.Text() : LayOut(rows, -1, "  ");
}

std::string DefaultText(const char* value) {
    if (value == nullptr) return Bilingual("(required)", "(erforderlich)").Text();
    return *value != '\0' ? value : Bilingual("(empty)", "(leer)").Text();
}

std::string Parameters(const TCBaseModuleEx& module) {
    Rows rows;
    for (const TCModuleParameter& parameter : module.GetParameters())
        rows.push_back({parameter.name, DefaultText(parameter.defaultValue), parameter.unit,
                        std::string(parameter.DescribeAllowed()), parameter.help.Text()});
    if (rows.empty()) return NONE.Text();
    rows.insert(rows.begin(),
                {Bilingual("name", "Name").Text(), Bilingual("default", "Vorgabe").Text(),
                 Bilingual("unit", "Einheit").Text(), Bilingual("allowed", "erlaubt").Text(), ""});
    return LayOut(rows, -1, "  ");
}

}  // namespace

bool ListModules(const ModuleCatalogue& catalogue, std::string& text) {
    bool complete = true;
    Rows rows{{Bilingual("id", "Kennung").Text(), Bilingual("what it does", "Aufgabe").Text(),
               Bilingual("library", "Bibliothek").Text()}};
    for (const auto& [id, entry] : catalogue.Entries()) {
        std::string error;
        const ModulePointer module = catalogue.Create(entry, 0, error);
        complete = complete && module != nullptr;
        rows.push_back(
            {id, module != nullptr ? Text(module->GetDescription()) : error, ModuleCatalogue::FileOf(entry)});
    }
    std::string folders;
    for (const std::string& folder : catalogue.Folders()) folders += " " + folder;
    text = rows.size() > 1 ? LayOut(rows)
                           : Bilingual("no modules in%1; name other folders with --module-path\n",
                                       "keine Module in%1; nennen Sie andere Ordner mit --module-path\n")
                                 .With({folders});
    return complete;
}

bool DescribeModule(const ModuleCatalogue& catalogue, const CatalogueEntry& entry, std::string& text) {
    std::string error;
    const ModulePointer module = catalogue.Create(entry, 0, error);
    if (module == nullptr) {
        text = entry.id + ": " + error;
        return false;
    }
    auto* extended = dynamic_cast<TCBaseModuleEx*>(module.get());
    TCString missing;  // without a parameter that must be given there are no ports that depend on it
    const bool hasSettings = extended == nullptr || extended->ApplySettings(missing);
    text = Bilingual("%1: %2\nlibrary: %3\n", "%1: %2\nBibliothek: %3\n")
               .With({entry.id, Text(module->GetDescription()), ModuleCatalogue::FileOf(entry)});
    const bool pairs =
        module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, 2) >= 0 && module->GetNoOutput() == 2;
    const bool anyNumber = module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, 1) >= 0;
    const bool mayGrow = !hasSettings && module->GetNoOutput() > 0;
    const Bilingual& inputs = anyNumber ? ANY_INPUTS : INPUTS;
    const Bilingual& outputs = pairs ? PAIRED_OUTPUTS : mayGrow ? GROWING_OUTPUTS : OUTPUTS;
    text += inputs.Text() + Ports(*module, INPUT) + outputs.Text() + Ports(*module, OUTPUT);
    if (extended != nullptr)
        text += Bilingual("parameters:\n", "Parameter:\n").Text() + Parameters(*extended);
    return true;
}

}  // namespace host
