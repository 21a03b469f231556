#pragma once

#include <string>

#include "host/ModuleCatalogue.h"

namespace host {

// The catalogue as a table: id, description, library. False when one cannot be created; the table says why.
bool ListModules(const ModuleCatalogue& catalogue, std::string& text);

// One module in full: its ports with their types, its parameters with default, limits and unit. False when it
// cannot be created; `text` then says why.
bool DescribeModule(const ModuleCatalogue& catalogue, const CatalogueEntry& entry, std::string& text);

// The same as a JSON document, as docs/modules.schema.json describes it. Labels and help are in the language
// of messages.
bool DeclareModule(const ModuleCatalogue& catalogue, const CatalogueEntry& entry, std::string& text);

}  // namespace host
