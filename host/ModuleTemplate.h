#pragma once

#include <span>

namespace host {

// One file of the example module, as it stands in the tree.
struct TemplateFile {
    const char* name;
    const char* text;
};

// The word that stands for the module's name, in the texts and in the names of the files.
inline constexpr const char* TEMPLATE_NAME = "Gain";

std::span<const TemplateFile> ModuleTemplate();

}  // namespace host
