#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "sigweave/persistence/TCXML.h"
#include "tests/signal/StreamLines.h"

namespace {

std::string XmlOf(TCXML& xml) {
    TCString text;
    EXPECT_TRUE(xml.GetNodeXML(xml.SelectSingleNode("Stream"), text));
    std::string plain;
    for (const char c : std::string(text))
        if (c != '\n' && c != '\t') plain += c;
    return plain;
}

int Read(TCIOStream& writer, const std::string& text, std::string* error = nullptr) {
    TCXML xml;
    xml.LoadXML(text.c_str());
    const int result = writer.XMLToStream(xml);
    if (error != nullptr) *error = xml.GetError();
    return result;
}

// The document with the first `part` changed.
std::string Changed(std::string document, const std::string& part, const std::string& replacement) {
    const std::size_t at = document.find(part);
    EXPECT_NE(at, document.npos) << part;
    return document.replace(at, part.size(), replacement);
}

constexpr char BLOCK[] =
    "<Block><TypeInfo><State Value=\"1\">BUSY</State><Name>\\x01 a\\\\b </Name>"
    "<Timestamp>0x1.8000000000000p+1</Timestamp><Samplerate>0x1.0000000000000p+0</Samplerate>"
    "<Range><Min>0x0.0000000000000p+0</Min><Max>0x1.0000000000000p+0</Max></Range><Unit>V * 1e-003</Unit>"
    "</TypeInfo><Segments>"
    "<Segment><Name>n\\n</Name><DataType Value=\"1\">INT</DataType><Length>1</Length>"
    "<Values><Integer>0xffffffff</Integer></Values></Segment>"
    "<Segment><Name>m</Name><DataType Value=\"5\">BLOCK</DataType><Length>1</Length><Values><Block><Segments>"
    "<Segment><Name/><DataType Value=\"2\">DOUBLE</DataType><Length>1 2</Length>"
    "<Values><Double>-0x0.0000000000000p+0 -1.#IND</Double></Values></Segment>"
    "</Segments></Block></Values></Segment>"
    "<Segment><Name>s</Name><DataType Value=\"3\">STRING</DataType><Length>1</Length>"
    "<Values><String>\\x00</String></Values></Segment>"
    "<Segment><Name/><DataType Value=\"4\">POINTER</DataType><Length>3</Length>"
    "<Values><Pointer>0xab0c</Pointer></Values></Segment>"
    "</Segments></Block>";
const std::string DOCUMENT = "<Stream>" + std::string(BLOCK) + "</Stream>";

void WriteBlock(TCIOStream& writer) {
    TCTypeInfo ti = State(BUSY, "\x01 a\\b ");
    ti.SetTimestamp(3);
    ti.GetUnit().FromString("V * 1e-003");
    writer.SetTI(&ti, false);
    writer.WriteSegment("n\n", -1);
    const double numbers[] = {-0.0, INFINITY};
    const int extents[] = {1, 2};
    writer.WriteBusSegment("m", TCIOStream::DOUBLE, 2, extents, numbers, true, nullptr);
    writer.WriteSegment("s", TCString("\0", 1));
    writer.WritePtr(reinterpret_cast<const void*>(0xab0c), 3);
}

TEST(StreamXml, DocumentOfABlock) {
    StreamLines lines;
    TCXML xml;
    EXPECT_TRUE(lines.Input().StreamToXML(xml, false, 0));
    EXPECT_EQ(XmlOf(xml), "<Stream/>");
    WriteBlock(lines.writer);
    EXPECT_TRUE(lines.Input().StreamToXML(xml, true, 0));
    EXPECT_EQ(XmlOf(xml), DOCUMENT);
    EXPECT_EQ(lines.Input().GetTI(), nullptr);
    EXPECT_TRUE(lines.Input().StreamToXML(xml, false, 0));
    EXPECT_EQ(lines.Input().GetBlockCnt(nullptr), 0);
    EXPECT_TRUE(lines.writer.StreamToXML(xml, false, 0));
    EXPECT_EQ(XmlOf(xml), "<Stream/>");
}

TEST(StreamXml, ReadsWhatOthersWrite) {
    StreamLines lines;
    std::string text = Changed(DOCUMENT, "0xffffffff", "\n -1\t");
    text = Changed(text, "<State Value=\"1\">BUSY</State>", "<State>stop</State>");
    text = Changed(text, "<DataType Value=\"1\">INT", "<DataType>int");
    text = Changed(text, "<Timestamp>0x1.8000000000000p+1</Timestamp>", "");
    text = Changed(text, "<Samplerate>0x1.0000000000000p+0", "<Samplerate> 2.5e3 ");
    text = Changed(text, "<Unit>V * 1e-003</Unit>", "");
    ASSERT_EQ(Read(lines.writer, text), 1);
    lines.Input().StartReadSegments();
    const TCTypeInfo& ti = *lines.Input().GetTI();
    EXPECT_EQ(ti.GetState(), STOP);
    EXPECT_EQ(ti.GetTimestamp(), 0);
    EXPECT_EQ(ti.GetSamplerate(), 2500);
    EXPECT_EQ(ti.GetUnit(), TCSI_Unit());
    int number = 0;
    lines.Input().ReadSegment("n\n", number);
    EXPECT_EQ(number, -1);
    EXPECT_EQ(lines.Input().Segment(3)->GetData(), reinterpret_cast<const void*>(0xab0c));
    const double* nested = lines.Input().Segment(1)->GetBlocks()[0]->Segment(0)->GetDoubles();
    EXPECT_TRUE(std::signbit(nested[0]) && std::isnan(nested[1]));
}

TEST(StreamXml, ReadsIntegersAsWordsOf32Bits) {
    const struct {
        const char* text;
        int number;
    } rows[] = {{"4294967295", -1},
                {"-4294967295", 1},
                {"-2147483649", INT_MAX},
                {"0x100000000", -1},
                {"18446744073709551615", -1},
                {"-99999999999999999999", -1},
                {"0x00000000000000007", 7},
                {"+12", 12},
                {"010", 8},
                {"1", 1}};
    for (const auto& row : rows) {
        StreamLines lines;
        ASSERT_EQ(Read(lines.writer, Changed(DOCUMENT, "0xffffffff", row.text)), 1) << row.text;
        lines.Input().StartReadSegments();
        int number = 0;
        lines.Input().ReadSegment("n\n", number);
        EXPECT_EQ(number, row.number) << row.text;
    }
}

TEST(StreamXml, ReadsWhateverStateAndLength) {
    StreamLines lines;
    std::string text = Changed(DOCUMENT, "<State Value=\"1\">BUSY</State>", "<State>INVALID</State>");
    text = Changed(text, "<Length>1</Length>", "<Length>10</Length>");
    EXPECT_EQ(Read(lines.writer, Changed(text, "0xffffffff", "1 2 3 4 5 6 7 8 9 10")), 1);
    EXPECT_EQ(lines.Input().PeekTI()->GetState(), INVALID);
    EXPECT_EQ(lines.Input().GetBlockLen(0, 0), 10);
}

TEST(StreamXml, SaysWhatIsWrong) {
    const std::string setData = "TCIOStream::DataSegment::XMLToStream: Error at SetData";
    const struct {
        const char* part;
        const char* replacement;
        std::string error;
    } rows[] = {
        {"Value=\"1\"", "Value=\"1x\"", "Error interpreting State/@Value in TypeInfo"},
        {"Value=\"1\"", "Value=\"\"", "Error interpreting State/@Value in TypeInfo"},
        {"Value=\"1\"", "Value=\"4294967297\"", "Error interpreting State/@Value in TypeInfo"},
        {"Value=\"1\"", "Value=\"1&#x10FE00;\"", "Error interpreting State/@Value in TypeInfo"},
        {" Value=\"1\">BUSY", ">UNKNOWN", "Error interpreting State in TypeInfo"},
        {"<State Value=\"1\">BUSY</State>", "", "State is missing in TypeInfo"},
        {"<Name>\\x01", "<Name>\\q", "Error unquoting Name in TypeInfo"},
        {"<Timestamp>0x1", "<Timestamp>0x2", "Error interpreting Timestamp in TypeInfo"},
        {"<Samplerate>", "<Samplerate>x", "Error interpreting Samplerate in TypeInfo"},
        {"p+0</Min>", "p+0 1</Min>", "Error interpreting Range/Min in TypeInfo"},
        {"<Max>0x1.0000000000000p+0", "<Max>", "Error interpreting Range/Max in TypeInfo"},
        {"V * 1e-003", "1 * 1e+003", "Error interpreting Unit in TypeInfo"},
        {"<Name>n", "<Name>\\q", "Error unquoting Name in Segment"},
        {"<Name>n", "<Name>a\\x00b", "Error unquoting Name in Segment"},
        {"Value=\"1\">INT", "Value=\"INT\">INT", "Error interpreting DataType/@Value in Segment"},
        {" Value=\"1\">INT", ">REAL", "Error interpreting DataType in Segment"},
        {"<DataType Value=\"1\">INT</DataType>", "", "Error DataType is missing in Segment"},
        {"<Length>1</Length>", "", "Error Length is missing in Segment"},
        {"<Length>1</Length>", "<Length>one</Length>", setData},
        {"<Length>1</Length>", "<Length>-1</Length>", setData},
        {"<Length>1</Length>", "<Length>1+1</Length>", setData},
        {"<Length>1</Length>", "<Length>0</Length>", setData},
        {"<Length>1</Length>", "<Length>2</Length>", setData},
        {"<Length>1</Length>", "<Length>2147483647</Length>", setData},
        {"<Length>1</Length>", "<Length>99999 99999 99999 99999</Length>", setData},
        {"<Length>1 2</Length>", "<Length>2147483647</Length>", setData},
        {"<Length>1 2</Length>", "<Length>3</Length>", setData},
        {"Value=\"1\">INT", "Value=\"0\">INT", setData},
        {"Value=\"1\">INT", "Value=\"6\">INT", setData},
        {"<Name>m", "<Name>n\\n", setData},
        // What is wrong with a segment comes before what is wrong with its values.
        {"1</Length><Values><Integer>0xffffffff</Integer></Values>", "0</Length>", setData},
        {"<Name/><DataType Value=\"4\"", "<Name>s</Name><DataType Value=\"1\"", setData},
        {"<Values><Integer>0xffffffff</Integer></Values>", "", "Error Values is missing in Segment"},
        {"<Integer>0xffffffff</Integer>", "", "Error Integer is missing in Values"},
        {"0xffffffff", "0xffffffff 0x1", setData},
        {"-1.#IND", "-1.#IND 1", setData},
        {"0xffffffff", "0x", "Error interpreting value in Integer"},
        {"0xffffffff", "1.5", "Error interpreting value in Integer"},
        {"<Double>-0x0.0000000000000p+0 -1.#IND</Double>", "", "Error Double is missing in Values"},
        {"-1.#IND", "-1.#INE", "Error interpreting value in Double"},
        {"-1.#IND", "1,5", "Error interpreting value in Double"},
        {"-1.#IND", "0x3.0p+0", "Error interpreting value in Double"},
        {"<String>\\x00</String>", "", "Error String is missing Values"},
        {"<Values><String>", "<Values><String/><String>", setData},
        {"<String>\\x00", "<String>\\x", "Error unquoting String in Values"},
        {"1</Length><Values><String>\\x00", "2</Length><Values><String>\\q",
         "Error unquoting String in Values"},
        {"1</Length><Values><Block>", "2</Length><Values><Block>", "Error Block is missing in Values"},
        {"1</Length><Values><Block>", "2</Length><Values><Block><TypeInfo/>", "State is missing in TypeInfo"},
        {"<Pointer>0xab0c</Pointer>", "", "Error Pointer is missing in Values"},
        {"0xab0c", "nowhere", "Error interpreting value in Pointer"},
        {"0xab0c", "0x10000000000000000", "Error interpreting value in Pointer"},
    };
    for (const auto& row : rows) {
        StreamLines lines;
        std::string error;
        EXPECT_EQ(Read(lines.writer, Changed(DOCUMENT, row.part, row.replacement), &error), -2);
        EXPECT_EQ(error, row.error) << row.part << " to " << row.replacement;
        EXPECT_EQ(lines.Input().GetBlockCnt(nullptr), 0);
    }
}

// A block that cannot be read stays reserved, empty; one that is refused is sent when its state is repaired;
// one that was begun keeps what is in it.
TEST(StreamXml, StopsAtTheFirstBadBlock) {
    const std::string good = BLOCK, bad = Changed(BLOCK, "0xab0c", "nowhere");
    StreamLines lines;
    EXPECT_EQ(Read(lines.writer, "<Stream>" + good + bad + good + "</Stream>"), -2);
    EXPECT_EQ(lines.Input().GetBlockCnt(nullptr), 1);
    EXPECT_EQ(Read(lines.writer, "<Stream>" + bad + "</Stream>"), -2);
    EXPECT_EQ(lines.writer.WriteSegment("begun", 7), 0);
    EXPECT_EQ(Read(lines.writer, "<Stream>" + good + good + "<Blok/></Stream>"), 2);
    EXPECT_EQ(lines.Input().GetBlockCnt(nullptr), 3);
    EXPECT_EQ(Read(lines.writer, Changed(DOCUMENT, "Value=\"1\"", "Value=\"0\"")), -4);
    const TCTypeInfo repaired = State(BUSY);
    EXPECT_EQ(lines.writer.SetTI(&repaired, false), 0);
    EXPECT_TRUE(lines.writer.EndWriteSegments());
    for (const int segments : {4, 5, 4, 4}) {
        EXPECT_EQ(lines.Input().StartReadSegments(), 1);
        EXPECT_EQ(lines.Input().SegmentCnt(), segments);
    }
    EXPECT_EQ(Read(lines.writer, "<Stream><Block/></Stream>"), 1);
    lines.Input().StartReadSegments();
    EXPECT_EQ(lines.Input().GetTI(), nullptr) << "nothing is left of the block's last use";
    lines.writer.StartWriteSegments();
    EXPECT_EQ(lines.writer.WriteSegment("n\n", 7), 0);
    EXPECT_EQ(Read(lines.writer, DOCUMENT), -2);
    EXPECT_TRUE(lines.writer.EndWriteSegments());
    lines.Input().StartReadSegments();
    int number = 0;
    EXPECT_EQ(lines.Input().ReadSegment("n\n", number), 1);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(Read(lines.writer, "<Stream/>"), 0);
    EXPECT_EQ(Read(lines.Input(), DOCUMENT), 0);
    TCXML xml;
    xml.LoadXML(DOCUMENT.c_str());
    xml.SetUserError("before");
    EXPECT_EQ(lines.writer.XMLToStream(xml), -2);
    EXPECT_STREQ(xml.GetError(), "before");
}

std::string Nested(int levels) {
    const std::string open = "<Block><Segments><Segment><DataType Value=\"5\"/><Length>1</Length><Values>";
    std::string text = "<Stream>";
    for (int i = 1; i < levels; ++i) text += open;
    text += "<Block/>";
    for (int i = 1; i < levels; ++i) text += "</Values></Segment></Segments></Block>";
    return text + "</Stream>";
}

TEST(StreamXml, RefusesDamagedAndEndlessDocuments) {
    StreamLines lines;
    std::string error;
    for (std::size_t size = 0; size < DOCUMENT.size(); ++size) {
        EXPECT_EQ(Read(lines.writer, DOCUMENT.substr(0, size), &error), -2) << size;
        EXPECT_FALSE(error.empty());
        EXPECT_EQ(error.find("Stream/Block"), error.npos) << "the reason that it does not load stays";
    }
    EXPECT_EQ(Read(lines.writer, Nested(100'000), &error), -2);
    EXPECT_EQ(Read(lines.writer, Nested(256), &error), -2);
    EXPECT_EQ(lines.Input().GetBlockCnt(nullptr), 0);
    EXPECT_EQ(Read(lines.writer, Nested(255), &error), 1) << error;
    TCXML xml;
    EXPECT_TRUE(lines.Input().StreamToXML(xml, true, 0));
    EXPECT_EQ(lines.writer.XMLToStream(xml), 1);
}

}  // namespace
