#include "sigweave/persistence/ArchiveXml.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "sigweave/persistence/ArchiveNumbers.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/persistence/XmlBuilder.h"
#include "sigweave/persistence/XmlBytes.h"
#include "sigweave/persistence/XmlTree.h"
#include "sigweave/persistence/XmlWriter.h"
#include "sigweave/services/Bilingual.h"

namespace tc {
namespace {

using Type = ArchiveItem::Type;

constexpr const char* ROOT = "archive";
constexpr const char* VERSION = "1";
constexpr int NO_LAYOUT = -1;

// In the order of the types, from 1 on.
constexpr const char* ELEMENTS[] = {"subsection", "integer", "double",
                                    "string",     "binary",  "stringUnquotedXML"};

template <class Number>
std::string NumberText(Number number, int base = 10) {
    char text[64];
    if constexpr (std::is_floating_point_v<Number>)
        return {text, std::to_chars(text, std::end(text), number).ptr};
    else
        return {text, std::to_chars(text, std::end(text), number, base).ptr};
}

// False unless the number is all of the text.
template <class Number, class... Base>
bool ReadNumber(std::string_view text, Number& number, Base... base) {
    const auto [end, failed] = std::from_chars(text.begin(), text.end(), number, base...);
    return failed == std::errc() && end == text.end();
}

std::string HexText(std::string_view bytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char byte : bytes) {
        text += DIGITS[static_cast<unsigned char>(byte) >> 4];
        text += DIGITS[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

bool ReadHex(std::string_view text, std::string& bytes) {
    bytes.clear();
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        unsigned char byte = 0;
        if (!ReadNumber(text.substr(i, 2), byte, 16)) return false;
        bytes += static_cast<char>(byte);
    }
    return text.size() % 2 == 0;
}

// The element <x> around the text, or null when it is no well-formed fragment.
std::unique_ptr<XmlDocument> ParseFragment(std::string_view text) {
    PrepareXmlEngine();
    XmlBuilder builder(true);
    std::string buffer;
    const bool fed = builder.Feed("<x>") && builder.Feed(ToUtf8(text, buffer)) && builder.Feed("</x>");
    xmlDoc* const tree = fed ? builder.Finish() : nullptr;
    return tree != nullptr ? std::make_unique<XmlDocument>(tree) : nullptr;
}

std::string InnerXml(const xmlNode* element) {
    XmlWriter writer;
    for (const xmlNode* node = element->children; node != nullptr; node = node->next)
        writer.Node(node, NO_LAYOUT);
    return writer.Text();
}

// Builds the nodes with as few allocations as the engine's own parser does, for they are most of the time:
// names are the dictionary's, and a short text lies in its node.
class Writer {
 public:
    explicit Writer(xmlDoc* newTree) : tree(newTree) {
        if (tree->dict == nullptr) tree->dict = xmlDictCreate();
        complete = tree->dict != nullptr;
        if (!complete) return;
        for (std::size_t i = 0; i < std::size(ELEMENTS); ++i) elements[i] = Name(ELEMENTS[i]);
        numberName = Name("number");
        labelName = Name("label");
    }

    void WriteItems(xmlNode* parent, const std::vector<ArchiveItem>& items) {
        for (const ArchiveItem& item : items) WriteItem(parent, item);
    }
    bool IsComplete() const { return complete; }

 private:
    void WriteItem(xmlNode* parent, const ArchiveItem& item) {
        if (!complete) return;
        xmlChar* const name = elements[static_cast<std::size_t>(item.type) - 1];
        xmlNode* const element = xmlAddChild(parent, xmlNewDocNodeEatName(tree, nullptr, name, nullptr));
        complete = element != nullptr;
        if (!complete) return;
        Attribute(element, numberName, NumberText(item.number));
        if (!item.label.empty()) Attribute(element, labelName, item.label);
        switch (item.type) {
            case Type::Subsection:
                return WriteItems(element, item.items);
            case Type::Integer:
                return Text(element, NumberText(static_cast<std::int64_t>(item.bits)));
            case Type::Double:
                return Double(element, item.bits);
            case Type::String:
                return String(element, item.text);
            case Type::Binary:
                return Text(element, HexText(item.text));
            case Type::StringUnquotedXML:
                return Fragment(element, item.text);
        }
    }

    // A number that is none keeps its bits.
    void Double(xmlNode* element, std::uint64_t bits) {
        const auto value = std::bit_cast<double>(bits);
        if (std::isfinite(value)) return Text(element, NumberText(value));
        Attribute(element, Name("bits"), NumberText(bits, 16));
    }

    void String(xmlNode* element, const std::string& text) {
        if (text.find('\0') == text.npos) return Text(element, text);
        Attribute(element, Name("form"), "hex");
        Text(element, HexText(text));
    }

    // As markup where that reads back as the same text, else as a text.
    void Fragment(xmlNode* element, const std::string& text) {
        xmlNewNsProp(element, xmlSearchNs(tree, element, XmlChars("xml")), XmlChars("space"),
                     XmlChars("preserve"));
        const std::unique_ptr<XmlDocument> parsed = ParseFragment(text);
        const xmlNode* const root = parsed != nullptr ? xmlDocGetRootElement(parsed->tree) : nullptr;
        std::string buffer;
        if (root == nullptr || InnerXml(root) != ToUtf8(text, buffer)) {
            Attribute(element, Name("form"), "text");
            return Text(element, text);
        }
        for (xmlNode* node = root->children; node != nullptr; node = node->next)
            complete = complete && xmlAddChild(element, xmlDocCopyNode(node, tree, 1)) != nullptr;
    }

    void Attribute(xmlNode* element, xmlChar* name, std::string_view value) {
        xmlAttr* const attribute = xmlNewNsPropEatName(element, nullptr, name, nullptr);
        complete = complete && attribute != nullptr;
        if (complete) Text(attribute, value);
    }

    template <class Holder>
    void Text(Holder* holder, std::string_view text) {
        std::string buffer;
        const std::string_view stored = ToXmlText(text, buffer);
        complete = complete && stored.size() <= INT_MAX;
        if (!complete || (stored.empty() && holder->type == XML_ELEMENT_NODE)) return;
        xmlNode* const node = NewText(stored);
        complete = node != nullptr;
        if (!complete) return;
        node->parent = reinterpret_cast<xmlNode*>(holder);
        holder->children = holder->last = node;
    }

    // The engine knows a content that lies where a text has no attributes.
    xmlNode* NewText(std::string_view text) {
        constexpr std::size_t ROOM = sizeof(xmlNode::properties) + sizeof(xmlNode::nsDef);
        static_assert(offsetof(xmlNode, nsDef) ==
                      offsetof(xmlNode, properties) + sizeof(xmlNode::properties));
        if (text.size() >= ROOM)
            return xmlNewDocTextLen(tree, XmlChars(text.data()), static_cast<int>(text.size()));
        xmlNode* const node = xmlNewDocText(tree, nullptr);
        if (node == nullptr) return nullptr;
        node->content = reinterpret_cast<xmlChar*>(&node->properties);
        std::memcpy(node->content, text.data(), text.size());
        node->content[text.size()] = 0;
        return node;
    }

    xmlChar* Name(const char* name) {
        return const_cast<xmlChar*>(xmlDictLookup(tree->dict, XmlChars(name), -1));
    }

    xmlChar* elements[std::size(ELEMENTS)] = {};  // these are the dictionary's
    xmlChar* numberName = nullptr;
    xmlChar* labelName = nullptr;
    xmlDoc* tree;
    bool complete = true;
};

class Reader {
 public:
    bool ReadItems(const xmlNode* parent, int level, std::vector<ArchiveItem>& items) {
        ArchiveNumbers numbers;
        for (const xmlNode* node = parent->children; node != nullptr; node = node->next) {
            if (node->type == XML_COMMENT_NODE || node->type == XML_PI_NODE) continue;
            ArchiveItem& item = items.emplace_back();
            if (!ReadItem(node, level, item)) return false;
            if (!numbers.Add(item.number))
                return Fail(node, {"item %1 is there twice", "Element %1 gibt es zweimal"},
                            NumberText(item.number));
        }
        return true;
    }
    bool Fail(const xmlNode* node, const Bilingual& what, const std::string& insert) {
        const xmlNode* const element = node->type == XML_ELEMENT_NODE ? node : node->parent;
        error = Bilingual("line %1: %2", "Zeile %1: %2")
                    .With({NumberText(xmlGetLineNo(element)), what.With({insert})});
        return false;
    }
    const std::string& GetError() const { return error; }

 private:
    bool ReadItem(const xmlNode* node, int level, ArchiveItem& item) {
        const std::string name(ViewOf(node->name));
        const auto* const found = std::ranges::find(ELEMENTS, name);
        if (node->type != XML_ELEMENT_NODE || found == std::end(ELEMENTS))
            return Fail(node, {"'%1' is no item of an archive", "'%1' ist kein Element eines Archivs"}, name);
        item.type = static_cast<Type>(found - std::begin(ELEMENTS) + 1);
        std::string number;
        if (!ReadAttribute(node, "number", number) || !ReadNumber(number, item.number))
            return Fail(node, {"<%1> has no number", "<%1> hat keine Nummer"}, name);
        ReadAttribute(node, "label", item.label);
        if (item.type == Type::Subsection) {
            if (level < MOST_ARCHIVE_LEVELS) return ReadItems(node, level + 1, item.items);
            return Fail(
                node, {"subsections are nested too deep", "Unterabschnitte sind zu tief verschachtelt"}, "");
        }
        return ReadValue(node, item) ||
               Fail(node, {"the value of item %1 cannot be read", "der Wert von Element %1 ist nicht lesbar"},
                    number);
    }

    static bool ReadValue(const xmlNode* node, ArchiveItem& item) {
        std::string form;
        ReadAttribute(node, "form", form);
        if (item.type == Type::StringUnquotedXML && form != "text")
            return FromXmlText(InnerXml(node), item.text);
        std::string text;
        if (!ReadText(node, text)) return false;
        switch (item.type) {
            case Type::Integer:
                return ReadInteger(text, item.bits);
            case Type::Double:
                return ReadDouble(node, text, item.bits);
            case Type::Binary:
                return ReadHex(text, item.text);
            case Type::StringUnquotedXML:
                item.text = text;
                return IsXmlFragment(text);
            default:
                if (form == "hex") return ReadHex(text, item.text);
                item.text = std::move(text);
                return true;
        }
    }

    static bool ReadInteger(std::string_view text, std::uint64_t& bits) {
        std::int64_t value = 0;
        if (!ReadNumber(text, value)) return false;
        bits = static_cast<std::uint64_t>(value);
        return true;
    }

    static bool ReadDouble(const xmlNode* node, std::string_view text, std::uint64_t& bits) {
        std::string stored;
        if (ReadAttribute(node, "bits", stored)) return ReadNumber(stored, bits, 16);
        double value = 0.0;
        if (!ReadNumber(text, value)) return false;
        bits = std::bit_cast<std::uint64_t>(value);
        return true;
    }

    // The element holds nothing else.
    static bool ReadText(const xmlNode* node, std::string& text) {
        std::string stored;
        for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
            if (!HoldsText(child)) return false;
            stored += ViewOf(child->content);
        }
        return FromXmlText(stored, text);
    }

    // False when there is none.
    static bool ReadAttribute(const xmlNode* node, const char* name, std::string& value) {
        const xmlAttr* const attribute = xmlHasProp(const_cast<xmlNode*>(node), XmlChars(name));
        if (attribute == nullptr) return false;
        value.clear();
        return attribute->children == nullptr || FromXmlText(ViewOf(attribute->children->content), value);
    }

    std::string error;
};

}  // namespace

bool IsXmlFragment(std::string_view text) {
    return ParseFragment(text) != nullptr;
}

bool WriteXmlArchive(const ArchiveTree& archive, TCXML& document) {
    if (!document.Create()) return false;
    const TCXMLNode root = document.CreateElement(ROOT, document.GetDocument());
    if (!root || !document.SetAttribute(root, "version", VERSION)) return false;
    Writer writer(XmlAccess::Document(root)->tree);
    writer.WriteItems(XmlAccess::Node(root), archive.Items());
    if (writer.IsComplete()) return true;
    document.SetUserError(
        Bilingual("a text is too long for the archive", "ein Text ist zu lang für das Archiv").Text());
    return false;
}

bool ReadXmlArchive(TCXML& document, ArchiveTree& archive) {
    const TCXMLNode root = document.SelectSingleNode("/archive");
    if (!root) {
        document.SetUserError(Bilingual("this is no archive: its root is not <archive>",
                                        "das ist kein Archiv: die Wurzel ist nicht <archive>")
                                  .Text());
        return false;
    }
    TCString version;
    const TCXMLNode attribute = document.SelectSingleNode("@version", root);
    if (!attribute || !document.GetNodeValue(attribute, version) || !(version == VERSION)) {
        document.SetUserError(Bilingual("the archive has version '%1'; this program reads version %2",
                                        "das Archiv hat Version '%1'; dieses Programm liest Version %2")
                                  .With({std::string(version), VERSION})
                                  .c_str());
        return false;
    }
    Reader reader;
    std::vector<ArchiveItem> items;
    if (!reader.ReadItems(XmlAccess::Node(root), 0, items)) {
        document.SetUserError(reader.GetError().c_str());
        return false;
    }
    archive.SetItems(std::move(items));
    return true;
}

}  // namespace tc
