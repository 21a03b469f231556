// Blocks as XML documents: 1000 blocks of 1024 doubles, 27 MB of text. Is writing them, the numbers
// converted, as fast as libxml2 builds and saves a tree of texts that are ready? (limit: 1) Does reading them
// stay near libxml2's parsing and selecting, which converts nothing? (limit: 1.5) How much memory does
// loading add, measured in a process of its own, for each byte of text? (limit: 2.2)
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "sigweave/foundation/HexDouble.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

constexpr int BLOCKS = 1000;
constexpr int VALUES = 1024;
constexpr char DOUBLES[] = "/Stream/Block/Segments/Segment/Values/Double";

const std::vector<double>& Values() {
    static const std::vector<double> values = [] {
        std::mt19937_64 random(7);
        std::uniform_real_distribution<double> uniform(-10, 10);
        std::vector<double> result(VALUES);
        for (double& value : result) value = uniform(random);
        return result;
    }();
    return values;
}

const std::string& Numbers() {
    static const std::string text = [] {
        std::string result;
        char one[32];
        for (const double value : Values()) (result += DoubleToHexString(one, sizeof one, value)) += ' ';
        result.pop_back();
        return result;
    }();
    return text;
}

// A file in the folder for temporary files, which ends with the program.
class File {
 public:
    explicit File(const std::string& name)
        : path(std::filesystem::temp_directory_path() / (std::to_string(getpid()) + name)) {}
    ~File() { std::filesystem::remove(path); }
    const char* Path() const { return path.c_str(); }
    std::int64_t Size() const { return static_cast<std::int64_t>(std::filesystem::file_size(path)); }

 private:
    std::filesystem::path path;
};

// The document that is read.
const File& Document() {
    static const File file("-read.xml");
    static const bool written = [] {
        std::ofstream out(file.Path());
        out << "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<Stream>\n";
        for (int i = 0; i < BLOCKS; ++i)
            out << "\t<Block>\n\t\t<Segments>\n\t\t\t<Segment>\n\t\t\t\t<Name>a</Name>\n"
                   "\t\t\t\t<DataType Value=\"2\">DOUBLE</DataType>\n\t\t\t\t<Length>1024</Length>\n"
                   "\t\t\t\t<Values>\n\t\t\t\t\t<Double>"
                << Numbers()
                << "</Double>\n\t\t\t\t</Values>\n\t\t\t</Segment>\n\t\t</Segments>\n\t</Block>\n";
        out << "</Stream>\n";
        return out.good();
    }();
    if (!written) std::abort();
    return file;
}

// --- Writing

// The thousand blocks are those of one channel, so that one document holds them.
void BM_Xml_Write(benchmark::State& state) {
    TCIOStream writer, input;
    writer.AddOutputStream(input.SetInputStream(3));
    writer.StartWriteSegments();
    const int count = VALUES;
    for (int i = 0; i < BLOCKS; ++i)
        writer.WriteBusSegment("a", TCIOStream::DOUBLE, 1, &count, Values().data(), false, nullptr);
    writer.EndWriteSegments();
    const File file("-written.xml");
    for (auto _ : state) {
        TCXML xml;
        if (!input.StreamToXML(xml, true, 0) || !xml.Save(file.Path())) state.SkipWithError(xml.GetError());
    }
    state.SetBytesProcessed(state.iterations() * file.Size());
}

xmlNode* Add(xmlNode* parent, const char* name, const char* text = nullptr) {
    xmlNode* node = xmlNewChild(parent, nullptr, BAD_CAST name, nullptr);
    if (text != nullptr) xmlAddChild(node, xmlNewTextLen(BAD_CAST text, static_cast<int>(std::strlen(text))));
    return node;
}

void AddBlock(xmlNode* parent) {
    xmlNode* segment = Add(Add(Add(parent, "Block"), "Segments"), "Segment");
    Add(segment, "Name", "");
    xmlNewProp(Add(segment, "DataType", "DOUBLE"), BAD_CAST "Value", BAD_CAST "2");
    Add(segment, "Length", "1024");
    Add(Add(segment, "Values"), "Double", Numbers().c_str());
}

void BM_Xml_WriteReadyTextLibxml2(benchmark::State& state) {
    const File file("-peer.xml");
    for (auto _ : state) {
        xmlDoc* document = xmlNewDoc(BAD_CAST "1.0");
        xmlNode* root = xmlNewNode(nullptr, BAD_CAST "Stream");
        xmlDocSetRootElement(document, root);
        for (int i = 0; i < BLOCKS; ++i) AddBlock(root);
        if (xmlSaveFormatFileEnc(file.Path(), document, "UTF-8", 1) < 0) state.SkipWithError("not saved");
        xmlFreeDoc(document);
    }
    state.SetBytesProcessed(state.iterations() * file.Size());
}

// --- Reading

// Answers the number of blocks.
int Load() {
    TCIOStream writer, input;
    writer.AddOutputStream(input.SetInputStream(3));
    TCXML xml;
    return xml.Load(Document().Path()) ? writer.XMLToStream(xml) : 0;
}

int LoadLibxml2() {
    xmlDoc* document = xmlReadFile(Document().Path(), nullptr, XML_PARSE_NONET);
    xmlXPathContext* context = xmlXPathNewContext(document);
    xmlXPathObject* found = xmlXPathEvalExpression(BAD_CAST DOUBLES, context);
    const int count = found->nodesetval->nodeNr;
    xmlXPathFreeObject(found);
    xmlXPathFreeContext(context);
    xmlFreeDoc(document);
    return count;
}

// In kB, as the system reports it.
std::int64_t Memory(const char* which) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(which)) return std::atoll(line.c_str() + std::strlen(which));
    return 0;
}

// What the work adds to the memory of a process at its peak, for each byte of the document.
double AddedMemory(int (*work)()) {
    const std::int64_t size = Document().Size();
    int ends[2];
    if (pipe(ends) != 0) return 0;
    double added = 0;
    const pid_t child = fork();
    if (child == 0) {
        malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << 5;  // the peak is what is there now
        const std::int64_t before = Memory("VmRSS:");
        work();
        added = static_cast<double>(Memory("VmHWM:") - before) * 1024 / static_cast<double>(size);
        _exit(write(ends[1], &added, sizeof added) != sizeof added);
    }
    if (read(ends[0], &added, sizeof added) != sizeof added) added = 0;
    close(ends[0]);
    close(ends[1]);
    waitpid(child, nullptr, 0);
    return added;
}

void ReadAll(benchmark::State& state, int (*work)()) {
    state.counters["added_memory"] = AddedMemory(work);
    for (auto _ : state)
        if (work() != BLOCKS) state.SkipWithError("not read");
    state.SetBytesProcessed(state.iterations() * Document().Size());
}

void BM_Xml_Read(benchmark::State& state) {
    ReadAll(state, Load);
}
void BM_Xml_ReadTextLibxml2(benchmark::State& state) {
    ReadAll(state, LoadLibxml2);
}

BENCHMARK(BM_Xml_Write)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_WriteReadyTextLibxml2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_Read)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_ReadTextLibxml2)->Unit(benchmark::kMillisecond);

}  // namespace
