#include "host/ModuleListing.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
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

constexpr Bilingual LIVE("(live) ", "(im Lauf änderbar) ");

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

using Json = nlohmann::ordered_json;

constexpr double HIGHEST = std::numeric_limits<double>::max();
// In the order of the values.
constexpr const char* KINDS[] = {"integer", "number", "text", "choice", "switch", "file", "output_file"};
constexpr const char* SCALES[] = {"linear", "logarithmic"};

Json PortsOf(TCBaseModule& module, PORTTYPE kind) {
    Json ports = Json::array();
    const int count = kind == INPUT ? module.GetNoInput() : module.GetNoOutput();
    for (int port = 0; port < count; ++port) {
        const char* type = nullptr;
        int items = 0;
        module.GetPortType(kind, port, type, items);
        ports.push_back(
            {{"name", Text(kind == INPUT ? module.GetInputName(port) : module.GetOutputName(port))},
             {"type", Text(type)}});
    }
    return ports;
}

Json WordsOf(const char* texts) {
    Json words = Json::array();
    const std::string all = Text(texts);
    for (std::size_t begin = 0; begin < all.size();) {
        const std::size_t end = std::min(all.find('|', begin), all.size());
        words.push_back(all.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}

// Limits, steps and conditions are there only where the parameter has them.
Json DeclarationOf(const TCModuleParameter& parameter, bool isDrivable) {
    Json one = {{"name", Text(parameter.name)},
                {"label", parameter.label.Text()},
                {"group", parameter.group.Text()},
                {"help", parameter.help.Text()},
                {"kind", KINDS[parameter.kind]},
                {"required", parameter.defaultValue == nullptr},
                {"unit", Text(parameter.unit)},
                {"scale", SCALES[parameter.scale]},
                {"live", parameter.live},
                {"drivable", isDrivable},
                {"secret", parameter.secret},
                {"choices", WordsOf(parameter.choices)},
                {"suggestions", WordsOf(parameter.suggestions)},
                {"file_filter", WordsOf(parameter.fileFilter)}};
    if (parameter.defaultValue != nullptr && !parameter.secret) one["default"] = parameter.defaultValue;
    if (parameter.minimum > -HIGHEST) one["minimum"] = parameter.minimum;
    if (parameter.maximum < HIGHEST) one["maximum"] = parameter.maximum;
    if (parameter.step > 0.0) one["step"] = parameter.step;
    if (parameter.digits >= 0) one["digits"] = parameter.digits;
    const std::string other = Text(parameter.enabledWhen.parameter);
    if (!other.empty())
        one["enabled_when"] = {{"parameter", other}, {"values", WordsOf(parameter.enabledWhen.values)}};
    return one;
}

std::string DefaultText(const TCModuleParameter& parameter) {
    const char* const value = parameter.defaultValue;
    if (value == nullptr) return Bilingual("(required)", "(erforderlich)").Text();
    if (parameter.secret) return Bilingual("(secret)", "(geheim)").Text();
    return *value != '\0' ? value : Bilingual("(empty)", "(leer)").Text();
}

std::string Parameters(const TCBaseModuleEx& module) {
    Rows rows;
    for (const TCModuleParameter& parameter : module.GetParameters())
        rows.push_back({parameter.name, DefaultText(parameter), parameter.unit,
                        std::string(parameter.DescribeAllowed()),
                        (parameter.live ? LIVE.Text() : std::string()) + parameter.help.Text()});
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

bool DeclareModule(const ModuleCatalogue& catalogue, const CatalogueEntry& entry, std::string& text) {
    std::string error;
    const ModulePointer module = catalogue.Create(entry, 0, error);
    if (module == nullptr) {
        text = entry.id + ": " + error;
        return false;
    }
    auto* extended = dynamic_cast<TCBaseModuleEx*>(module.get());
    TCString missing;
    if (extended != nullptr) extended->ApplySettings(missing);
    const bool anyNumber = module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, 1) >= 0;
    Json parameters = Json::array();
    if (extended != nullptr)
        for (int i = 0; i < static_cast<int>(extended->GetParameters().size()); ++i)
            parameters.push_back(DeclarationOf(extended->GetInfo(i), extended->GetInfoExtern(i).isDrivable));
    const Json document = {{"id", entry.id},
                           {"description", Text(module->GetDescription())},
                           {"library", ModuleCatalogue::FileOf(entry)},
                           {"any_number_of_inputs", anyNumber},
                           {"inputs", PortsOf(*module, INPUT)},
                           {"outputs", PortsOf(*module, OUTPUT)},
                           {"parameters", std::move(parameters)}};
    text = document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    return true;
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
