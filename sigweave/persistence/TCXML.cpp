#include "sigweave/persistence/TCXML.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <filesystem>
#include <iterator>
#include <utility>
#include <vector>

#include "sigweave/foundation/StringConversion.h"
#include "sigweave/persistence/XmlBuilder.h"
#include "sigweave/persistence/XmlBytes.h"
#include "sigweave/persistence/XmlFile.h"
#include "sigweave/persistence/XmlMessages.h"
#include "sigweave/persistence/XmlNodeText.h"
#include "sigweave/persistence/XmlSelect.h"
#include "sigweave/persistence/XmlTree.h"
#include "sigweave/persistence/XmlWriter.h"
#include "sigweave/platform/PathText.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/platform/SystemError.h"

namespace {

using tc::ViewOf;
using tc::XmlAccess;

const char* Shown(const char* text) {
    return text != nullptr ? text : "";
}

struct TypeNames {
    xmlElementType type;
    const char* typeName;
    const char* nodeName;  // null where each node has its own
};
constexpr TypeNames TYPE_NAMES[] = {
    {XML_ELEMENT_NODE, "element", nullptr},
    {XML_ATTRIBUTE_NODE, "attribute", nullptr},
    {XML_TEXT_NODE, "text", "#text"},
    {XML_CDATA_SECTION_NODE, "cdatasection", "#cdata-section"},
    {XML_PI_NODE, "processinginstruction", nullptr},
    {XML_COMMENT_NODE, "comment", "#comment"},
    {XML_DOCUMENT_NODE, "document", "#document"},
    {XML_DTD_NODE, "documenttype", nullptr},
};

const TypeNames* NamesOf(const xmlNode* node) {
    const auto names = std::ranges::find(TYPE_NAMES, node->type, &TypeNames::type);
    return names != std::end(TYPE_NAMES) ? names : nullptr;
}

bool HasPrefix(const xmlNode* node) {
    const bool mayHave = node->type == XML_ELEMENT_NODE || node->type == XML_ATTRIBUTE_NODE;
    return mayHave && node->ns != nullptr && node->ns->prefix != nullptr;
}

bool Assign(TCString& to, std::string_view stored) {
    if (stored.size() > INT_MAX) return false;
    std::string bytes;
    const bool plain = tc::IsPlainXmlText(stored);
    if (!plain && !tc::FromXmlText(stored, bytes)) return false;
    to.AllocCopy(plain ? stored : bytes);
    return true;
}

// A name with the namespace that its prefix means at an element.
struct QualifiedName {
    std::string prefix, local;
    xmlNs* ns = nullptr;
};

// False for what is no name, and for a prefix without a meaning there. Without a prefix the element's own
// default namespace is taken when `useDefault` says so.
bool ReadName(const char* text, xmlNode* at, bool useDefault, QualifiedName& name) {
    std::string buffer;
    const std::string full(tc::ToXmlText(Shown(text), buffer));
    if (xmlValidateQName(tc::XmlChars(full.c_str()), 0) != 0) return false;
    const std::size_t colon = full.find(':');
    if (colon != full.npos) name.prefix = full.substr(0, colon);
    name.local = full.substr(colon + 1);
    if (at == nullptr || at->type != XML_ELEMENT_NODE) return name.prefix.empty();
    if (name.prefix.empty() && !useDefault) return name.local != "xmlns";
    if (name.prefix == "xmlns") return !useDefault;
    const char* const prefix = name.prefix.empty() ? nullptr : name.prefix.c_str();
    name.ns = xmlSearchNs(at->doc, at, tc::XmlChars(prefix));
    return name.ns != nullptr || name.prefix.empty();
}

// Not where the prefix has a meaning already, which names in use rely on, nor what XML reserves.
bool DeclarePrefix(xmlNode* at, const xmlChar* prefix, const xmlChar* ns) {
    const std::string_view name = ViewOf(ns);
    const bool reserved = ViewOf(prefix) == "xmlns" || name == "http://www.w3.org/2000/xmlns/" ||
                          name == ViewOf(XML_XML_NAMESPACE);
    return !reserved && !name.empty() && xmlSearchNs(at->doc, at, prefix) == nullptr &&
           xmlNewNs(at, ns, prefix) != nullptr;
}

bool MayHoldElement(const xmlNode* parent) {
    if (parent == nullptr) return false;
    if (parent->type == XML_DOCUMENT_NODE) return xmlDocGetRootElement(parent->doc) == nullptr;
    return parent->type == XML_ELEMENT_NODE;
}

bool HasEncoding(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) return true;
    return text.starts_with("<?xml") && text.substr(0, text.find("?>")).find("encoding") != text.npos;
}

}  // namespace

namespace tc {

void XmlAccess::Reset(TCXML& xml, std::shared_ptr<XmlDocument> document) {
    xml.document = std::move(document);
    xml.error.Empty();
    xml.errorLine = 0;
}

}  // namespace tc

TCXMLNode::TCXMLNode(std::shared_ptr<tc::XmlDocument> newDocument, void* newNode)
    : document(std::move(newDocument)), node(newNode) {
    tc::Hold(static_cast<xmlNode*>(node), 1);
}

TCXMLNode::TCXMLNode(const TCXMLNode& other) : TCXMLNode(other.document, other.node) {}

TCXMLNode::TCXMLNode(TCXMLNode&& other) noexcept
    : document(std::move(other.document)), node(std::exchange(other.node, nullptr)) {}

TCXMLNode& TCXMLNode::operator=(TCXMLNode other) noexcept {
    std::swap(document, other.document);
    std::swap(node, other.node);
    return *this;
}

TCXMLNode::~TCXMLNode() {
    tc::Hold(static_cast<xmlNode*>(node), -1);
}

struct TCXMLNodeList::Nodes {
    Nodes(std::shared_ptr<tc::XmlDocument> from, std::vector<xmlNode*> found)
        : document(std::move(from)), nodes(std::move(found)) {
        for (xmlNode* node : nodes) tc::Hold(node, 1);
    }
    Nodes(const Nodes&) = delete;
    Nodes& operator=(const Nodes&) = delete;
    ~Nodes() {
        for (xmlNode* node : nodes) tc::Hold(node, -1);
    }

    const std::shared_ptr<tc::XmlDocument> document;
    const std::vector<xmlNode*> nodes;
    std::size_t next = 0;
};

int TCXMLNodeList::GetCount() const {
    return nodes != nullptr ? static_cast<int>(nodes->nodes.size()) : 0;
}

TCXML::TCXML() = default;
TCXML::~TCXML() = default;

// --- The document

bool TCXML::Create(bool) {
    tc::PrepareXmlEngine();
    XmlAccess::Reset(*this, nullptr);
    xmlDoc* const tree = xmlNewDoc(tc::XmlChars("1.0"));
    if (tree == nullptr) return Fail(tc::NOT_CREATED);
    document = std::make_shared<tc::XmlDocument>(tree);
    return true;
}

bool TCXML::Release() {
    document = nullptr;
    return true;
}

bool TCXML::PreserveWhiteSpace(bool preserve) {
    keepBlanks = keepWholeBlanks = preserve;
    return true;
}

// A file that somebody writes meanwhile may be read in pieces that do not fit together.
bool TCXML::Load(const char* path) {
    constexpr int MOST_TRIES = 10;
    const std::string native = tc::NativePath(path);
    const auto look = [&native] {
        std::error_code ignored;
        return std::pair(std::filesystem::last_write_time(native, ignored),
                         std::filesystem::file_size(native, ignored));
    };
    bool isLoaded = false, hasChanged = true;
    for (int i = 0; i < MOST_TRIES && !isLoaded && hasChanged; ++i) {
        const auto before = look();
        isLoaded = LoadOnce(path);
        hasChanged = before != look();
    }
    return isLoaded;
}

bool TCXML::LoadOnce(const char* path) {
    XmlAccess::Reset(*this, nullptr);
    const tc::XmlFile file = tc::OpenXmlFile(path, "rb");
    if (file == nullptr) return Fail(tc::NOT_LOADED, tc::LastSystemErrorText().c_str());
    tc::XmlBuilder builder(keepBlanks, keepWholeBlanks);
    while (builder.FeedFrom(*file)) {
    }
    if (std::ferror(file.get()) != 0) return Fail(tc::NOT_LOADED, tc::LastSystemErrorText().c_str());
    return Take(builder);
}

bool TCXML::LoadXML(const char* text) {
    XmlAccess::Reset(*this, nullptr);
    std::string buffer;
    const std::string_view bytes = Shown(text);
    tc::XmlBuilder builder(keepBlanks, keepWholeBlanks);
    builder.Feed(HasEncoding(bytes) ? bytes : tc::ToUtf8(bytes, buffer));
    return Take(builder);
}

bool TCXML::Take(tc::XmlBuilder& builder) {
    if (xmlDoc* const tree = builder.Finish()) {
        document = std::make_shared<tc::XmlDocument>(tree);
        return true;
    }
    error = tc::FormatXmlMessage(builder.GetError());
    errorLine = builder.GetError().line;
    return false;
}

bool TCXML::Save(const char* path) {
    if (document == nullptr || xmlDocGetRootElement(document->tree) == nullptr) return Fail(tc::NOT_SAVED);
    if (tc::IsBeyondLimits(xmlDocGetRootElement(document->tree), 1)) return Fail(tc::NOT_SAVED);
    const auto file = tc::ReplacedFile::Open(tc::NativePath(path));
    if (file == nullptr) return Fail(tc::NOT_OPENED, Shown(path), tc::LastSystemErrorText().c_str());
    tc::XmlWriter writer(file->Get());
    writer.Document(document->tree);
    return (writer.Flush() && file->Commit()) || Fail(tc::NOT_SAVED);
}

TCXMLNode TCXML::GetDocument() {
    return document != nullptr ? TCXMLNode(document, document->tree) : TCXMLNode();
}

// --- Finding nodes

TCXMLNode TCXML::SelectSingleNode(const char* xpath, const TCXMLNode& node, bool required) {
    const TCXMLNode from = node ? node : GetDocument();
    std::string buffer;
    const auto nodes =
        from ? tc::SelectXmlNodes(XmlAccess::Node(from), tc::ToXmlText(Shown(xpath), buffer), true)
             : std::nullopt;
    if (!nodes || (required && nodes->empty())) Fail(tc::NO_SINGLE_NODE, Shown(xpath));
    return nodes && !nodes->empty() ? TCXMLNode(from.document, nodes->front()) : TCXMLNode();
}

TCXMLNodeList TCXML::SelectNodes(const char* xpath, const TCXMLNode& node) {
    const TCXMLNode from = node ? node : GetDocument();
    std::string buffer;
    auto nodes = from ? tc::SelectXmlNodes(XmlAccess::Node(from), tc::ToXmlText(Shown(xpath), buffer), false)
                      : std::nullopt;
    TCXMLNodeList list;
    if (nodes)
        list.nodes = std::make_shared<TCXMLNodeList::Nodes>(from.document, std::move(*nodes));
    else
        Fail(tc::NO_NODES, Shown(xpath));
    return list;
}

TCXMLNode TCXML::NextNode(TCXMLNodeList& list) {
    if (!list) {
        Fail(tc::NO_NEXT_NODE, "There is no list of nodes");
        return {};
    }
    TCXMLNodeList::Nodes& nodes = *list.nodes;
    return nodes.next < nodes.nodes.size() ? TCXMLNode(nodes.document, nodes.nodes[nodes.next++])
                                           : TCXMLNode();
}

// --- Reading and changing nodes

bool TCXML::GetNodeType(const TCXMLNode& node, TCString& type) {
    const TypeNames* const names = node ? NamesOf(XmlAccess::Node(node)) : nullptr;
    if (names == nullptr) return Fail(tc::NO_TYPE);
    type = names->typeName;
    return true;
}

bool TCXML::GetNodeName(const TCXMLNode& node, TCString& name) {
    const TypeNames* const names = node ? NamesOf(XmlAccess::Node(node)) : nullptr;
    if (names == nullptr) return Fail(tc::NO_NAME);
    if (names->nodeName != nullptr) {
        name = names->nodeName;
        return true;
    }
    const xmlNode* const at = XmlAccess::Node(node);
    std::string full;
    if (HasPrefix(at)) full.append(ViewOf(at->ns->prefix)).append(":");
    full.append(ViewOf(at->name));
    return Assign(name, full) || Fail(tc::NO_NAME);
}

bool TCXML::GetNodeValue(const TCXMLNode& node, TCString& value) {
    if (!node) return Fail(tc::NO_VALUE);
    const xmlElementType type = XmlAccess::Node(node)->type;
    const bool hasValue = type != XML_ELEMENT_NODE && type != XML_DOCUMENT_NODE && type != XML_DTD_NODE;
    std::string buffer;
    std::string_view text;
    if (hasValue && !tc::XmlNodeText(node, buffer, text)) return Fail(tc::NO_VALUE);
    value.AllocCopy(text);
    return true;
}

bool TCXML::GetNodeText(const TCXMLNode& node, TCString& text) {
    std::string buffer;
    std::string_view found;
    if (!tc::XmlNodeText(node, buffer, found) || found.size() > INT_MAX) return Fail(tc::NO_TEXT);
    text.AllocCopy(found);
    return true;
}

bool TCXML::GetNodeXML(const TCXMLNode& node, TCString& xml) {
    if (!node) return Fail(tc::NO_XML);
    tc::XmlWriter writer;
    writer.Node(XmlAccess::Node(node), -1);
    if (writer.WentBeyondLimits() || writer.Text().size() > INT_MAX) return Fail(tc::NO_XML);
    xml.AllocCopy(writer.Text());
    return true;
}

int TCXML::GetNodeLine(const TCXMLNode& node) {
    const xmlNode* at = XmlAccess::Node(node);
    if (at != nullptr && at->type == XML_ATTRIBUTE_NODE) at = at->parent;
    return at != nullptr ? static_cast<int>(std::max(xmlGetLineNo(at), 0L)) : 0;
}

TCXMLNode TCXML::CreateElement(const char* name, const TCXMLNode& parent) {
    xmlNode* const above = XmlAccess::Node(parent);
    QualifiedName parts;
    xmlNode* node = nullptr;
    if (ReadName(name, above, true, parts)) node = xmlNewNode(parts.ns, tc::XmlChars(parts.local.c_str()));
    if (node == nullptr) {
        Fail(tc::NO_ELEMENT, Shown(name));
        return {};
    }
    if (!MayHoldElement(above)) {
        xmlFreeNode(node);
        Fail(tc::NOT_APPENDED, name);
        return {};
    }
    xmlSetTreeDoc(node, above->doc);
    if (above->type == XML_DOCUMENT_NODE)
        xmlDocSetRootElement(above->doc, node);
    else
        xmlAddChild(above, node);
    return {parent.document, node};
}

bool TCXML::CreateComment(const char* text, const TCXMLNode& parent) {
    xmlNode* const above = XmlAccess::Node(parent);
    std::string buffer;
    const std::string stored(tc::ToXmlText(Shown(text), buffer));
    const bool valid = above != nullptr && above->type == XML_ELEMENT_NODE && tc::IsXmlCommentText(stored);
    xmlNode* const node = valid ? xmlNewDocComment(above->doc, tc::XmlChars(stored.c_str())) : nullptr;
    if (node == nullptr) return Fail(tc::NO_ELEMENT, "#comment");
    xmlAddChild(above, node);
    return true;
}

bool TCXML::SetAttribute(const TCXMLNode& node, const char* name, const char* value) {
    xmlNode* const at = XmlAccess::Node(node);
    QualifiedName parts;
    std::string buffer;
    const bool valid =
        at != nullptr && at->type == XML_ELEMENT_NODE && value != nullptr && ReadName(name, at, false, parts);
    if (!valid) return Fail(tc::ATTRIBUTE_NOT_SET, Shown(name), Shown(value));
    const std::string text(tc::ToXmlText(value, buffer));
    const xmlChar* const local = tc::XmlChars(parts.local.c_str());
    const xmlChar* const stored = tc::XmlChars(text.c_str());
    const bool isSet = parts.prefix == "xmlns" ? DeclarePrefix(at, local, stored)
                                               : xmlSetNsProp(at, parts.ns, local, stored) != nullptr;
    return isSet || Fail(tc::ATTRIBUTE_NOT_SET, name, value);
}

bool TCXML::SetNodeText(const TCXMLNode& node, const char* text) {
    return (text != nullptr && tc::SetXmlNodeText(node, text)) || Fail(tc::TEXT_NOT_SET);
}

// --- The last failure

void TCXML::SetUserError(const char* message) {
    error = Shown(message);
}

bool TCXML::Fail(int message, ...) {
    va_list arguments;
    va_start(arguments, message);
    error = tc::FormatXmlMessageV(message, arguments);
    va_end(arguments);
    return false;
}

// --- Texts

TCString TCXML::QuoteNodeTextString(const TCString& text) {
    TCString quoted;
    return QuoteControlChar(quoted, text);
}

bool TCXML::UnquoteNodeTextString(TCString& text) {
    return UnQuoteEscapeChar(text, text);
}

TCString TCXML::PrepareXPathSearchString(const TCString& text, bool quote, bool quoteBoundSpaces) {
    constexpr const char* BLANK = "\\x20";
    TCString literal = quote ? QuoteNodeTextString(text) : text;
    if (quote && quoteBoundSpaces) {
        if (literal.GetAt(0) == ' ') literal = BLANK + literal.Mid(1);
        const int last = literal.GetLength() - 1;
        if (literal.GetAt(last) == ' ') literal = literal.Left(last) + BLANK;
    }
    literal.TrimLeft().TrimRight(TCString::BINARY);
    for (const char* character : {"\\", "\"", "'"}) literal.Replace(character, TCString("\\") + character);
    return "\"" + literal + "\"";
}
