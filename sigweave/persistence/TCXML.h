#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

namespace tc {
class XmlBuilder;
class XmlDocument;
struct XmlAccess;
}  // namespace tc

// A node of an XML document: the document itself, an element, an attribute, a text, a comment and so on. A
// handle is copied freely and shares the ownership of its document, so the node stays readable while any
// handle to it is held, also after the `TCXML` took another document or the node was taken out of the tree.
// The default handle is null.
class TC_API TCXMLNode {
 public:
    TCXMLNode() = default;
    explicit operator bool() const { return node != nullptr; }
    bool operator==(const TCXMLNode& other) const { return node == other.node; }

 private:
    friend class TCXML;
    friend struct tc::XmlAccess;
    TCXMLNode(std::shared_ptr<tc::XmlDocument> document, void* node);

    std::shared_ptr<tc::XmlDocument> document;
    void* node = nullptr;
};

// The nodes that an expression selected, in document order, with a cursor for `TCXML::NextNode`.
class TC_API TCXMLNodeList {
 public:
    TCXMLNodeList() = default;
    // False when the selection failed; a selection that found nothing is an empty list.
    explicit operator bool() const { return nodes != nullptr; }
    int GetCount() const;

 private:
    friend class TCXML;
    struct Nodes;
    std::shared_ptr<Nodes> nodes;
};

// One XML document. An operation answers whether it succeeded; on failure a message says why, in English or
// in German as the library's language is set, until the next operation that fails or `Create`, `Load` or
// `LoadXML` begins anew. One thread at a time; handles count as the document.
class TC_API TCXML {
 public:
    TCXML();
    ~TCXML();
    TCXML(const TCXML&) = delete;
    TCXML& operator=(const TCXML&) = delete;

    // --- The document

    bool Create(bool async = false);
    bool Release();
    bool PreserveWhiteSpace(bool preserve);
    bool Load(const char* path);
    bool LoadXML(const char* text);
    bool Save(const char* path);
    TCXMLNode GetDocument();

    // --- Finding nodes

    // The first node that the XPath expression selects below `node` (the document for a null handle). A node
    // that does not exist is null, and a failure when `required`.
    TCXMLNode SelectSingleNode(const char* xpath, const TCXMLNode& node = {}, bool required = false);
    TCXMLNodeList SelectNodes(const char* xpath, const TCXMLNode& node = {});
    TCXMLNode NextNode(TCXMLNodeList& list);

    // --- Reading and changing nodes

    bool GetNodeType(const TCXMLNode& node, TCString& type);
    bool GetNodeName(const TCXMLNode& node, TCString& name);
    bool GetNodeValue(const TCXMLNode& node, TCString& value);
    bool GetNodeText(const TCXMLNode& node, TCString& text);
    bool GetNodeXML(const TCXMLNode& node, TCString& xml);
    // The line of the loaded text where the node stands, counted from 1: of an element the last line of its
    // start tag, of an attribute that of its element, beyond 65535 that number. 0 when it is not known, as
    // for texts and for what was created.
    static int GetNodeLine(const TCXMLNode& node);
    TCXMLNode CreateElement(const char* name, const TCXMLNode& parent);
    // Appends a comment. False for a text that XML has no comment of: with "--" in it or a hyphen at its end.
    bool CreateComment(const char* text, const TCXMLNode& parent);
    bool SetAttribute(const TCXMLNode& node, const char* name, const char* value);
    bool SetNodeText(const TCXMLNode& node, const char* text);

    // --- The last failure

    bool IsError() const { return !error.IsEmpty(); }
    const TCString& GetError() const { return error; }
    // After `Load` or `LoadXML` failed: the line of the text that could not be parsed, or 0.
    int GetErrorLine() const { return errorLine; }
    void SetUserError(const char* message);

    // --- Texts that keep control characters and blanks at their ends

    static TCString QuoteNodeTextString(const TCString& text);
    static bool UnquoteNodeTextString(TCString& text);
    static TCString PrepareXPathSearchString(const TCString& text, bool quote, bool quoteBoundSpaces);

 private:
    friend struct tc::XmlAccess;
    // Keep the message and answer false.
    bool Fail(int message, ...);
    bool Take(tc::XmlBuilder& builder);

    std::shared_ptr<tc::XmlDocument> document;
    bool keepBlanks = false;
    TCString error;
    int errorLine = 0;
};
