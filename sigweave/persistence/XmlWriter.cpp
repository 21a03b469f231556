#include "sigweave/persistence/XmlWriter.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace tc {
namespace {

constexpr std::size_t BUFFER_SIZE = 1 << 16;
constexpr int NO_LAYOUT = -1;

// What replaces a byte in a text and in an attribute; null for the byte itself.
struct Escape {
    char byte;
    const char* inText;
    const char* inAttribute;
};
constexpr Escape ESCAPES[] = {{'&', "&amp;", "&amp;"},  {'<', "&lt;", "&lt;"},   {'>', "&gt;", "&gt;"},
                              {'"', nullptr, "&quot;"}, {'\t', nullptr, "&#9;"}, {'\n', nullptr, "&#10;"},
                              {'\r', "&#13;", "&#13;"}};

using EscapeTable = std::array<const char*, 256>;
constexpr EscapeTable MakeTable(const char* Escape::*text) {
    EscapeTable table{};
    for (const Escape& escape : ESCAPES) table[static_cast<unsigned char>(escape.byte)] = escape.*text;
    return table;
}
constexpr EscapeTable IN_TEXT = MakeTable(&Escape::inText), IN_ATTRIBUTE = MakeTable(&Escape::inAttribute);

// How many bytes at the front of a text stay as they are, as far as eight at a time show.
std::size_t CountPlain(std::string_view text) {
    constexpr std::uint64_t ONES = 0x0101010101010101u, HIGH = 0x80 * ONES;
    const auto marks = [](std::uint64_t bytes, char c) {
        const std::uint64_t others = bytes ^ (ONES * static_cast<unsigned char>(c));
        return (others - ONES) & ~others & HIGH;
    };
    std::size_t count = 0;
    for (; count + 8 <= text.size(); count += 8) {
        std::uint64_t bytes;
        std::memcpy(&bytes, text.data() + count, sizeof bytes);
        if ((marks(bytes, '&') | marks(bytes, '<') | marks(bytes, '>') | marks(bytes, '\r')) != 0) break;
    }
    return count;
}

bool KeepsSpace(const xmlNode* element) {
    for (const xmlAttr* node = element->properties; node != nullptr; node = node->next)
        if (node->ns != nullptr && ViewOf(node->name) == "space" && ViewOf(node->ns->prefix) == "xml")
            return node->children != nullptr && ViewOf(node->children->content) == "preserve";
    return false;
}

bool HasTooManyAttributes(const xmlNode* element) {
    int count = 0;
    for (const xmlNs* ns = element->nsDef; ns != nullptr; ns = ns->next) ++count;
    for (const xmlAttr* node = element->properties; node != nullptr; node = node->next) ++count;
    return count > MOST_ATTRIBUTES;
}

bool MayBreakLines(const xmlNode* element) {
    for (const xmlNode* node = element->children; node != nullptr; node = node->next)
        if (HoldsText(node)) return false;
    return !KeepsSpace(element);
}

}  // namespace

void XmlWriter::Document(const xmlDoc* tree) {
    Raw(DECLARATION);
    for (const xmlNode* node = tree->children; node != nullptr; node = node->next) {
        Node(node, 0);
        Raw("\n");
    }
}

void XmlWriter::Node(const xmlNode* node, int level) {
    switch (node->type) {
        case XML_DOCUMENT_NODE:
            for (const xmlNode* child = node->children; child != nullptr; child = child->next)
                Node(child, level);
            return;
        case XML_ELEMENT_NODE:
            return Element(node, level);
        case XML_ATTRIBUTE_NODE:
            return Attribute(reinterpret_cast<const xmlAttr*>(node));
        case XML_TEXT_NODE:
            return Escaped(ViewOf(node->content), false);
        case XML_CDATA_SECTION_NODE:
            return Section(ViewOf(node->content));
        case XML_COMMENT_NODE:
            Raw("<!--");
            Raw(ViewOf(node->content));
            return Raw("-->");
        case XML_PI_NODE:
            Raw("<?");
            Raw(ViewOf(node->name));
            if (node->content != nullptr) Raw(" ");
            Raw(ViewOf(node->content));
            return Raw("?>");
        default:
            return DocumentType(node);
    }
}

void XmlWriter::Element(const xmlNode* element, int level) {
    beyondLimits = beyondLimits || depth == MOST_LEVELS || HasTooManyAttributes(element);
    if (beyondLimits) return;
    ++depth;
    StartTag(element);
    if (element->children != nullptr) Inside(element, level);
    --depth;
}

void XmlWriter::StartTag(const xmlNode* element) {
    Raw("<");
    Name(element->ns, element->name);
    for (const xmlNs* ns = element->nsDef; ns != nullptr; ns = ns->next) {
        Raw(ns->prefix != nullptr ? " xmlns:" : " xmlns");
        Raw(ViewOf(ns->prefix));
        Raw("=\"");
        Escaped(ViewOf(ns->href), true);
        Raw("\"");
    }
    for (const xmlAttr* attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
        Raw(" ");
        Attribute(attribute);
    }
    Raw(element->children == nullptr ? "/>" : ">");
}

void XmlWriter::Inside(const xmlNode* element, int level) {
    Children(element, level);
    Raw("</");
    Name(element->ns, element->name);
    Raw(">");
}

void XmlWriter::Children(const xmlNode* element, int level) {
    const bool lines = level >= 0 && MayBreakLines(element);
    for (const xmlNode* node = element->children; node != nullptr; node = node->next) {
        if (lines) NewLine(level + 1);
        Node(node, lines ? level + 1 : NO_LAYOUT);
    }
    if (lines) NewLine(level);
}

void XmlWriter::Attribute(const xmlAttr* attribute) {
    Name(attribute->ns, attribute->name);
    Raw("=\"");
    for (const xmlNode* node = attribute->children; node != nullptr; node = node->next)
        Escaped(ViewOf(node->content), true);
    Raw("\"");
}

void XmlWriter::Name(const xmlNs* ns, const xmlChar* name) {
    if (ns != nullptr && ns->prefix != nullptr) {
        Raw(ViewOf(ns->prefix));
        Raw(":");
    }
    Raw(ViewOf(name));
}

void XmlWriter::Escaped(std::string_view text, bool inAttribute) {
    const EscapeTable& table = inAttribute ? IN_ATTRIBUTE : IN_TEXT;
    std::size_t done = 0;
    for (std::size_t i = inAttribute ? 0 : CountPlain(text); i < text.size(); ++i) {
        const char* const escape = table[static_cast<unsigned char>(text[i])];
        if (escape == nullptr) continue;
        Raw(text.substr(done, i - done));
        Raw(escape);
        done = i + 1;
    }
    Raw(text.substr(done));
}

void XmlWriter::Section(std::string_view text) {
    Raw("<![CDATA[");
    for (std::size_t end; (end = text.find("]]>")) != text.npos; text.remove_prefix(end + 2)) {
        Raw(text.substr(0, end + 2));
        Raw("]]><![CDATA[");
    }
    Raw(text);
    Raw("]]>");
}

void XmlWriter::DocumentType(const xmlNode* type) {
    xmlBuffer* const text = xmlBufferCreate();
    complete &= text != nullptr && xmlNodeDump(text, type->doc, const_cast<xmlNode*>(type), 0, 0) >= 0;
    if (text != nullptr) Raw(ViewOf(xmlBufferContent(text)));
    xmlBufferFree(text);
}

void XmlWriter::NewLine(int level) {
    Raw("\n");
    buffer.append(static_cast<std::size_t>(level), '\t');
}

void XmlWriter::Raw(std::string_view bytes) {
    if (file != nullptr && buffer.size() + bytes.size() > BUFFER_SIZE) Flush();
    if (file == nullptr || bytes.size() < BUFFER_SIZE)
        buffer.append(bytes);
    else
        complete &= std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

bool XmlWriter::Flush() {
    complete &= std::fwrite(buffer.data(), 1, buffer.size(), file) == buffer.size();
    buffer.clear();
    return complete;
}

bool IsBeyondLimits(const xmlNode* node, int level) {
    if (level > MOST_LEVELS) return true;
    if (node->type != XML_ELEMENT_NODE && node->type != XML_DOCUMENT_NODE) return false;
    if (node->type == XML_ELEMENT_NODE && HasTooManyAttributes(node)) return true;
    for (const xmlNode* child = node->children; child != nullptr; child = child->next)
        if (child->type == XML_ELEMENT_NODE && IsBeyondLimits(child, level + 1)) return true;
    return false;
}

}  // namespace tc
