// Which files of a graph, its modules and the program would be lost, and are refused before any is opened.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

const std::string TONE = "[a]\nmodule=Generator\nduration=0.01\n[b]\nmodule=Generator\nduration=0.01\n";
const std::string WAVE = "[a]\nmodule=XmlPlayer\nfile=in.xml\n";
const std::string TABLE = "[t]\nmodule=CsvWriter\nfile=out.csv\noverwrite=yes\n";
const std::string RECORD = "[r]\nmodule=XmlRecorder\nfile=take.xml\noverwrite=yes\n";
const std::string PICTURE = "[p]\nmodule=Plot\nfile=x.svg\n";

struct Clash {
    const char* name;
    std::string graph;  // the modules
    std::string lines;
    std::string file;       // that the graph is in
    std::string prepare;    // a shell command
    std::string arguments;  // further ones
    std::string told;       // empty: there is no clash
};

const Clash CLASHES[] = {
    {"GraphIsTheTablesPart", TONE + TABLE, "a.Signal=t.Signal\n", "out.csv.part", ":", "",
     "out.csv.part:9: t writes 'out.csv.part', which the host reads too"},
    {"GraphIsAFurtherPart", TONE + TABLE, "a.Signal=t.Signal\n", "out.csv.part2", ":", "",
     "t writes 'out.csv.part', which the host reads too"},
    {"GraphIsThePicturesPart", TONE + PICTURE, "a.Signal=p.Signal\n", "x.svg.part", ":", "",
     "p writes 'x.svg.part', which the host reads too"},
    {"GraphIsARecording", TONE + RECORD, "a.Signal=r.Signal 1\nb.Signal=r.Signal 2\n", "take-1.xml", ":", "",
     "r writes 'take-1.xml', which the host reads too"},
    {"GraphIsNoRecordingOfOne", TONE + RECORD, "a.Signal=r.Signal\n", "take-1.xml", ":", "", ""},
    {"GraphByALink", TONE + TABLE, "a.Signal=t.Signal\n", "g.graph", "ln -s g.graph out.csv", "",
     "t writes 'out.csv', which the host reads too"},
    {"GraphByAFurtherName", TONE + TABLE, "a.Signal=t.Signal\n", "g.graph", "ln g.graph out.csv", "",
     "t writes 'out.csv', which the host reads too"},
    {"TwoWriters", TONE + TABLE + "[u]\nmodule=CsvWriter\nfile=./out.csv\n",
     "a.Signal=t.Signal\nb.Signal=u.Signal\n", "g.graph", ":", "", "u writes 'out.csv', which t writes too"},
    {"TwoWritersByALinkToNothing", TONE + TABLE + "[u]\nmodule=CsvWriter\nfile=link\n",
     "a.Signal=t.Signal\nb.Signal=u.Signal\n", "g.graph", "ln -s out.csv link", "",
     "u writes 'link', which t writes too"},
    {"TwoRecorders", TONE + RECORD + "[u]\nmodule=XmlRecorder\nfile=take-2.xml\n",
     "a.Signal=r.Signal 1\nb.Signal=r.Signal 2\na.Signal=u.Signal\n", "g.graph", ":", "",
     "u writes 'take-2.xml', which r writes too"},
    {"InputIsWritten", WAVE + "[r]\nmodule=XmlRecorder\nfile=in.xml\noverwrite=yes\n", "a.Signal=r.Signal\n",
     "g.graph", ":", "", "r writes 'in.xml', which a reads too"},
    {"LogIsAnInput", WAVE + TABLE, "a.Signal=t.Signal\n", "g.graph", ":", "--log in.xml",
     "--log in.xml: the log writes 'in.xml', which a reads too"},
    {"LogIsAnInputByAPattern", WAVE + TABLE, "a.Signal=t.Signal\n", "g.graph", "cp in.xml 100%x.xml",
     "--set a.file=100%x.xml --log 100%%x.xml", "the log writes '100%x.xml', which a reads too"},
    {"LogIsATable", TONE + TABLE, "a.Signal=t.Signal\n", "g.graph", ":", "--log out.csv",
     "the log writes 'out.csv', which t writes too"},
    {"LogIsTheGraph", TONE + TABLE, "a.Signal=t.Signal\n", "g.graph", "ln -s g.graph l.log", "--log l.log",
     "the log writes 'l.log', which the host reads too"},
    {"NothingClashes", TONE + TABLE, "a.Signal=t.Signal\n", "g.graph", ":", "--log logs.txt", ""},
};

void PrintTo(const Clash& clash, std::ostream* out) {
    *out << clash.name;
}

std::string ReadAll(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

const std::string RECORDING =
    "<Stream><Port><Type Items=\"1\">DOUBLE[]{TIME_DOMAIN}</Type></Port><Block><Segments><Segment><Name/>"
    "<DataType "
    "Value=\"2\"/><Length>1</Length><Values><Double>1</Double></Values></Segment></Segments></Block>"
    "</Stream>";

class FileClashes : public testing::TestWithParam<Clash> {
 protected:
    void SetUp() override {
        folder = fs::current_path() / (std::string("clash-") + GetParam().name);
        fs::create_directory(folder);
        std::ofstream(folder / "in.xml") << RECORDING;
        graph = GetParam().graph + "[lines]\n" + GetParam().lines;
        std::ofstream(folder / GetParam().file) << graph;
    }
    int Shell(const std::string& command) const {
        return std::system(("cd '" + folder.string() + "' && LC_ALL=C " + command).c_str()) >> 8;
    }

    fs::path folder;
    std::string graph;
};

TEST_P(FileClashes, AreRefusedBeforeAnyFileIsOpened) {
    const Clash& clash = GetParam();
    ASSERT_EQ(Shell(clash.prepare), 0);
    const auto count = [&] {
        return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    };
    const auto before = count();
    const int code = Shell("'" SIGWEAVE_PROGRAM "' run " + clash.file + " " + clash.arguments +
                           " --module-path '" SIGWEAVE_MODULE_DIR "' </dev/null >../out 2>../err");
    const std::string told = ReadAll("err");
    EXPECT_EQ(ReadAll(folder / clash.file), graph);
    EXPECT_EQ(ReadAll(folder / "in.xml"), RECORDING);
    if (clash.told.empty()) {
        EXPECT_EQ(code, 0) << told;
        return;
    }
    EXPECT_EQ(code, 2);
    EXPECT_THAT(told, HasSubstr(clash.told));
    EXPECT_THAT(told, HasSubstr("1 mistake;"));
    EXPECT_EQ(count(), before);
}

INSTANTIATE_TEST_SUITE_P(Files, FileClashes, testing::ValuesIn(CLASHES),
                         [](const auto& row) { return std::string(row.param.name); });

// The second recorder cannot write; the first one has not touched its own recording.
TEST(Files, ARecorderThatRefusesLeavesThoseOfOthers) {
    fs::create_directory("refusing");
    std::ofstream("refusing/first.xml") << RECORDING;
    std::ofstream("refusing/g.graph") << TONE +
                                             "[r]\nmodule=XmlRecorder\nfile=first.xml\noverwrite=yes\n[s]"
                                             "\nmodule=XmlRecorder\nfile=none/second.xml\n"
                                             "[lines]\na.Signal=r.Signal\nb.Signal=s.Signal\n";
    const int code =
        std::system("'" SIGWEAVE_PROGRAM "' run refusing/g.graph --module-path '" SIGWEAVE_MODULE_DIR
                    "' >out 2>err") >>
        8;
    EXPECT_EQ(code, 2);
    EXPECT_THAT(ReadAll("err") + ReadAll("out"), HasSubstr("none/second.xml"));
    EXPECT_EQ(ReadAll("refusing/first.xml"), RECORDING);
    EXPECT_EQ(std::distance(fs::directory_iterator("refusing"), fs::directory_iterator()), 2);
}

}  // namespace
