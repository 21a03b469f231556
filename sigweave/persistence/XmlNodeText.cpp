#include "sigweave/persistence/XmlNodeText.h"

#include <climits>

#include "sigweave/persistence/XmlBytes.h"
#include "sigweave/persistence/XmlTree.h"

namespace tc {
namespace {

std::string_view StoredText(const xmlNode* node, std::string& buffer) {
    const bool holdsNodes =
        node->type == XML_ELEMENT_NODE || node->type == XML_ATTRIBUTE_NODE || node->type == XML_DOCUMENT_NODE;
    if (!holdsNodes) return node->type == XML_DTD_NODE ? std::string_view() : ViewOf(node->content);
    const xmlNode* const only = node->children;
    if (only == nullptr) return "";
    if (only->next == nullptr && HoldsText(only)) return ViewOf(only->content);
    buffer.clear();
    for (const xmlNode* at = NextXmlNode(node, node); at != nullptr; at = NextXmlNode(at, node))
        if (HoldsText(at)) buffer += ViewOf(at->content);
    return buffer;
}

// The text may be a part of what it replaces.
bool ReplaceContent(xmlNode* node, std::string_view text) {
    xmlChar* const content = xmlStrndup(XmlChars(text.data()), static_cast<int>(text.size()));
    if (content == nullptr) return false;
    xmlFree(node->content);
    node->content = content;
    return true;
}

bool SetElementText(XmlDocument& document, xmlNode* element, std::string_view text) {
    xmlNode* const only = element->children;
    // A text is changed in place, so that setting it again and again keeps nothing.
    if (only != nullptr && only->next == nullptr && only->type == XML_TEXT_NODE && !text.empty())
        return ReplaceContent(only, text);
    document.DetachFrom(only);
    if (text.empty()) return true;
    xmlNode* const node =
        xmlNewDocTextLen(document.tree, XmlChars(text.data()), static_cast<int>(text.size()));
    return node != nullptr && xmlAddChild(element, node) != nullptr;
}

bool IsInstructionText(std::string_view text) {
    return text.find("?>") == text.npos && text.find('\r') == text.npos && text.find_first_of(" \t\n") != 0;
}

bool SetStoredText(XmlDocument& document, xmlNode* node, std::string_view text) {
    switch (node->type) {
        case XML_ELEMENT_NODE:
            return SetElementText(document, node, text);
        case XML_ATTRIBUTE_NODE:
            return xmlSetNsProp(node->parent, node->ns, node->name, XmlChars(std::string(text).c_str())) !=
                   nullptr;
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
            return ReplaceContent(node, text);
        case XML_COMMENT_NODE:
            return IsXmlCommentText(text) && ReplaceContent(node, text);
        case XML_PI_NODE:
            return IsInstructionText(text) && ReplaceContent(node, text);
        default:
            return false;
    }
}

}  // namespace

bool XmlNumberText(const TCXMLNode& node, std::string& buffer, std::string_view& text) {
    if (node) text = StoredText(XmlAccess::Node(node), buffer);
    return static_cast<bool>(node);
}

bool XmlNodeText(const TCXMLNode& node, std::string& buffer, std::string_view& text) {
    if (!XmlNumberText(node, buffer, text)) return false;
    if (IsPlainXmlText(text)) return true;
    std::string bytes;
    if (!FromXmlText(text, bytes)) return false;
    text = buffer = std::move(bytes);
    return true;
}

bool SetXmlNodeText(const TCXMLNode& node, std::string_view text) {
    std::string buffer;
    const std::string_view stored = ToXmlText(text, buffer);
    return node && stored.size() <= INT_MAX &&
           SetStoredText(*XmlAccess::Document(node), XmlAccess::Node(node), stored);
}

}  // namespace tc
