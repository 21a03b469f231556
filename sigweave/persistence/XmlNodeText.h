#pragma once

#include <string>
#include <string_view>

#include "sigweave/persistence/TCXML.h"
#include "sigweave/platform/Export.h"

// The texts of nodes for code that moves many or large ones. Threads and failures as for TCXML, only that no
// message is kept.
namespace tc {

// The text of the node and all below it, without a copy where it is one plain text. A zero byte follows
// it. Valid until the node's text is set or `buffer`, which holds it otherwise, changes. False for a null
// node and for a text that the locale's character set cannot hold.
TC_API bool XmlNodeText(const TCXMLNode& node, std::string& buffer, std::string_view& text);

// The same in the engine's own characters, which are those of the text where it is plain ASCII: for numbers,
// where anything else is wrong anyway. False for a null node.
TC_API bool XmlNumberText(const TCXMLNode& node, std::string& buffer, std::string_view& text);

// Replaces the text of an element, attribute, text, comment or processing instruction; any bytes
// that can be read back: a comment or instruction has no way to write some.
TC_API bool SetXmlNodeText(const TCXMLNode& node, std::string_view text);

}  // namespace tc
