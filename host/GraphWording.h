#pragma once

#include <string>

#include "sigweave/services/Bilingual.h"

namespace host {

enum class GraphForm { Text, Xml };

// How a graph says things, for remedies: what the user has to write depends on the form of the file.
struct GraphWording {
    tc::Bilingual addModuleId;
    tc::Bilingual addModules;
    tc::Bilingual addLines;
    tc::Bilingual acceptDifferences;
    tc::Bilingual addSetting;  // of the parameter %1
    tc::Bilingual addLineTo;   // %1, which is instance.Input

    static const GraphWording& Of(GraphForm form);
};

}  // namespace host
