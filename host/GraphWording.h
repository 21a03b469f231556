#pragma once

#include <string>

namespace host {

enum class GraphForm { Text, Xml };

// How a graph says things, for remedies: what the user has to write depends on the form of the file.
struct GraphWording {
    const char* addModuleId;
    const char* addModules;
    const char* addLines;
    const char* acceptDifferences;
    const char* settingParts[2];  // around the parameter's name
    const char* lineParts[2];     // around the input

    std::string AddSetting(const std::string& parameter) const;
    // `input` is instance.Input.
    std::string AddLineTo(const std::string& input) const;

    static const GraphWording& Of(GraphForm form);
};

}  // namespace host
