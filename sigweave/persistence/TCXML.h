#pragma once

#include <memory>

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
    TCXMLNode(const TCXMLNode& other);
    TCXMLNode(TCXMLNode&& other) noexcept;
    TCXMLNode& operator=(TCXMLNode other) noexcept;
    ~TCXMLNode();
    explicit operator bool() const { return node != nullptr; }
    bool operator==(const TCXMLNode& other) const { return node == other.node; }

 private:
    friend class TCXML;
    friend struct tc::XmlAccess;
    TC_LOCAL TCXMLNode(std::shared_ptr<tc::XmlDocument> document, void* node);

    std::shared_ptr<tc::XmlDocument> document;
    void* node = nullptr;
};

// The nodes that an expression selected, in document order, with a cursor for `TCXML::NextNode`. Copies share
// the cursor. The nodes stay valid as with `TCXMLNode`.
class TC_API TCXMLNodeList {
 public:
    TCXMLNodeList() = default;
    // False when the selection failed; a selection that found nothing is an empty list.
    explicit operator bool() const { return nodes != nullptr; }
    int GetCount() const;

 private:
    friend class TCXML;
    struct TC_LOCAL Nodes;
    std::shared_ptr<Nodes> nodes;
};

// One XML document. An operation answers whether it succeeded; on failure a message says why, in English or
// in German as the library's language is set. The message stays until another operation fails, until
// `Create`, `Load` or `LoadXML` begins anew, or until `SetUserError`. A null text or node where one is needed
// is such a failure. One thread at a time; handles count as the document.
//
// Texts are in the character set of the locale, in the document in Unicode. What a document cannot hold,
// control characters and malformed bytes, becomes the private characters U+10FE00 + byte, and reads
// as that byte again; so texts and values of attributes hold any bytes and come back the same. Reading a
// character that the locale's character set lacks fails.
//
// A document of several gigabytes can be loaded; it takes about its size in memory. Each text is limited to
// 2 GB, elements are nested at most 1024 deep and have at most 10000 attributes, and a document type is
// limited to 64 KB. For documents that grow while they are written, see
// `tc::XmlRecordWriter`; to move large texts without copies, sigweave/persistence/XmlNodeText.h.
class TC_API TCXML {
 public:
    TCXML();
    ~TCXML();
    TCXML(const TCXML&) = delete;
    TCXML& operator=(const TCXML&) = delete;

    // --- The document

    // An empty document, which takes one root element. Loading is never asynchronous: when `Load` returns
    // the document is complete, whatever `async` says (it is kept for the callers that set it).
    bool Create(bool async = false);
    bool Release();
    // Whether texts that are nothing but white space are kept when loading, in the loads that follow. Without
    // a call those are kept that are all that their element holds. What is below an xml:space="preserve"
    // is always kept, and so are CDATA sections.
    bool PreserveWhiteSpace(bool preserve);
    // From a file in the encoding that it declares or marks (UTF-8 without either), or from a text (in the
    // locale's character set without a declaration). Nothing else is ever opened: external entities and
    // document types are not read. A reference to an entity that the document declares is refused, and its
    // default values for attributes are not filled in, so that no document grows when loaded. After a failure
    // there is no document; a mistake in it is reported with code, reason, line, column, byte and source
    // line.
    bool Load(const char* path);
    bool LoadXML(const char* text);
    // UTF-8 with a full declaration; each element, comment and processing instruction on a line of its own,
    // one tab a level, lines ending in a line feed. What holds text, and what lies below an
    // xml:space="preserve", is written as it is. CDATA sections and the internal document type survive.
    //
    // The file is written next to the old one and then takes its name, so a failure, as of a full disk,
    // leaves the old one. Symbolic links, permissions and owner stay. Only what cannot be replaced so is
    // written in place: devices, files with several names or of another owner, in folders that take no new
    // files. A document without a root, or beyond the limits for loading it again, fails.
    bool Save(const char* path);
    // Null when there is none.
    TCXMLNode GetDocument();

    // --- Finding nodes

    // By an XPath 1.0 expression, seen from `node` (from the document for a null handle). Prefixes mean what
    // they mean at that node. In a literal in double quotes a backslash escapes \\ \" and \' and is itself
    // before anything else; literals in single quotes are as in XPath.
    //
    // Where a literal begins or ends with \x20, as `PrepareXPathSearchString` writes blanks, it is equal to
    // the text with blanks there as well (deliberately: quoting a node's text leaves its blanks alone).
    // Functions and != take the text with blanks, and the other one when nothing is found.

    // The first of the nodes in document order. None is null, and a failure when `required`.
    TCXMLNode SelectSingleNode(const char* xpath, const TCXMLNode& node = {}, bool required = false);
    TCXMLNodeList SelectNodes(const char* xpath, const TCXMLNode& node = {});
    // Null after the last node; a failure for a list whose selection failed.
    TCXMLNode NextNode(TCXMLNodeList& list);

    // --- Reading and changing nodes

    // "element", "attribute", "text", "cdatasection", "comment", "processinginstruction", "document" or
    // "documenttype".
    bool GetNodeType(const TCXMLNode& node, TCString& type);
    // With its prefix. "#text", "#cdata-section", "#comment" and "#document" for nodes without a name.
    bool GetNodeName(const TCXMLNode& node, TCString& name);
    // What an attribute, text, CDATA section, comment or processing instruction holds; empty for others.
    bool GetNodeValue(const TCXMLNode& node, TCString& value);
    // The same, and for elements and documents all texts below them.
    bool GetNodeText(const TCXMLNode& node, TCString& text);
    // As it is, in UTF-8, without a declaration. Private characters are not resolved.
    bool GetNodeXML(const TCXMLNode& node, TCString& xml);
    // The line of the loaded text where the node is, counted from 1: of an element the last line of its
    // start tag, of an attribute that of its element, beyond 65535 that number. 0 when it is not known, as
    // for texts and for what was created.
    static int GetNodeLine(const TCXMLNode& node);
    // A new last child of an element, or the root of a document without one; null on failure. It is in the
    // parent's default namespace, or in the one that its prefix means there.
    TCXMLNode CreateElement(const char* name, const TCXMLNode& parent);
    // Appends a comment to an element. False for a text that XML has no comment of: with "--" or a carriage
    // return in it, or a hyphen at its end.
    bool CreateComment(const char* text, const TCXMLNode& parent);
    // Of an element. A name xmlns:p declares a prefix that has no meaning there yet; the default namespace
    // cannot be changed.
    bool SetAttribute(const TCXMLNode& node, const char* name, const char* value);
    // Replaces all that an element holds. Documents have no text of their own.
    bool SetNodeText(const TCXMLNode& node, const char* text);

    // --- The last failure

    bool IsError() const { return !error.IsEmpty(); }
    const TCString& GetError() const { return error; }
    // After `Load` or `LoadXML` failed: the line of the text that could not be parsed, or 0.
    int GetErrorLine() const { return errorLine; }
    // Null or empty: none.
    void SetUserError(const char* message);

    // --- Texts that are quoted, so that other programs can edit them

    // `QuoteControlChar` and its way back. Blanks at the ends stay as they are.
    static TCString QuoteNodeTextString(const TCString& text);
    static bool UnquoteNodeTextString(TCString& text);
    // A literal for a search, with its double quotes. With `quote` it describes the text as
    // `QuoteNodeTextString` wrote it; with `quoteBoundSpaces` too, the first and the last blank count, which
    // are trimmed otherwise.
    static TCString PrepareXPathSearchString(const TCString& text, bool quote, bool quoteBoundSpaces);

 private:
    friend struct tc::XmlAccess;
    // Keep the message and answer false.
    TC_LOCAL bool Fail(int message, ...);
    TC_LOCAL bool LoadOnce(const char* path);
    TC_LOCAL bool Take(tc::XmlBuilder& builder);

    std::shared_ptr<tc::XmlDocument> document;
    bool keepBlanks = false;
    bool keepWholeBlanks = true;
    TCString error;
    int errorLine = 0;
};
