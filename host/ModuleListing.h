#pragma once

#include <string>

#include "host/ModuleCatalogue.h"

namespace host {

// The catalogue as a table: id, description, library.
std::string ListModules(const ModuleCatalogue& catalogue);

// One module in full: its ports with their types, its parameters with default, limits and unit.
std::string DescribeModule(const ModuleCatalogue& catalogue, const CatalogueEntry& entry);

}  // namespace host
