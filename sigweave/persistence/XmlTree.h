#pragma once

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sigweave/persistence/TCXML.h"

// What the sources of the XML documents share. The XML engine's headers come in here and nowhere else.
namespace tc {

// How deep elements may be nested, and how many attributes each may have, in what is read as in what is
// written.
constexpr int MOST_LEVELS = 1024, MOST_ATTRIBUTES = 10'000;

// A tree of the engine. Nodes that were taken out of it live on while somebody holds a handle to them.
class XmlDocument {
 public:
    // Takes over the tree, which is not null.
    explicit XmlDocument(xmlDoc* tree);
    ~XmlDocument();
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    // Takes the node and the siblings after it out of the tree, and releases what nobody holds.
    void DetachFrom(xmlNode* node);

    xmlDoc* const tree;

 private:
    void ReleaseUnheld();

    std::vector<xmlNode*> detached;
    std::size_t enough = 16;  // detached nodes, to look for those that nobody holds any more
};

struct XmlAccess {
    static xmlNode* Node(const TCXMLNode& handle) { return static_cast<xmlNode*>(handle.node); }
    static XmlDocument* Document(const TCXMLNode& handle) { return handle.document.get(); }
    static const std::shared_ptr<XmlDocument>& Document(const TCXML& xml) { return xml.document; }
    static void Reset(TCXML& xml, std::shared_ptr<XmlDocument> document);
};

// Counts a handle to the node, which may be null, or one less, in the word that the engine leaves to its
// user.
inline void Hold(xmlNode* node, std::intptr_t change) {
    if (node != nullptr)
        node->_private = reinterpret_cast<void*>(reinterpret_cast<std::intptr_t>(node->_private) + change);
}

// The next node after `node` in the order of the document, without leaving `top`; null at its end.
inline const xmlNode* NextXmlNode(const xmlNode* node, const xmlNode* top) {
    if ((node->type == XML_ELEMENT_NODE || node == top) && node->children != nullptr) return node->children;
    while (node != top && node->next == nullptr) node = node->parent;
    return node != top ? node->next : nullptr;
}

// Initialises the engine; to be called before its first use, any number of times.
void PrepareXmlEngine();

// While it lives, what the engine reports on this thread without a document at hand goes to `receive`, and
// nothing is printed.
class XmlErrorReceiver {
 public:
    XmlErrorReceiver(xmlStructuredErrorFunc receive, void* data);
    ~XmlErrorReceiver();
    XmlErrorReceiver(const XmlErrorReceiver&) = delete;
    XmlErrorReceiver& operator=(const XmlErrorReceiver&) = delete;

 private:
    const xmlStructuredErrorFunc oldReceive;
    void* const oldData;
    const xmlGenericErrorFunc oldPrint;
    void* const oldPrintData;
};

inline const xmlChar* XmlChars(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

inline std::string_view ViewOf(const xmlChar* text) {
    return text != nullptr ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
}

// Whether a comment of this text is read back the same.
inline bool IsXmlCommentText(std::string_view text) {
    return text.find("--") == text.npos && text.find('\r') == text.npos && !text.ends_with('-');
}

inline bool HoldsText(const xmlNode* node) {
    return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
}

}  // namespace tc
