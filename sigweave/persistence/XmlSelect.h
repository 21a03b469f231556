#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "sigweave/persistence/XmlTree.h"

namespace tc {

// The nodes that an XPath expression (in UTF-8) selects from a node, in document order; with `first` no more
// than one. Nothing when the expression is wrong or selects no nodes by its kind.
//
// Literals in double quotes are read with backslash escapes: \\ \" and \' mean the character, any other
// backslash itself.
std::optional<std::vector<xmlNode*>> SelectXmlNodes(xmlNode* from, std::string_view xpath, bool first);

}  // namespace tc
