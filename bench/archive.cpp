// What do the items of an archive cost in its two forms, against the XML engine alone with the same document?
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sigweave/persistence/ArchiveBinary.h"
#include "sigweave/persistence/ArchiveXml.h"
#include "sigweave/persistence/TCXML.h"

namespace {

constexpr int ITEMS = 100'000;

// Each iteration begins with an orderly heap, so that none pays for what the other side has freed.
void CleanHeap(benchmark::State& state) {
    state.PauseTiming();
    malloc_trim(0);
    state.ResumeTiming();
}

bool Fill(tc::ArchiveTree& archive) {
    TCString text = "a name";
    double number = 0.1;
    bool done = true;
    for (std::int64_t i = 0; i < ITEMS; ++i) {
        const int item = static_cast<int>(i);
        done = done && (i % 3 == 0   ? archive.Integer(item, "count", i)
                        : i % 3 == 1 ? archive.Double(item, "gain", number)
                                     : archive.String(item, "name", text));
    }
    return done;
}

bool Read(tc::ArchiveTree& archive) {
    archive.BeginLoading();
    return Fill(archive);
}

const std::string& Document() {
    static const std::string text = [] {
        tc::ArchiveTree archive;
        TCXML document;
        TCString written;
        if (!Fill(archive) || !tc::WriteXmlArchive(archive, document) ||
            !document.GetNodeXML(document.GetDocument(), written))
            std::abort();
        return std::string(written);
    }();
    return text;
}

const std::string& Bytes() {
    static const std::string bytes = [] {
        tc::ArchiveTree archive;
        return Fill(archive) ? tc::WriteBinaryArchive(archive) : std::string();
    }();
    return bytes;
}

void BM_Archive_StoreXml(benchmark::State& state) {
    for (auto _ : state) {
        CleanHeap(state);
        tc::ArchiveTree archive;
        TCXML document;
        TCString text;
        if (!Fill(archive) || !tc::WriteXmlArchive(archive, document) ||
            !document.GetNodeXML(document.GetDocument(), text))
            state.SkipWithError("not written");
    }
    state.SetItemsProcessed(state.iterations() * ITEMS);
}
BENCHMARK(BM_Archive_StoreXml)->Unit(benchmark::kMillisecond);

xmlNode* AddItem(xmlNode* parent, const char* type, int number, const char* label, const char* value) {
    char text[32];
    std::snprintf(text, sizeof text, "%d", number);
    xmlNode* const item = xmlNewChild(parent, nullptr, BAD_CAST type, nullptr);
    xmlNewProp(item, BAD_CAST "number", BAD_CAST text);
    xmlNewProp(item, BAD_CAST "label", BAD_CAST label);
    return xmlAddChild(item, xmlNewText(BAD_CAST value));
}

// The same document from the same values.
void BM_Archive_StoreLibxml2(benchmark::State& state) {
    for (auto _ : state) {
        CleanHeap(state);
        xmlDoc* const built = xmlNewDoc(BAD_CAST "1.0");
        xmlNode* const root = xmlNewNode(nullptr, BAD_CAST "archive");
        xmlDocSetRootElement(built, root);
        char value[32];
        for (int i = 0; i < ITEMS; ++i) {
            std::snprintf(value, sizeof value, i % 3 == 0 ? "%.0f" : "%.17g", i % 3 == 0 ? i : 0.1);
            if (i % 3 == 0) AddItem(root, "integer", i, "count", value);
            if (i % 3 == 1) AddItem(root, "double", i, "gain", value);
            if (i % 3 == 2) AddItem(root, "string", i, "name", "a name");
        }
        xmlChar* text = nullptr;
        int size = 0;
        xmlDocDumpMemory(built, &text, &size);
        if (size == 0) state.SkipWithError("not written");
        xmlFree(text);
        xmlFreeDoc(built);
    }
    state.SetItemsProcessed(state.iterations() * ITEMS);
}
BENCHMARK(BM_Archive_StoreLibxml2)->Unit(benchmark::kMillisecond);

void BM_Archive_LoadXml(benchmark::State& state) {
    for (auto _ : state) {
        CleanHeap(state);
        TCXML document;
        tc::ArchiveTree archive;
        if (!document.LoadXML(Document().c_str()) || !tc::ReadXmlArchive(document, archive) || !Read(archive))
            state.SkipWithError("not read");
    }
    state.SetItemsProcessed(state.iterations() * ITEMS);
}
BENCHMARK(BM_Archive_LoadXml)->Unit(benchmark::kMillisecond);

struct Value {
    int number = 0;
    std::string label;
    std::string text;
    double value = 0.0;
};

std::string TextOf(xmlChar* taken) {
    std::string text = reinterpret_cast<const char*>(taken);
    xmlFree(taken);
    return text;
}

// Reads the document and takes the values out of it.
void BM_Archive_LoadLibxml2(benchmark::State& state) {
    for (auto _ : state) {
        CleanHeap(state);
        xmlDoc* const read = xmlReadMemory(Document().data(), static_cast<int>(Document().size()), "",
                                           "UTF-8", XML_PARSE_NONET);
        std::vector<Value> values;
        for (xmlNode* node = xmlDocGetRootElement(read)->children; node != nullptr; node = node->next) {
            if (node->type != XML_ELEMENT_NODE) continue;
            Value& value = values.emplace_back();
            value.number = std::atoi(TextOf(xmlGetProp(node, BAD_CAST "number")).c_str());
            value.label = TextOf(xmlGetProp(node, BAD_CAST "label"));
            value.text = TextOf(xmlNodeGetContent(node));
            if (node->name[0] != 's') value.value = std::strtod(value.text.c_str(), nullptr);
        }
        if (values.size() != ITEMS) state.SkipWithError("not read");
        xmlFreeDoc(read);
    }
    state.SetItemsProcessed(state.iterations() * ITEMS);
}
BENCHMARK(BM_Archive_LoadLibxml2)->Unit(benchmark::kMillisecond);

void BM_Archive_StoreBinary(benchmark::State& state) {
    for (auto _ : state) {
        CleanHeap(state);
        tc::ArchiveTree archive;
        if (!Fill(archive) || tc::WriteBinaryArchive(archive).empty()) state.SkipWithError("not written");
    }
    state.SetItemsProcessed(state.iterations() * ITEMS);
}
BENCHMARK(BM_Archive_StoreBinary)->Unit(benchmark::kMillisecond);

void BM_Archive_LoadBinary(benchmark::State& state) {
    for (auto _ : state) {
        CleanHeap(state);
        tc::ArchiveTree archive;
        CString error;
        if (!tc::ReadBinaryArchive(Bytes(), archive, error) || !Read(archive))
            state.SkipWithError("not read");
    }
    state.SetItemsProcessed(state.iterations() * ITEMS);
}
BENCHMARK(BM_Archive_LoadBinary)->Unit(benchmark::kMillisecond);

}  // namespace
