#include <mutex>

#include "sigweave/persistence/XmlTree.h"

namespace tc {

void PrepareXmlEngine() {
    static std::once_flag once;
    std::call_once(once, xmlInitParser);
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
}

}  // namespace tc
