#include <mutex>

#include "sigweave/persistence/XmlTree.h"

namespace tc {
namespace {

void PrintNothing(void*, const char*, ...) {}

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
}

}  // namespace tc
