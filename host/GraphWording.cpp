#include "host/GraphWording.h"

namespace host {
namespace {

constexpr GraphWording TEXT_WORDING = {
    .addModuleId = "add a line module=ID",
    .addModules = "add a section [name] with module=ID for each",
    .addLines = "add a section [lines] with lines as instance.Output=instance.Input",
    .acceptDifferences = "write accept=yes in the section [lines]",
    .settingParts = {"add a line ", "=..."},
    .lineParts = {"add a line ...=", " to the section [lines]"},
};

constexpr GraphWording XML_WORDING = {
    .addModuleId = "add the attribute kind=\"ID\"",
    .addModules = "add an element <Module name=\"name\" kind=\"ID\"/> for each",
    .addLines = "add elements <Line from=\"instance.Output\" to=\"instance.Input\"/>",
    .acceptDifferences = "write <Graph accept=\"yes\">",
    .settingParts = {"add an element <Setting name=\"", "\">...</Setting>"},
    .lineParts = {"add an element <Line from=\"...\" to=\"", "\"/>"},
};

}  // namespace

std::string GraphWording::AddSetting(const std::string& parameter) const {
    return settingParts[0] + parameter + settingParts[1];
}

std::string GraphWording::AddLineTo(const std::string& input) const {
    return lineParts[0] + input + lineParts[1];
}

const GraphWording& GraphWording::Of(GraphForm form) {
    return form == GraphForm::Text ? TEXT_WORDING : XML_WORDING;
}

}  // namespace host
