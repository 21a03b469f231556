#include <algorithm>
#include <mutex>

#include "sigweave/persistence/XmlTree.h"

namespace tc {
namespace {

void PrintNothing(void*, const char*, ...) {}

// Whether there is a handle to the node or to one below it.
bool IsHeld(const xmlNode* top) {
    for (const xmlNode* node = top; node != nullptr; node = NextXmlNode(node, top)) {
        if (node->_private != nullptr) return true;
        if (node->type != XML_ELEMENT_NODE) continue;
        for (const xmlAttr* attribute = node->properties; attribute != nullptr; attribute = attribute->next)
            if (attribute->_private != nullptr) return true;
    }
    return false;
}

}  // namespace

void PrepareXmlEngine() {
    static std::once_flag once;
    std::call_once(once, xmlInitParser);
}

XmlErrorReceiver::XmlErrorReceiver(xmlStructuredErrorFunc receive, void* data)
    : oldReceive(xmlStructuredError),
      oldData(xmlStructuredErrorContext),
      oldPrint(xmlGenericError),
      oldPrintData(xmlGenericErrorContext) {
    xmlSetStructuredErrorFunc(data, receive);
    xmlSetGenericErrorFunc(nullptr, PrintNothing);
}

XmlErrorReceiver::~XmlErrorReceiver() {
    xmlSetStructuredErrorFunc(oldData, oldReceive);
    xmlSetGenericErrorFunc(oldPrintData, oldPrint);
}

XmlDocument::XmlDocument(xmlDoc* newTree) : tree(newTree) {}

XmlDocument::~XmlDocument() {
    for (xmlNode* node : detached) xmlFreeNode(node);
    xmlFreeDoc(tree);
}

void XmlDocument::DetachFrom(xmlNode* node) {
    while (node != nullptr) {
        xmlNode* const next = node->next;
        xmlUnlinkNode(node);
        detached.push_back(node);
        node = next;
    }
    if (detached.size() >= enough) ReleaseUnheld();
}

// Each time that there are twice as many: a node is looked at a few times at most.
void XmlDocument::ReleaseUnheld() {
    std::erase_if(detached, [](xmlNode* node) {
        const bool held = IsHeld(node);
        if (!held) xmlFreeNode(node);
        return !held;
    });
    enough = std::max<std::size_t>(16, 2 * detached.size());
}

}  // namespace tc
