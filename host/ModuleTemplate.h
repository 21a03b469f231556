#pragma once

#include <span>

namespace host {

// One file of the example module, as it is in the tree.
struct TemplateFile {
    const char* name;
    const char* text;
};

// The word to replace by the module's name, in the texts and in the names of the files.
inline constexpr const char* TEMPLATE_NAME = "Gain";

std::span<const TemplateFile> ModuleTemplate();

}  // namespace host
