#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "sigweave/persistence/XmlTree.h"

namespace tc {

// Writes nodes as text in UTF-8. Indented, each element, comment and processing instruction is on a line
// of its own after one tab per level; the inside of an element that holds text, or is below an
// xml:space="preserve", is written as it is.
class XmlWriter {
 public:
    static constexpr std::string_view DECLARATION =
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";

    // Into a file, through a buffer, or without one into a string.
    explicit XmlWriter(std::FILE* newFile = nullptr) : file(newFile) {}

    // The whole document as a file has it, with declaration and layout.
    void Document(const xmlDoc* tree);
    // One node with all below it; `level` is that of the node, negative for no layout.
    void Node(const xmlNode* node, int level);
    void NewLine(int level);
    void Raw(std::string_view bytes);

    // Hands the rest to the file. False when that, or an earlier write, failed.
    bool Flush();
    std::string& Text() { return buffer; }
    // Whether elements were nested deeper, or had more attributes, than can be read again; the text is not
    // whole then. For who writes into a string; before a file is touched, see IsBeyondLimits below.
    bool WentBeyondLimits() const { return beyondLimits; }

 private:
    void Element(const xmlNode* element, int level);
    void StartTag(const xmlNode* element);
    void Inside(const xmlNode* element, int level);
    void Children(const xmlNode* element, int level);
    void Attribute(const xmlAttr* attribute);
    void Name(const xmlNs* ns, const xmlChar* name);
    void Escaped(std::string_view text, bool inAttribute);
    void Section(std::string_view text);
    void DocumentType(const xmlNode* type);

    std::FILE* file;
    std::string buffer;
    bool complete = true;
    int depth = 0;  // of elements that are open
    bool beyondLimits = false;
};

// Whether the node or elements below it are nested deeper, or have more attributes, than can be read again;
// `level` is that of the node.
bool IsBeyondLimits(const xmlNode* node, int level);

}  // namespace tc
