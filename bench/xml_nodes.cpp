// What do nodes cost through TCXML, against the XML engine alone? (Large texts are measured in xml.cpp.)
#include <benchmark/benchmark.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>

#include "sigweave/persistence/TCXML.h"

namespace {

const xmlChar* Chars(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

constexpr int NODES = 20'000;

bool Fill(TCXML& xml) {
    xml.Create();
    const TCXMLNode root = xml.CreateElement("Values", xml.CreateElement("Stream", xml.GetDocument()));
    for (int i = 0; i < NODES; ++i) xml.SetNodeText(xml.CreateElement("String", root), "a name");
    return !xml.IsError();
}

xmlDoc* FillPeer() {
    xmlDoc* const tree = xmlNewDoc(Chars("1.0"));
    xmlNode* const root = xmlNewNode(nullptr, Chars("Values"));
    xmlDocSetRootElement(tree, root);
    for (int i = 0; i < NODES; ++i)
        xmlAddChild(xmlNewChild(root, nullptr, Chars("String"), nullptr), xmlNewText(Chars("a name")));
    return tree;
}

void BM_XmlNodes_Build(benchmark::State& state) {
    for (auto _ : state) {
        TCXML xml;
        if (!Fill(xml)) state.SkipWithError("not built");
    }
    state.SetItemsProcessed(state.iterations() * NODES);
}
BENCHMARK(BM_XmlNodes_Build);

void BM_XmlNodes_BuildLibxml2(benchmark::State& state) {
    for (auto _ : state) {
        xmlFreeDoc(FillPeer());
    }
    state.SetItemsProcessed(state.iterations() * NODES);
}
BENCHMARK(BM_XmlNodes_BuildLibxml2);

void BM_XmlNodes_Read(benchmark::State& state) {
    TCXML xml;
    if (!Fill(xml)) return state.SkipWithError("not built");
    TCString text;
    for (auto _ : state) {
        TCXMLNodeList list = xml.SelectNodes("String", xml.SelectSingleNode("Stream/Values"));
        while (const TCXMLNode node = xml.NextNode(list)) xml.GetNodeText(node, text);
    }
    state.SetItemsProcessed(state.iterations() * NODES);
}
BENCHMARK(BM_XmlNodes_Read);

void BM_XmlNodes_ReadLibxml2(benchmark::State& state) {
    xmlDoc* const tree = FillPeer();
    for (auto _ : state) {
        xmlXPathContext* const context = xmlXPathNewContext(tree);
        xmlXPathObject* const found = xmlXPathEvalExpression(Chars("/Values/String"), context);
        for (int i = 0; i < found->nodesetval->nodeNr; ++i)
            xmlFree(xmlNodeGetContent(found->nodesetval->nodeTab[i]));
        xmlXPathFreeObject(found);
        xmlXPathFreeContext(context);
    }
    xmlFreeDoc(tree);
    state.SetItemsProcessed(state.iterations() * NODES);
}
BENCHMARK(BM_XmlNodes_ReadLibxml2);

}  // namespace
