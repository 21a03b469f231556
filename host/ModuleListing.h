#pragma once

#include <string>

#include "host/ModuleCatalogue.h"

namespace host {

// The catalogue as a table: id, description, library.
std::string ListModules(const ModuleCatalogue& catalogue);

// One module in full: its ports with their types, its parameters with default, limits and unit. False when it
// cannot be created; `text` then says why.
bool DescribeModule(const ModuleCatalogue& catalogue, const CatalogueEntry& entry, std::string& text);

}  // namespace host
