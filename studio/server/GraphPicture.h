#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "host/GraphFile.h"
#include "host/HostWindow.h"
#include "host/ModuleCatalogue.h"

// Descriptions for the page (docs/studio.md). They create modules, so they belong to one thread.
namespace studio {

// All modules, or the one of that id: id, description, whether it is a source, ports with their types.
nlohmann::ordered_json DescribeCatalogue(const host::ModuleCatalogue& catalogue,
                                         const std::string& wanted = {});

// A graph as its text says it, without what modules know: no ports and no settings that are missing.
nlohmann::ordered_json ReadTextAlone(const std::string& path, const std::string& text);

// A checked graph: instances with ports and settings, lines, mistakes and warnings, each with its place: the
// line of the text, and if it is about one, the instance and the parameter.
nlohmann::ordered_json CheckText(const std::string& path, const std::string& text,
                                 const host::ModuleCatalogue& catalogue, host::HostWindow& window);

// What is wrong with a line from an output to an input, in the words of the check: empty when nothing new is.
std::string WhyNotWired(const std::string& path, const std::string& text, const std::string& from,
                        const std::string& to, const host::ModuleCatalogue& catalogue,
                        host::HostWindow& window);

}  // namespace studio
