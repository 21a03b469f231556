// TCXML: a document is loaded, searched, changed and saved. Parts of an input: an XPath expression, a text,
// and the document.
#include <filesystem>

#include "fuzz/Fuzz.h"
#include "fuzz/Scratch.h"
#include "sigweave/persistence/TCXML.h"

namespace {

std::string Tell(TCXML& xml) {
    TCString told;
    fuzz::Require(xml.GetNodeXML(xml.GetDocument(), told), "a document that was loaded can be told");
    return fuzz::Bytes(told);
}

void Visit(TCXML& xml, const TCXMLNode& node) {
    TCString text;
    TCString whole;
    fuzz::Require(xml.GetNodeType(node, text) && xml.GetNodeName(node, text), "a node has type and name");
    xml.GetNodeValue(node, text);
    xml.GetNodeText(node, whole);
    xml.GetNodeXML(node, text);
    fuzz::Require(TCXML::GetNodeLine(node) >= 0, "lines are counted from 1");
}

void Select(TCXML& xml, const std::string& xpath) {
    TCXMLNodeList list = xml.SelectNodes(xpath.c_str());
    const TCXMLNode first = xml.SelectSingleNode(xpath.c_str());
    fuzz::Require(list || xml.IsError(), "a failure has a message");
    if (!list) return fuzz::Require(!first, "what cannot be searched for is not found");
    fuzz::Require(static_cast<bool>(first) == (list.GetCount() > 0), "both ways find something");
    int count = 0;
    for (TCXMLNode node = xml.NextNode(list); node; node = xml.NextNode(list)) {
        fuzz::Require(count > 0 || node == first, "the first node is the first");
        if (++count <= 50) Visit(xml, node);
    }
    fuzz::Require(count == list.GetCount(), "a list has as many nodes as it says");
}

void SetText(TCXML& xml, const std::string& text) {
    const TCXMLNode root = xml.SelectSingleNode("/*");
    const TCString quoted = TCXML::QuoteNodeTextString(text.c_str());
    if (!xml.SetNodeText(root, text.c_str())) return;
    TCString read;
    fuzz::Require(xml.GetNodeText(root, read), "a text that was set can be read");
    fuzz::RequireSame(fuzz::Bytes(read), text, "and is the same");
    if (!xml.SetNodeText(root, quoted)) return;
    const TCString literal = TCXML::PrepareXPathSearchString(text.c_str(), true, true);
    fuzz::Require(static_cast<bool>(xml.SelectSingleNode("/*[.=" + literal + "]")) ||
                      fuzz::Bytes(quoted).empty() ||
                      fuzz::Bytes(quoted).find_first_of(" \t\r\n") != std::string::npos,
                  "a literal finds the text that it describes");
}

void Save(TCXML& xml, const std::string& told) {
    const std::string path = fuzz::ScratchFile("document.xml");
    fuzz::Require(xml.Save(path.c_str()), "a document that was loaded can be saved");
    TCXML again;
    fuzz::Require(again.Load(path.c_str()), "what was saved can be loaded");
    fuzz::RequireSame(Tell(again), told, "and is the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    const std::string xpath = parts.Next();
    const std::string text = parts.Next();
    TCXML xml;
    if (!xml.LoadXML(parts.Next().c_str())) {
        fuzz::Require(xml.IsError(), "a failure has a message");
        return 0;
    }
    const std::string told = Tell(xml);
    TCXML again;
    fuzz::Require(again.LoadXML(told.c_str()), "what is told can be loaded");
    fuzz::RequireSame(Tell(again), told, "and is told the same");
    Select(xml, xpath);
    Save(xml, told);
    SetText(xml, text);
    return 0;
}
