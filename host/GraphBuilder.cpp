#include "host/GraphBuilder.h"

namespace host {
namespace {

constexpr const char* MODULE = "module";

bool SplitPort(std::string_view text, PortName& port) {
    const std::size_t point = text.find('.');
    if (point == std::string_view::npos) return false;
    port.instance = TrimBlanks(text.substr(0, point));
    port.port = TrimBlanks(text.substr(point + 1));
    return !port.instance.empty() && !port.port.empty();
}

}  // namespace

std::string_view TrimBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool GraphBuilder::BeginInstance(const std::string& name) {
    std::string mistake;
    if (name.find('.') != std::string::npos)
        mistake = "the instance name '" + name +
                  "' holds a point, which separates instance and port; choose a name without one";
    else if (name == LINES_SECTION)
        mistake = "no instance can be called 'lines', the name of a section; choose another name";
    else if (const auto known = lineOfInstance.find(name); known != lineOfInstance.end())
        mistake = "the instance '" + name + "' is there already, in line " + std::to_string(known->second) +
                  "; give this one another name";
    if (!mistake.empty()) {
        Tell(std::move(mistake));
        return false;
    }
    lineOfInstance.emplace(name, place.line);
    lineOfSetting.clear();
    graph.instances.push_back({name, "", place, place, {}});
    return true;
}

bool GraphBuilder::IsNewSetting(const std::string& name) {
    const auto [known, isNew] = lineOfSetting.emplace(name, place.line);
    if (!isNew)
        Tell("'" + name + "' of " + graph.instances.back().name + " is set already, in line " +
             std::to_string(known->second) + "; remove one of the two");
    return isNew;
}

void GraphBuilder::SetModule(const std::string& id) {
    if (!IsNewSetting(MODULE)) return;
    graph.instances.back().module = id;
    graph.instances.back().modulePlace = place;
}

void GraphBuilder::AddSetting(const std::string& name, const std::string& value) {
    if (name == MODULE) return SetModule(value);
    if (IsNewSetting(name)) graph.instances.back().settings.push_back({name, value, place});
}

bool GraphBuilder::AddLine(std::string_view from, std::string_view to) {
    LineEntry line{{}, {}, place};
    if (!SplitPort(from, line.from) || !SplitPort(to, line.to)) return false;
    graph.lines.push_back(std::move(line));
    return true;
}

void GraphBuilder::SetAccept(const std::string& value) {
    if (value != "yes" && value != "no") return Tell("accept is '" + value + "'; it must be yes or no");
    graph.acceptsDifferences = value == "yes";
}

}  // namespace host
