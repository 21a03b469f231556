#include "studio/server/GraphPicture.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "host/Graph.h"
#include "host/Guard.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "studio/server/GraphEdit.h"

namespace studio {
namespace {

using host::Mistake;
using host::Text;
using Json = nlohmann::ordered_json;

Json PortsOf(TCBaseModule& module, PORTTYPE kind) {
    Json ports = Json::array();
    const int count = kind == INPUT ? module.GetNoInput() : module.GetNoOutput();
    for (int port = 0; port < count; ++port) {
        const char* type = nullptr;
        int items = 0;
        module.GetPortType(kind, port, type, items);
        const char* const name = kind == INPUT ? module.GetInputName(port) : module.GetOutputName(port);
        ports.push_back({{"name", Text(name)}, {"type", Text(type)}});
    }
    return ports;
}

bool TakesAnyNumber(TCBaseModule& module) {
    return module.GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, std::max(module.GetNoInput(), 1)) >= 0;
}

Json DescribeModule(const host::CatalogueEntry& entry, TCBaseModule& module) {
    auto* const extended = dynamic_cast<TCBaseModuleEx*>(&module);
    TCString missing;
    if (extended != nullptr) extended->ApplySettings(missing);
    return {{"id", entry.id},
            {"description", Text(module.GetDescription())},
            {"source", module.GetTypeOfModule() == 1},
            {"inputs", PortsOf(module, INPUT)},
            {"outputs", PortsOf(module, OUTPUT)}};
}

// What of the graph stands at a line of its text.
struct Subject {
    std::string instance;
    std::string parameter;
    int wire = -1;  // the number of the line between ports
};

// Those of the file, or those that the graph makes of them.
using Lines = std::vector<host::LineEntry>;

std::map<int, Subject> SubjectsOf(const host::GraphFile& file, const Lines& lines) {
    std::map<int, Subject> subjects;
    for (const host::InstanceEntry& entry : file.GetInstances()) {
        subjects[entry.place.line] = {entry.name, "", -1};
        subjects[entry.modulePlace.line] = {entry.name, "", -1};
        for (const host::Setting& setting : entry.settings)
            subjects[setting.place.line] = {entry.name, setting.name, -1};
    }
    for (std::size_t i = 0; i < lines.size(); ++i)
        subjects[lines[i].place.line] = {"", "", static_cast<int>(i)};
    return subjects;
}

void AddSubject(Json& json, const std::map<int, Subject>& subjects, int line) {
    json["line"] = line;
    const auto found = subjects.find(line);
    if (found == subjects.end()) return;
    if (!found->second.instance.empty()) json["instance"] = found->second.instance;
    if (!found->second.parameter.empty()) json["parameter"] = found->second.parameter;
    if (found->second.wire >= 0) json["wire"] = found->second.wire;
}

// The text says which parameter it is about when the line is another one, as that of the instance.
void AddParameter(Json& json, const std::string& text) {
    if (json.contains("parameter") || !json.contains("instance")) return;
    const std::string start = json["instance"].get<std::string>() + ".";
    const std::size_t colon = text.find(':');
    if (text.starts_with(start) && colon != text.npos)
        json["parameter"] = text.substr(start.size(), colon - start.size());
}

// As the text has them.
Json InstancesOf(const host::GraphFile& file) {
    std::map<std::string, Position> positions;
    for (const Position& position : PositionsOf(file)) positions[position.instance] = position;
    Json instances = Json::array();
    for (const host::InstanceEntry& entry : file.GetInstances()) {
        Json settings = Json::array();
        for (const host::Setting& setting : entry.settings)
            settings.push_back(
                {{"name", setting.name}, {"value", setting.value}, {"line", setting.place.line}});
        Json one = {{"name", entry.name}, {"module", entry.module}, {"line", entry.place.line}};
        one["settings"] = std::move(settings);
        if (const auto found = positions.find(entry.name); found != positions.end())
            one["at"] = {found->second.x, found->second.y};
        instances.push_back(std::move(one));
    }
    return instances;
}

Json DescribeInstances(const host::GraphFile& file, const host::Graph& graph) {
    Json instances = InstancesOf(file);
    const std::vector<host::RunModule> modules = graph.Modules();
    for (std::size_t i = 0; i < modules.size(); ++i) {
        if (modules[i].module == nullptr) continue;
        instances[i]["inputs"] = PortsOf(*modules[i].module, INPUT);
        instances[i]["outputs"] = PortsOf(*modules[i].module, OUTPUT);
        instances[i]["source"] = modules[i].module->GetTypeOfModule() == 1;
        instances[i]["grows"] = TakesAnyNumber(*modules[i].module);
    }
    return instances;
}

Json DescribeWires(const Lines& lines) {
    Json wires = Json::array();
    for (const host::LineEntry& line : lines)
        wires.push_back({{"from", {line.from.instance, line.from.port}},
                         {"to", {line.to.instance, line.to.port}},
                         {"line", line.place.line}});
    return wires;
}

Json DescribeMistakes(const host::Mistakes& mistakes, const std::map<int, Subject>& subjects) {
    Json told = Json::array();
    for (const Mistake& mistake : mistakes.InOrder()) {
        Json one = {{"text", mistake.text}};
        AddSubject(one, subjects, mistake.place.line);
        AddParameter(one, mistake.text);
        told.push_back(std::move(one));
    }
    return told;
}

}  // namespace

Json ReadTextAlone(const std::string& path, const std::string& text) {
    host::Mistakes mistakes;
    const host::GraphFile file = host::GraphFile::Parse(path, text, mistakes);
    return {{"form", file.GetForm() == host::GraphForm::Text ? "text" : "xml"},
            {"instances", InstancesOf(file)},
            {"wires", DescribeWires(file.GetLines())},
            {"mistakes", DescribeMistakes(mistakes, SubjectsOf(file, file.GetLines()))},
            {"warnings", Json::array()}};
}

Json DescribeCatalogue(const host::ModuleCatalogue& catalogue, const std::string& wanted) {
    Json modules = Json::array();
    for (const auto& [id, entry] : catalogue.Entries()) {
        if (!wanted.empty() && id != wanted) continue;
        std::string error;
        const host::ModulePointer module = catalogue.Create(entry, 0, error);
        if (module != nullptr) modules.push_back(DescribeModule(entry, *module));
    }
    return modules;
}

Json CheckText(const std::string& path, const std::string& text, const host::ModuleCatalogue& catalogue,
               host::HostWindow& window) {
    host::Mistakes mistakes;
    const host::GraphFile file = host::GraphFile::Parse(path, text, mistakes);
    const host::Graph graph(file, catalogue, window, mistakes);
    const std::map<int, Subject> subjects = SubjectsOf(file, graph.WrittenLines());
    Json warnings = Json::array();
    for (const host::Message& warning : graph.Warnings()) {
        Json one = {{"text", warning.text}};
        AddSubject(one, subjects, warning.place.line);
        warnings.push_back(std::move(one));
    }
    return {{"form", file.GetForm() == host::GraphForm::Text ? "text" : "xml"},
            {"instances", DescribeInstances(file, graph)},
            {"wires", DescribeWires(graph.WrittenLines())},
            {"mistakes", DescribeMistakes(mistakes, subjects)},
            {"warnings", std::move(warnings)}};
}

std::string WhyNotWired(const std::string& path, const std::string& text, const std::string& from,
                        const std::string& to, const host::ModuleCatalogue& catalogue,
                        host::HostWindow& window) {
    Edit edit;
    edit.kind = Edit::Connect;
    edit.name = from;
    edit.other = to;
    std::string wired = text;
    std::string reason;
    if (!EditGraph(edit, wired, reason)) return reason;
    host::Mistakes mistakes;
    const host::GraphFile file = host::GraphFile::Parse(path, wired, mistakes);
    const host::Graph graph(file, catalogue, window, mistakes);
    for (const host::LineEntry& line : file.GetLines()) {
        if (line.from.instance + "." + line.from.port != from || line.to.instance + "." + line.to.port != to)
            continue;
        for (const Mistake& mistake : mistakes.InOrder())
            if (mistake.place.line == line.place.line) reason += (reason.empty() ? "" : "\n") + mistake.text;
    }
    return reason;
}

}  // namespace studio
