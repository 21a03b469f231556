// Graph files in both forms: read, changed as by the command line, written in both forms, and checked with
// modules that touch no files. Parts of an input: the graph, and an argument of --set each.
#include "fuzz/Fuzz.h"
#include "host/Conversion.h"
#include "host/Graph.h"
#include "host/GraphText.h"
#include "host/GraphXml.h"
#include "sigweave/persistence/TCXML.h"

namespace {

using host::GraphFile;
using host::Mistakes;

// Reads what was written of the graph. What cannot be said in the form may come back as something else, but
// what came from the form can be said in it.
void CheckForm(const GraphFile& graph, const std::string& written, bool isOwnForm) {
    Mistakes mistakes;
    const GraphFile again = GraphFile::Parse("written", written, mistakes);
    const std::string difference = FindDifference(graph, again);
    if (isOwnForm) fuzz::RequireSame(difference, "", "a graph comes back the same in its own form");
    if (isOwnForm) fuzz::Require(mistakes.IsEmpty(), "without mistakes");
}

void Write(const GraphFile& graph) {
    if (graph.GetInstances().empty()) return;
    CheckForm(graph, WriteGraphText(graph), graph.GetForm() == host::GraphForm::Text);
    TCXML xml;
    if (!WriteGraphXml(graph, xml)) return fuzz::Require(xml.IsError(), "a failure has a message");
    TCString written;
    fuzz::Require(xml.GetNodeXML(xml.GetDocument(), written), "a document that was made can be told");
    CheckForm(graph, fuzz::Bytes(written), graph.GetForm() == host::GraphForm::Xml);
}

void Check(const GraphFile& graph, Mistakes& mistakes) {
    static const host::ModuleCatalogue catalogue({SIGWEAVE_FUZZ_MODULES});
    fuzz::Require(!catalogue.Entries().empty(), "there are modules");
    host::HostWindow window;
    window.AcceptDifferences(true, "");
    const host::Graph checked(graph, catalogue, window, mistakes);
    fuzz::Require(!mistakes.IsEmpty() || checked.Modules().size() == graph.GetInstances().size(),
                  "a graph without mistakes has all its modules");
    fuzz::Require(!mistakes.IsEmpty() || checked.Lines().size() >= graph.GetLines().size(), "and lines");
    for (const host::Mistake& mistake : mistakes.InOrder())
        fuzz::Require(!mistake.text.empty(), "a mistake has a text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    Mistakes mistakes;
    GraphFile graph = GraphFile::Parse("graph", parts.Next(), mistakes);
    if (mistakes.IsEmpty()) Write(graph);
    while (!parts.AtEnd()) graph.Set(parts.Next(), mistakes);
    if (graph.GetInstances().size() <= 20) Check(graph, mistakes);
    return 0;
}
