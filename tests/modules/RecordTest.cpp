#include <gmock/gmock.h>
#include <sndfile.h>

#include <bit>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>

#include "sigweave/recording/RecordingReader.h"
#include "sigweave/signal/TCBusSerializeHelper.h"
#include "sigweave/signal/forms/StreamRecord.h"
#include "tests/support/ModuleBench.h"

namespace {

using testing::HasSubstr;

// The stream that the recorder of a test listens to.
struct Line {
    explicit Line(ModuleBench& bench, int input = 0) {
        stream.AddOutputStream(bench.Module().SetInputStream(input, 0, 3));
    }
    TCIOStream stream;
};

TCTypeInfo Metadata(TCBLOCKSTATUS state) {
    TCTypeInfo ti;
    ti.SetSignalname(" caf\xE9\n<&> ");
    ti.SetTimestamp(1.0e12 + 0.1);
    ti.SetSamplerate(1.0 / 3.0);
    ti.SetRangeMin(-std::numeric_limits<double>::infinity());
    ti.SetState(state);
    ti.GetUnit().SetFactor(1000.0);  // "1 * 1e+003", which no unit reader takes
    return ti;
}

struct Kind {
    const char* type;
    int items;
    void (*write)(TCIOStream&);
};

const double DOUBLES[] = {-0.0,
                          5e-324,
                          std::numeric_limits<double>::infinity(),
                          0.1,
                          std::bit_cast<double>(0x7FF8000000000123),
                          1.7976931348623157e308};

void WriteDoubles(TCIOStream& stream) {
    for (const TCBLOCKSTATUS state : {START, BUSY, STOP}) {
        const TCTypeInfo ti = Metadata(state);
        stream.SetTI(&ti, false);
        stream.WriteDblVec(DOUBLES, 6);
    }
}
// The end of the signal has no values.
void WriteAnEndApart(TCIOStream& stream) {
    TCTypeInfo ti = Metadata(START);
    stream.SetTI(&ti, false);
    stream.WriteDblVec(DOUBLES, 6);
    ti.SetState(STOP);
    stream.SetTI(&ti, false);
    stream.EndWriteSegments();
}
void WriteIntegers(TCIOStream& stream) {
    const int values[] = {0, -1, 255, -2147483647 - 1};
    stream.WriteIntVec(values, 4);
}
void WriteTexts(TCIOStream& stream) {
    const TCString values[] = {"", " both ends ", "a\tb\\x41\r\n", "\xFF\xC3\xA9", "</String>]]>"};
    stream.WriteStrVec(values, 5);
}
void WriteMatrix(TCIOStream& stream) {
    const double values[] = {1, 2, 3, 4, 5, 6};
    stream.WriteDblMat(values, 2, 3, true);
}
void WriteParts(TCIOStream& stream) {
    stream.StartWriteSegments();
    stream.WriteSegment("gain", 2.5);
    stream.WriteSegment("count of\nthem", 7);
    stream.WriteSegment("label", "x");
    stream.EndWriteSegments();
}
void WriteBus(TCIOStream& stream) {
    const TCTypeInfo ti = Metadata(COMPLETE);
    TCSI_Unit odd;
    odd.SetFactor(0.123);
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) odd.SetExponent(i, i < 4 ? i - 4 : i);
    TCTypeInfo other = ti;
    other.SetUnit(odd);
    const int extent = 6;
    stream.StartWriteSegments();
    for (const TCTypeInfo* each : std::initializer_list<const TCTypeInfo*>{&ti, &other, nullptr}) {
        const TCString name = TCBusSerializeHelper::GenSegmentName(TCPortHelper::TYPE_DOUBLEARRAY, nullptr, 0,
                                                                   each == &ti ? 0 : 1, "left", "");
        stream.WriteBusSegment(name, TCIOStream::DOUBLE, 1, &extent, DOUBLES, true, each);
    }
    stream.EndWriteSegments();
}

const Kind KINDS[] = {{"TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}", 2, WriteDoubles},
                      {"TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}", 2, WriteAnEndApart},
                      {"SWORD[]{BIN}", 1, WriteIntegers},
                      {"UBYTE[][]{Text}", 1, WriteTexts},
                      {"POINTER{DOUBLE[][]}", 1, WriteMatrix},
                      {"DOUBLE[1]{gain} SWORD[1]{BIN} UBYTE[]{Text}", 3, WriteParts},
                      {"STRUCT_BUS{BUS}", 1, WriteBus}};

bool IsXml(const std::string& file) {
    return file.ends_with(".xml");
}

// Records what `fill` sends over a line of that type, by the recorder of such files.
std::string Record(const std::string& file, const char* type, int items,
                   const std::function<void(TCIOStream&)>& fill) {
    ModuleBench recorder(IsXml(file) ? "xml-recorder" : "recorder", IsXml(file) ? "XmlRecorder" : "Recorder");
    EXPECT_TRUE(recorder.Set("file=\"" + file + "\"\n"));
    EXPECT_EQ(recorder.Module().ValidatePortType(INPUT, 0, type, items), 1);
    recorder.Module().AddLine(INPUT, 0);
    Line line(recorder);
    EXPECT_TRUE(recorder.Start()) << recorder.Error();
    fill(line.stream);
    EXPECT_TRUE(recorder.Pump()) << recorder.Error();
    EXPECT_TRUE(recorder.Finish());
    return ReadText(file);
}

// A player with the stream that hears its first output.
struct Player : ModuleBench {
    explicit Player(const std::string& file)
        : ModuleBench(IsXml(file) ? "xml-player" : "player", IsXml(file) ? "XmlPlayer" : "Player") {
        isSet = Set("file=\"" + file + "\"\n");
        Module().AddLine(OUTPUT, 0);
        Module().AddOutputStream(0, heard.SetInputStream(3));
    }
    bool PlayStep() {
        if (Module().Fetch() != 0) return false;
        failed = Module().Execute() < 0;
        return !failed;
    }
    TCIOStream heard;
    bool isSet = false;
    bool failed = false;
};

class RecordForm : public testing::TestWithParam<std::string> {};

TEST_P(RecordForm, WhatIsPlayedAndRecordedAgainIsTheSameFile) {
    for (const Kind& kind : KINDS) {
        SCOPED_TRACE(kind.type);
        const std::string first = Record(FreshFile("first" + GetParam()), kind.type, kind.items, kind.write);
        Player player("first" + GetParam());
        ASSERT_TRUE(player.isSet) << player.Error();
        const char* type = nullptr;
        int items = 0;
        player.Module().GetPortType(OUTPUT, 0, type, items);
        EXPECT_STREQ(type, kind.type);
        EXPECT_EQ(items, kind.items);
        const std::string again = Record(FreshFile("again" + GetParam()), type, items, [&](TCIOStream& line) {
            ASSERT_TRUE(player.Start()) << player.Error();
            while (player.PlayStep())
                while (line.ForwardBlock(player.heard) == 1) continue;
        });
        EXPECT_FALSE(player.failed) << player.Module().GetLastErrorText();
        EXPECT_TRUE(player.Finish());
        EXPECT_EQ(again, first);
    }
}

TEST_P(RecordForm, AnInterruptedPlayerEndsItsSignals) {
    Record(FreshFile("long" + GetParam()), KINDS[0].type, 2, WriteDoubles);
    Player player("long" + GetParam());
    ASSERT_TRUE(player.isSet && player.Start());
    ASSERT_TRUE(player.PlayStep());
    player.Module().Interrupt();
    while (player.PlayStep()) continue;
    ASSERT_EQ(player.heard.GetBlockCnt(nullptr), 2);
    EXPECT_EQ(player.heard.PeekStatus(true), COMPLETE);
}

INSTANTIATE_TEST_SUITE_P(Record, RecordForm, testing::Values(".xml", ".mcap"));

TEST(Record, KeepsEveryBitInPackedFrames) {
    Record(FreshFile("bits.mcap"), KINDS[0].type, 2, WriteDoubles);
    tc::RecordingReader doubles;
    ASSERT_TRUE(doubles.Open("bits.mcap")) << doubles.GetError();
    ASSERT_EQ(doubles.Next(), 1);
    EXPECT_EQ(std::memcmp(doubles.GetBlock().Segment(0)->GetDoubles(), DOUBLES, sizeof DOUBLES), 0);
    EXPECT_EQ(doubles.GetBlock().GetTI()->GetUnit().GetFactor(), 1000.0);
    EXPECT_EQ(doubles.GetBlock().GetTI()->GetSignalnameString(), " caf\xE9\n<&> ");
    Record(FreshFile("bus.mcap"), "STRUCT_BUS{BUS}", 1, WriteBus);
    tc::RecordingReader bus;
    ASSERT_TRUE(bus.Open("bus.mcap") && bus.Next() == 1) << bus.GetError();
    const TCIOStream::Block& channel = *bus.GetBlock().Segment(1)->GetBlocks()[0];
    EXPECT_EQ(channel.GetTI()->GetUnit().GetFactor(), 0.123);
    EXPECT_EQ(bus.GetTime(), 1000000000000099976u)
        << "of its first channel: the double next to 0.1 there is 0.0999755859375";
}

// One file for all inputs; what one of them brings comes out of the output of the same number, in the order
// in which it was recorded. A file that breaks off is played to its end.
TEST(Record, OneFileHoldsAllInputs) {
    const std::string file = FreshFile("many.mcap");
    ModuleBench recorder("recorder", "Recorder");
    ASSERT_TRUE(recorder.Set("file=many.mcap\nsync=1s\n"));
    recorder.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
    ASSERT_TRUE(recorder.Start()) << recorder.Error();
    EXPECT_TRUE(recorder.Feed(0, {1.0, 2.0}, {}, 2, true, false));
    EXPECT_TRUE(recorder.Feed(1, {3.0}, {}, 1));
    EXPECT_TRUE(recorder.Feed(0, {4.0, 5.0}, {}, 2, false, true));
    const std::string unended = ReadText(file);
    EXPECT_TRUE(recorder.Finish());
    EXPECT_EQ(recorder.Result("blocks", "Signal 1"), 2.0);
    for (const std::string& bytes :
         {ReadText(file), unended + "12345", unended.substr(0, unended.size() - 1)}) {
        std::ofstream(file, std::ios::binary) << bytes;
        ModuleBench player("player", "Player");
        ASSERT_TRUE(player.Set("file=many.mcap\n")) << player.Error();
        ASSERT_EQ(player.Module().GetNoOutput(), 2);
        for (const int output : {0, 1}) player.WireOutput(output);
        ASSERT_TRUE(player.Start() && player.Pump() && player.Finish()) << player.Error();
        const bool isCut = bytes.size() < unended.size();
        EXPECT_EQ(player.Samples(0), isCut ? std::vector<double>({1, 2}) : std::vector<double>({1, 2, 4, 5}));
        EXPECT_EQ(player.Samples(1), std::vector<double>{3});
        const std::string warnings = ModuleBench::TakeWarnings();
        EXPECT_EQ(warnings.find("breaks off after block 1 of 'test'") != std::string::npos, isCut)
            << warnings;
        EXPECT_EQ(warnings.find("5 bytes at its end are no block") != std::string::npos,
                  bytes.ends_with("12345"));
    }
}

// The exit code of the host; what it says goes to the file "told".
int Host(const std::string& arguments) {
    return std::system(("LC_ALL=C.UTF-8 " SIGWEAVE_HOST " " + arguments + " >told 2>&1").c_str()) >> 8;
}

std::string TakeGraph(const std::string& more) {
    return "[noise]\nmodule=Generator\nform=noise\nrate=8000\nblock=100\nduration=0.1\nunit=V\n"
           "start=2026-03-01T12:00:00.5Z\n[smooth]\nmodule=Filter\ntype=lowpass\ncorner=1000\n"
           "[take]\nmodule=Recorder\nfile=" +
           FreshFile("take.mcap") + "\noverwrite=yes\n" + more +
           "noise.Signal=smooth.Signal\nnoise.Signal=take.Signal 1\nsmooth.Signal=take.Signal 2\n";
}

TEST(RecordCommands, RunTheGraphOfARecordingAgain) {
    const std::string table = FreshFile("table.csv");
    std::ofstream("take.graph") << TakeGraph(
        "[table]\nmodule=CsvWriter\nfile=table.csv\n[lines]\nsmooth.Signal=table.Signal\n");
    ASSERT_EQ(Host("run take.graph"), 0) << ReadText("told");
    std::filesystem::remove(std::filesystem::absolute(table));
    EXPECT_EQ(Host("rerun take.mcap"), 0) << ReadText("told");
    EXPECT_EQ(ReadText("told"), "identical\n");
    EXPECT_FALSE(std::filesystem::exists(table)) << "what does not lead to the recorder is not run";
    std::string other = ReadText("take.graph");
    other.replace(other.find("corner=1000"), 11, "corner=1001");
    std::ofstream("other.graph") << other;
    EXPECT_EQ(Host("rerun take.mcap --graph other.graph"), 1);
    EXPECT_THAT(ReadText("told"), testing::ContainsRegex("^signal 'noise', block 1, segment 1, element 1: "
                                                         "-?[0-9.e-]+ and -?[0-9.e-]+\n$"));
}

// The player is ahead of what drives the recorder, by whole signals.
TEST(RecordCommands, RunARecorderAgainThatWasSwitched) {
    std::ofstream("take.graph") << "[lfo]\nmodule=Generator\nform=square\nfrequency=4\namplitude=0.5\n"
                                   "offset=0.5\nrate=100\nblock=5\nduration=2\nstart=2026-01-01\n[noise]\n"
                                   "module=Generator\nform=noise\nrate=1000\nblock=50\nduration=2\n"
                                   "start=2026-01-01\n[take]\nmodule=Recorder\nfile="
                                << FreshFile("take.mcap")
                                << "\n[lines]\nnoise.Signal=take.Signal\nlfo.Signal=take.on\n";
    ASSERT_EQ(Host("run take.graph"), 0) << ReadText("told");
    EXPECT_EQ(Host("rerun take.mcap"), 0);
    EXPECT_EQ(ReadText("told"), "these sources were not recorded and ran anew: lfo\nidentical\n");
}

TEST(RecordCommands, RunSourcesThatWereNotRecordedAtTheTimeOfTheRecordedRun) {
    std::ofstream("take.graph") << "[tone]\nmodule=Generator\n[smooth]\nmodule=Filter\ncorner=1000\n"
                                   "[take]\nmodule=Recorder\nfile="
                                << FreshFile("take.mcap")
                                << "\n[lines]\ntone.Signal=smooth.Signal\nsmooth.Signal=take.Signal\n";
    ASSERT_EQ(Host("run take.graph"), 0) << ReadText("told");
    EXPECT_EQ(Host("rerun take.mcap"), 0);
    EXPECT_EQ(ReadText("told"), "these sources were not recorded and ran anew: tone\nidentical\n");
}

TEST(RecordCommands, RunAgainWhatWildcardsWired) {
    std::ofstream("take.graph") << "[noise]\nmodule=Generator\nform=noise\n[smooth]\nmodule=Filter\n"
                                   "corner=1000\n[take]\nmodule=Recorder\nfile="
                                << FreshFile("take.mcap")
                                << "\n[lines]\nnoise.*=smooth\nnoise.*=take\nsmooth.Sig*=take\n";
    ASSERT_EQ(Host("run take.graph"), 0) << ReadText("told");
    EXPECT_EQ(Host("rerun take.mcap"), 0);
    EXPECT_EQ(ReadText("told"), "identical\n");
}

TEST(RecordCommands, ShowAndCheckARecording) {
    std::ofstream("take.graph") << TakeGraph("[lines]\n");
    ASSERT_EQ(Host("run take.graph --set take.sync=1"), 0) << ReadText("told");
    EXPECT_EQ(Host("info --check take.mcap"), 0) << ReadText("told");
    EXPECT_THAT(ReadText("told"),
                testing::AllOf(HasSubstr("take.mcap: ends with block 16, and was closed\n"),
                               HasSubstr("every block is whole"), HasSubstr("settings.smooth"),
                               HasSubstr("clock.largest_error")));
    EXPECT_EQ(Host("info take.mcap --fact settings.take"), 0);
    EXPECT_THAT(ReadText("told"), HasSubstr("sync=1\n"));
    EXPECT_EQ(Host("info take.mcap --fact none"), 1);
    const std::string bytes = ReadText("take.mcap");
    std::string flipped = bytes;
    flipped[bytes.find("SWBK") + 300] ^= 2;
    std::ofstream("take.mcap", std::ios::binary) << flipped;
    EXPECT_EQ(Host("info --check take.mcap"), 1);
    EXPECT_THAT(ReadText("told"), testing::AllOf(HasSubstr("damaged:\n  block 1 of 'noise'"),
                                                 HasSubstr("    whole from byte ")));
    std::ofstream("take.mcap", std::ios::binary) << bytes.substr(0, bytes.size() - 60);
    EXPECT_EQ(Host("info take.mcap"), 1);
    EXPECT_THAT(ReadText("told"),
                testing::ContainsRegex("ends after block 16; [0-9,]+ bytes behind it are no"));
    EXPECT_EQ(Host("export take.mcap --to csv --overwrite"), 0);
    EXPECT_THAT(ReadText("told"), HasSubstr("warning: take.mcap breaks off"));
    std::ofstream("take.mcap", std::ios::binary) << std::string(2000, '\0') << bytes.substr(2000);
    EXPECT_EQ(Host("rerun take.mcap"), 2);
    EXPECT_THAT(ReadText("told"), HasSubstr("take.mcap: does not hold the graph that recorded it; "));
    Record(FreshFile("bits.xml"), KINDS[0].type, 2, WriteDoubles);
    EXPECT_EQ(Host("info bits.xml"), 2);
    EXPECT_THAT(ReadText("told"), HasSubstr("bits.xml is an XML recording"));
    EXPECT_EQ(Host("info take.graph"), 2);
    EXPECT_EQ(Host("diff take.graph take.mcap"), 2);
    EXPECT_EQ(ReadText("told"), "error: take.graph is not a recording\n");
}

TEST(RecordCommands, CompareRecordingsOfBothKinds) {
    Record(FreshFile("bits.xml"), KINDS[0].type, 2, WriteDoubles);
    Record(FreshFile("bits.mcap"), KINDS[0].type, 2, WriteDoubles);
    EXPECT_EQ(Host("diff bits.xml bits.mcap"), 0) << ReadText("told");
    EXPECT_EQ(Host("diff bits.mcap bits.xml"), 0) << ReadText("told");
}

// What h5py and scipy.io find in take-2.h5 and take-2.mat, where the program and they are there.
void ExpectReadByPython(const std::vector<double>& wanted) {
    static constexpr std::pair<const char*, const char*> READERS[] = {
        {"hdf5",
         "import h5py; s = h5py.File('take-2.h5')['samples']; a = s.attrs; f = lambda x: x.decode() if "
         "hasattr(x, 'decode') else x; print(f(a['name']), f(a['unit']), a['sample_rate'], a['start_time'])"},
        {"mat",
         "import scipy.io; m = scipy.io.loadmat('take-2.mat'); s = m['samples'][:, 0]; print(m['name'][0], "
         "m['unit'][0], m['sample_rate'][0, 0], m['start_time'][0, 0])"}};
    for (const auto& [format, program] : READERS) {
        if (Host("export --help") != 0 ||
            ReadText("told").find("|" + std::string(format) + "|") == std::string::npos)
            continue;
        ASSERT_EQ(Host(std::string("export take.mcap --to ") + format), 0) << ReadText("told");
        std::ofstream("read.py") << program << "\nimport sys; sys.stdout.flush(); s[:].tofile('samples')\n";
        const int code = std::system("/usr/bin/python3 read.py >told 2>&1");
        if (code != 0 && ReadText("told").find("No module named") != std::string::npos) continue;
        EXPECT_EQ(ReadText("told"), "noise V 8000.0 1772366400.5\n") << format;
        EXPECT_EQ(ReadText("samples"),
                  std::string(reinterpret_cast<const char*>(wanted.data()), wanted.size() * sizeof(double)));
    }
}

TEST(RecordCommands, ExportSamplesWithWhatTheyMean) {
    std::ofstream("take.graph") << TakeGraph("[lines]\n");
    ASSERT_EQ(Host("run take.graph"), 0) << ReadText("told");
    tc::RecordingReader reader;
    ASSERT_TRUE(reader.Open("take.mcap") && reader.Seek(1, 1));
    std::vector<double> wanted;
    while (reader.Next() == 1) {
        const double* const values = reader.GetBlock().Segment(0)->GetDoubles();
        if (reader.GetSignal() == 1) wanted.insert(wanted.end(), values, values + 100);
    }
    ASSERT_EQ(wanted.size(), 800u);
    for (const char* format : {"wav", "csv", "sigmf"})
        ASSERT_EQ(Host(std::string("export take.mcap --overwrite --to ") + format), 0) << ReadText("told");
    SF_INFO info{};
    SNDFILE* const wave = sf_open("take-2.wav", SFM_READ, &info);
    ASSERT_NE(wave, nullptr);
    EXPECT_EQ(info.samplerate, 8000);
    EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
    EXPECT_STREQ(sf_get_string(wave, SF_STR_TITLE), "noise");
    EXPECT_STREQ(sf_get_string(wave, SF_STR_COMMENT),
                 "unit=V; start=1772366400500 ms since 1970-01-01 00:00 UTC");
    std::vector<double> samples(801);
    EXPECT_EQ(sf_read_double(wave, samples.data(), 801), 800);
    sf_close(wave);
    samples.pop_back();
    EXPECT_EQ(samples, wanted);
    EXPECT_TRUE(ReadText("take-2.csv").starts_with("time,noise\ns,V\nsamplerate,8000\n0,"))
        << ReadText("take-2.csv");
    const std::string data = ReadText("take-2.sigmf-data");
    EXPECT_EQ(data,
              std::string(reinterpret_cast<const char*>(wanted.data()), wanted.size() * sizeof(double)));
    const auto meta = nlohmann::json::parse(ReadText("take-2.sigmf-meta"));
    EXPECT_EQ(meta["global"]["core:datatype"], "rf64_le");
    EXPECT_EQ(meta["global"]["core:sample_rate"], 8000.0);
    EXPECT_EQ(meta["global"]["sigweave:unit"], "V");
    EXPECT_EQ(meta["captures"][0]["core:datetime"], "2026-03-01T12:00:00.500Z");
    EXPECT_EQ(ReadText("told"),
              "take-1.sigmf-data: 'noise' (Signal 1), samples: 800\n"
              "take-2.sigmf-data: 'noise' (Signal 2), samples: 800\n");
    std::ofstream("old-2.wav") << "old";
    EXPECT_EQ(Host("export take.mcap --to wav --output old.wav"), 1);
    EXPECT_THAT(ReadText("told"), HasSubstr("old-2.wav is there already; nothing was written; --overwrite"));
    EXPECT_FALSE(std::filesystem::exists("old-1.wav"));
    std::filesystem::create_directory("exported");
    EXPECT_EQ(Host("export take.mcap --to wav --overwrite --output exported"), 0);
    EXPECT_TRUE(std::filesystem::exists("exported/take-2.wav"));
    Record(FreshFile("one.mcap"), KINDS[0].type, 2, WriteDoubles);
    EXPECT_EQ(Host("export one.mcap --to csv --overwrite --output ./one.mcap"), 1);
    EXPECT_THAT(ReadText("told"), HasSubstr("./one.mcap is the recording itself"));
    EXPECT_EQ(Host("info one.mcap"), 0);
    ExpectReadByPython(wanted);
    Record(FreshFile("texts.mcap"), "UBYTE[][]{Text}", 1, WriteTexts);
    EXPECT_EQ(Host("export texts.mcap --to wav"), 2);
    EXPECT_THAT(ReadText("told"), HasSubstr("is left out: it has blocks that are not samples of one signal"));
    EXPECT_FALSE(std::filesystem::exists("texts.wav"));
}

TEST(Record, ADamagedRecordingIsPlayedUpToThere) {
    std::string bytes = Record(FreshFile("damaged.mcap"), KINDS[0].type, 2, WriteDoubles);
    const std::size_t second = bytes.find("SWBK", bytes.find("SWBK") + 1);
    bytes[second + 100] ^= 4;
    std::ofstream("damaged.mcap", std::ios::binary) << bytes;
    Player player("damaged.mcap");
    ASSERT_TRUE(player.isSet && player.Start()) << player.Error();
    while (player.PlayStep()) continue;
    EXPECT_TRUE(player.failed);
    EXPECT_EQ(player.heard.GetBlockCnt(nullptr), 1);
    EXPECT_THAT(player.Module().GetLastErrorText(), HasSubstr("damaged.mcap: block 2 of "));
}

TEST(Record, KeepsEveryBitOfValuesAndUnits) {
    Record(FreshFile("bits.xml"), KINDS[0].type, 2, WriteDoubles);
    tc::StreamRecordReader doubles;
    ASSERT_TRUE(doubles.Open("bits.xml")) << doubles.GetError();
    ASSERT_EQ(doubles.Next(), 1);
    EXPECT_EQ(std::memcmp(doubles.GetBlock().Segment(0)->GetDoubles(), DOUBLES, sizeof DOUBLES), 0);
    const TCTypeInfo wanted = Metadata(START);
    const TCTypeInfo& ti = *doubles.GetBlock().GetTI();
    EXPECT_EQ(ti.GetUnit(), wanted.GetUnit());
    EXPECT_EQ(ti.GetRangeMin(), wanted.GetRangeMin());
    EXPECT_EQ(ti.GetSignalnameString(), wanted.GetSignalnameString());
    Record(FreshFile("bus.xml"), "STRUCT_BUS{BUS}", 1, WriteBus);
    tc::StreamRecordReader bus;
    ASSERT_TRUE(bus.Open("bus.xml")) << bus.GetError();
    ASSERT_EQ(bus.Next(), 1);
    const TCIOStream::Block& channel = *bus.GetBlock().Segment(1)->GetBlocks()[0];
    EXPECT_EQ(channel.GetTI()->GetUnit().GetFactor(), 0.123);
    EXPECT_NE(ReadText("bus.xml").find("Exponents=\"-4 -3 -2 -1 4 5 6\""), std::string::npos);
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        EXPECT_EQ(channel.GetTI()->GetUnit().GetExponent(i), i < 4 ? i - 4 : i) << i;
}

TEST(Record, ThePlainReaderTakesARecording) {
    Record(FreshFile("plain.xml"), KINDS[0].type, 2, WriteDoubles);
    TCXML xml;
    TCIOStream writer, heard;
    writer.AddOutputStream(heard.SetInputStream(0));
    ASSERT_TRUE(xml.Load("plain.xml"));
    EXPECT_EQ(writer.XMLToStream(xml), 3) << std::string(xml.GetError());
    EXPECT_EQ(heard.PeekTI()->GetUnit().GetFactor(), 1000.0);
}

TEST(Record, AFileIsWholeAfterEveryBlock) {
    ModuleBench recorder("xml-recorder", "XmlRecorder");
    const std::string file = FreshFile("live.xml");
    ASSERT_TRUE(recorder.Set("file=\"" + file + "\"\n"));
    recorder.WireInputs({ModuleBench::TIME_DOMAIN});
    ASSERT_TRUE(recorder.Start() && recorder.Pump());
    for (int blocks = 0; blocks < 3; ++blocks) {
        tc::StreamRecordReader reader;
        ASSERT_TRUE(reader.Open(file.c_str())) << reader.GetError();
        int read = 0;
        while (reader.Next() == 1) ++read;
        EXPECT_EQ(read, blocks) << reader.GetError();
        ASSERT_TRUE(recorder.Feed(0, {1.0, 2.0}, {}, 2, blocks == 0, false));
    }
}

TEST(Record, SeveralInputsHaveFilesOfTheirOwnAndOldOnesStay) {
    const std::string files[] = {FreshFile("many-1.xml"), FreshFile("many-2.xml"), FreshFile("many-3.xml")};
    std::ofstream(files[1]) << "precious";
    for (const bool overwrite : {false, true}) {
        ModuleBench recorder("xml-recorder", "XmlRecorder");
        ASSERT_TRUE(recorder.Set(overwrite ? "file=\"many-{n}.xml\"\noverwrite=yes\n" : "file=many.xml\n"));
        recorder.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
        EXPECT_EQ(recorder.Start(), overwrite);
        if (!overwrite) {
            EXPECT_THAT(recorder.Error(), HasSubstr("many-2.xml is there already"));
            EXPECT_FALSE(std::filesystem::exists(files[0]));
        }
        EXPECT_TRUE(recorder.Finish());
        EXPECT_EQ(ReadText(files[1]), "precious") << "another module may have failed to start";
        EXPECT_EQ(recorder.Start() && recorder.Pump() && recorder.Finish(), overwrite);
    }
    Player player("many-{n}.xml");
    ASSERT_TRUE(player.isSet) << player.Error();
    EXPECT_EQ(player.Module().GetNoOutput(), 2);
    EXPECT_STREQ(player.Module().GetOutputName(1), "Signal 2");
}

// A file that takes its place would be lost to whoever writes to the stream.
TEST(Record, AStandardStreamIsNoFileToReplace) {
    std::ofstream(FreshFile("stream.txt")) << "precious";
    const std::string graph =
        "[a]\nmodule=Generator\nduration=0.01\n[r]\nmodule=XmlRecorder\noverwrite=yes\n"
        "file=/dev/stdout\n[lines]\na.Signal=r.Signal\n";
    std::ofstream("stream.graph") << graph;
    EXPECT_EQ(std::system("LC_ALL=C " SIGWEAVE_HOST " run stream.graph >>stream.txt 2>&1") >> 8, 2);
    const std::string content = ReadText("stream.txt");
    EXPECT_TRUE(content.starts_with("precious")) << content;
    EXPECT_THAT(content, HasSubstr("/dev/stdout is not an ordinary file"));
}

TEST(Record, AddressesAreRefusedInBothDirections) {
    const std::string file = FreshFile("address.xml");
    const std::pair<const char*, const char*> recorders[] = {{"xml-recorder", "XmlRecorder"},
                                                             {"recorder", "Recorder"}};
    for (const auto& [library, id] : recorders) {
        ModuleBench recorder(library, id);
        ASSERT_TRUE(recorder.Set("file=\"" + file + "\"\n"));
        recorder.WireInputs({"POINTER{STRUCT}"});
        EXPECT_FALSE(recorder.Start());
        EXPECT_THAT(recorder.Error(), HasSubstr("delivers addresses"));
    }
    std::ofstream(file) << "<Stream><Block><Segments><Segment><Name/><DataType Value='4'/><Length>1</Length>"
                           "<Values><Pointer>0x10</Pointer></Values></Segment></Segments></Block></Stream>";
    EXPECT_THAT(Player(file).Error(), HasSubstr("block 1: the block holds addresses"));
}

TEST(Record, ADamagedDocumentIsToldWithItsBlock) {
    std::string text = Record(FreshFile("damaged.xml"), KINDS[0].type, 2, WriteDoubles);
    const std::size_t second = text.find("BUSY");
    const std::pair<std::string, const char*> rows[] = {
        {"", "could not be parsed"},
        {"<Graph/>", "The root element is 'Graph'"},
        {"<Stream/>", "contains no block"},
        {text.substr(0, text.find("START")), "block 1: The XML source could not be parsed"},
        {std::string(text).replace(text.find("Items=\"2"), 8, "Items=\"x"),
         "Error interpreting Type in Port"},
        {std::string(text).replace(text.find("Exponents=\"0"), 12, "Exponents=\"x"),
         "block 1: Error interpreting Unit/@Factor"},
        {std::string(text).replace(text.find("NotFinite=\"7"), 12, "NotFinite=\"0"),
         "block 1: Error interpreting Double/@NotFinite"}};
    for (const auto& [damaged, told] : rows) {
        std::ofstream("damaged.xml", std::ios::binary) << damaged;
        EXPECT_THAT(Player("damaged.xml").Error(), AllOf(HasSubstr("file: damaged.xml"), HasSubstr(told)));
    }
    std::ofstream("damaged.xml", std::ios::binary) << text.substr(0, second);
    Player player("damaged.xml");
    ASSERT_TRUE(player.isSet && player.Start());
    while (player.PlayStep()) continue;
    EXPECT_TRUE(player.failed);
    EXPECT_EQ(player.heard.GetBlockCnt(nullptr), 1);
    EXPECT_THAT(player.Module().GetLastErrorText(), HasSubstr("damaged.xml: block 2: "));
}

TEST(Record, TheTypeOfOtherDocumentsFollowsFromTheirFirstBlock) {
    const std::pair<const char*, const char*> rows[] = {
        {"<DataType Value='2'/><Length>1</Length><Values><Double>1.5</Double></Values>",
         "DOUBLE[]{TIME_DOMAIN}"},
        {"<DataType>INT</DataType><Length>1 2</Length><Values><Integer>1 2</Integer></Values>",
         "POINTER{SWORD[][]}"},
        {"<DataType>STRING</DataType><Length>1</Length><Values><String>a</String></Values>",
         "UBYTE[][]{Text}"}};
    for (const auto& [segment, type] : rows) {
        std::ofstream(FreshFile("other.xml")) << "<Stream><Note/><Block><Segments><Segment><Name/>" << segment
                                              << "</Segment></Segments></Block></Stream>";
        Player player("other.xml");
        ASSERT_TRUE(player.isSet) << player.Error();
        const char* declared = nullptr;
        int items = 0;
        player.Module().GetPortType(OUTPUT, 0, declared, items);
        EXPECT_STREQ(declared, type);
    }
}

}  // namespace
