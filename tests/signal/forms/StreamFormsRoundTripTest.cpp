#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <tuple>

#include "sigweave/persistence/TCXML.h"
#include "sigweave/signal/forms/StreamRecord.h"
#include "tests/signal/StreamLines.h"

// Random blocks through every form in which blocks leave the process.
namespace {

using Block = TCIOStream::Block;

class RandomBlocks {
 public:
    // With `wild`, numbers that are none and units that no text restores, too.
    explicit RandomBlocks(bool wildNumbers = false) : wild(wildNumbers) {}

    // Metadata in most blocks; all types of segments that every form can carry; nested at most three times.
    void Fill(Block& block, int level) {
        if (Below(4) > 0) SetMetadata(block);
        const int count = Below(5);
        for (int i = 0; i < count; ++i) AddSegment(block, std::to_string(i) + Bytes(1), level);
    }

    // Finite, with all patterns of bits alike; often one of the limits.
    double Number() {
        static constexpr double LIMITS[] = {0.0,   -0.0,     5e-324, -2.2250738585072009e-308,
                                            1e300, HUGE_VAL, NAN};
        if (Below(8) == 0) return LIMITS[Below(wild ? 7 : 5)];
        const auto value = std::bit_cast<double>(random());
        return std::isfinite(value) || wild ? value : Number();
    }

    std::string Bytes(int first) {
        std::string text(static_cast<std::size_t>(Below(12)), '\0');
        for (char& byte : text) byte = static_cast<char>(Below(3) == 0 ? ' ' : first + Below(256 - first));
        return text;
    }

 private:
    int Below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }

    void SetMetadata(Block& block) {
        static constexpr const char* UNITS[] = {"", "V", "m s^-2 * 1e-003", "kg^-128 m^127 * 1e+020"};
        TCTypeInfo ti;
        ti.SetState(static_cast<TCBLOCKSTATUS>(Below(5) - 1));
        ti.SetSignalnameString(Bytes(0));
        ti.SetTimestamp(Number());
        ti.SetSamplerate(Number());
        ti.SetRangeMin(Number());
        ti.SetRangeMax(Number());
        ti.GetUnit().FromString(UNITS[Below(4)]);
        if (wild && Below(2) == 0) ti.GetUnit().SetFactor(Below(2) == 0 ? 1e3 : Number());
        if (wild && Below(4) == 0) ti.GetUnit().SetExponent(Below(7), Below(256) - 128);
        block.SetTI(&ti);
    }

    void AddSegment(Block& block, const std::string& name, int level) {
        static constexpr TCIOStream::DATATYPE TYPES[] = {TCIOStream::INT, TCIOStream::DOUBLE,
                                                         TCIOStream::STRING, TCIOStream::BLOCK};
        const auto type = TYPES[Below(level < 3 ? 4 : 3)];
        const int extents[] = {1 + Below(3), 1 + Below(4), 1 + Below(2), 1, 2, 1};
        const int dims = 1 + Below(Below(4) > 0 ? 3 : 6);
        void* elements;
        ASSERT_TRUE(block.AddEmptySegment(name.c_str(), type, dims, extents, elements));
        const int count = block.Segment(block.SegmentCnt() - 1)->GetElementCount();
        for (int i = 0; i < count; ++i) SetElement(type, elements, i, level);
    }

    void SetElement(TCIOStream::DATATYPE type, void* elements, int index, int level) {
        if (type == TCIOStream::INT) static_cast<int*>(elements)[index] = static_cast<int>(random());
        if (type == TCIOStream::DOUBLE) static_cast<double*>(elements)[index] = Number();
        if (type == TCIOStream::STRING) static_cast<TCString*>(elements)[index].AllocCopy(Bytes(0));
        if (type == TCIOStream::BLOCK) Fill(*static_cast<Block**>(elements)[index], level + 1);
    }

    bool wild;
    std::mt19937_64 random{20};
};

bool SameBits(double a, double b) {
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

// The next waiting block, which goes on waiting.
std::string XmlOf(TCIOStream& from) {
    TCXML xml;
    TCString text;
    EXPECT_TRUE(from.StreamToXML(xml, true, 0) && xml.GetNodeXML(xml.GetDocument(), text)) << xml.GetError();
    return std::string(text, static_cast<std::size_t>(text.GetLength()));
}

std::string FrameOf(TCIOStream& from) {
    TCIOStream shared;
    shared.SetInputStream(3)->CopyBlockRefs(from);
    return TakeFrame(shared);
}

int ThroughXml(TCIOStream& from, TCIOStream& to) {
    TCXML xml;
    EXPECT_TRUE(xml.LoadXML(XmlOf(from).c_str())) << xml.GetError();
    const int result = to.XMLToStream(xml);
    EXPECT_EQ(xml.GetError(), "");
    return result;
}

int ThroughFrame(TCIOStream& from, TCIOStream& to) {
    return Unpack(to, FrameOf(from));
}

int ThroughOldForm(TCIOStream& from, TCIOStream& to) {
    const TCString text = from.SerializeForOldStream(0);
    std::size_t end;
    return ReadOldForm(to, std::string(text, static_cast<std::size_t>(text.GetLength())), end);
}

// A form that loses something would have to lose it with both of those that compare.
TEST(StreamForms, RandomBlocksComeBackBitForBit) {
    RandomBlocks blocks;
    for (int i = 0; i < 500; ++i) {
        StreamLines lines;
        Block original;
        blocks.Fill(original, 1);
        ASSERT_EQ(lines.writer.WriteCopy(&original), 1);
        for (const auto& through : {ThroughXml, ThroughFrame, ThroughOldForm}) {
            StreamLines to;
            ASSERT_EQ(through(lines.Input(), to.writer), 1) << "block " << i;
            ASSERT_EQ(XmlOf(to.Input()), XmlOf(lines.Input()));
            ASSERT_EQ(FrameOf(to.Input()), FrameOf(lines.Input()));
        }
    }
}

int ThroughCopy(TCIOStream& from, TCIOStream& to) {
    return to.MoveBlock(from, 0, nullptr, false);
}

// The reader's block is used again, for the same segments in another order: they keep that of their creation.
TEST(StreamForms, SegmentsStayInTheOrderOfTheirCreation) {
    for (const auto& through : {ThroughXml, ThroughFrame, ThroughOldForm, ThroughCopy})
        for (const int count : {3, 40}) {
            StreamLines to;
            for (const int step : {1, count - 1, count + 1, 1}) {
                Block original;
                const int one = 1;
                for (int i = 0, name = 0; i < count; ++i, name = (name + step) % count)
                    original.AddSegment(std::to_string(name).c_str(), TCIOStream::INT, 1, &one, &name);
                StreamLines lines;
                lines.writer.WriteCopy(&original);
                ASSERT_EQ(through(lines.Input(), to.writer), 1);
                ASSERT_EQ(to.Input().StartReadSegments(), 1);
                for (int i = 0, value = -1; i < count; ++i) {
                    EXPECT_EQ(to.Input().ReadSegment(i, value), 1);
                    EXPECT_EQ(value, i);
                    EXPECT_EQ(to.Input().SegmentName(i), std::to_string(i).c_str());
                }
            }
        }
}

// Nested ones are new where their number changes, and always when they are read from a document.
TEST(StreamForms, NestedSegmentsStayInOrderWhileTheirBlockIsKept) {
    const struct {
        int count;
        const char *first, *second, *keptFirst;
    } steps[] = {{2, "a", "b", "a"}, {1, "b", "a", "b"}, {1, "a", "b", "b"}};
    for (const auto& through : {ThroughXml, ThroughCopy}) {
        StreamLines to;
        for (const auto& step : steps) {
            StreamLines lines;
            Block original;
            void* nested;
            ASSERT_TRUE(original.AddEmptySegment("n", TCIOStream::BLOCK, 1, &step.count, nested));
            const int one = 1;
            for (const char* name : {step.first, step.second})
                static_cast<Block**>(nested)[0]->AddSegment(name, TCIOStream::INT, 1, &one, &one);
            lines.writer.WriteCopy(&original);
            ASSERT_EQ(through(lines.Input(), to.writer), 1);
            ASSERT_EQ(to.Input().StartReadSegments(), 1);
            const Block& read = *to.Input().Segment(0)->GetBlocks()[0];
            EXPECT_EQ(read.Segment(0)->GetName(), through == ThroughXml ? step.first : step.keptFirst);
        }
    }
}

// Writes blocks into a recording, with `fill` for each.
template <class Fill>
void Record(const char* path, int count, Fill fill) {
    tc::StreamRecordWriter recorder;
    ASSERT_TRUE(recorder.Open(path, nullptr, 0)) << recorder.GetError();
    for (int i = 0; i < count; ++i) {
        StreamLines lines;
        fill(lines.writer, i);
        ASSERT_TRUE(recorder.Append(lines.Input())) << recorder.GetError();
        EXPECT_EQ(lines.Input().GetBlockCnt(nullptr), 0);
    }
    ASSERT_TRUE(recorder.Close());
}

// A recording comes back as it is, whatever the blocks before had, by a reader that is used again.
TEST(StreamForms, RecordedBlocksComeBackBitForBitInTheirOrder) {
    const char* const blocks[][2] = {{"a", "1\r\nB\r\n\r\nx"}, {"1\r\nB\r\n\r\ny", "a"}};
    RandomBlocks random(true);
    std::vector<std::string> frames;
    Record("order.xml", 2, [&](TCIOStream& writer, int i) {
        writer.StartWriteSegments();
        for (const char* name : blocks[i]) writer.WriteSegment(name, 1);
        writer.EndWriteSegments();
    });
    Record("random.xml", 300, [&](TCIOStream& writer, int) {
        StreamLines copy;
        Block block;
        random.Fill(block, 1);
        writer.WriteCopy(&block);
        copy.writer.WriteCopy(&block);
        frames.push_back(TakeFrame(copy.Input()));
    });
    tc::StreamRecordReader reader;
    EXPECT_FALSE(reader.Open("missing.xml"));
    EXPECT_EQ(reader.Next(), -1);
    EXPECT_EQ(reader.GetError().rfind("missing.xml: ", 0), 0u) << reader.GetError();
    ASSERT_TRUE(reader.Open("order.xml")) << reader.GetError();
    for (const auto& names : blocks) {
        ASSERT_EQ(reader.Next(), 1) << reader.GetError();
        for (int i = 0; i < 2; ++i) EXPECT_EQ(reader.GetBlock().Segment(i)->GetName(), names[i]);
    }
    EXPECT_EQ(reader.Next(), 0);
    ASSERT_TRUE(reader.Open("random.xml")) << reader.GetError();
    for (const std::string& frame : frames) {
        ASSERT_EQ(reader.Next(), 1) << reader.GetError();
        StreamLines copy;
        copy.writer.WriteCopy(&reader.GetBlock());
        ASSERT_EQ(TakeFrame(copy.Input()), frame) << reader.GetBlockNumber();
    }
    EXPECT_EQ(reader.Next(), 0);
}

// The type of the port, as far as a block shows it.
TEST(StreamForms, RecordingsKnowTheirType) {
    const double numbers[] = {1, 2};
    const int integers[] = {1, 2};
    const struct {
        const char* type;
        int items;
        std::function<void(TCIOStream&)> write;
    } rows[] = {
        {"DOUBLE[]{TIME_DOMAIN}", 1, [&](TCIOStream& to) { to.WriteDblVec(numbers, 2); }},
        {"POINTER{DOUBLE[][]}", 1, [&](TCIOStream& to) { to.WriteDblMat(numbers, 2, 1); }},
        {"SWORD[]{BIN}", 1, [&](TCIOStream& to) { to.WriteIntVec(integers, 2); }},
        {"POINTER{SWORD[][]}", 1, [&](TCIOStream& to) { to.WriteIntMat(integers, 1, 2); }},
        {"UBYTE[][]{Text}", 1,
         [](TCIOStream& to) { to.StartWriteSegments(), to.WriteSegment("", "x"), to.EndWriteSegments(); }},
        {"NULL{no_parameters}", 1,
         [](TCIOStream& to) { to.StartWriteSegments(), to.WriteSegment("n", 1), to.EndWriteSegments(); }},
        {"NULL{no_parameters}", 1, [](TCIOStream& to) { to.StartWriteSegments(), to.EndWriteSegments(); }},
        {"NULL{no_parameters}", 1,
         [](TCIOStream& to) {
             to.StartWriteSegments(), to.WriteSegment("", 1), to.WriteSegment("n", 1), to.EndWriteSegments();
         }},
        {"STRUCT_BUS{BUS}", 1,
         [&](TCIOStream& to) {
             const int one = 1;
             to.StartWriteSegments(),
                 to.WriteBusSegment("1\r\nA\r\n\r\nx", TCIOStream::INT, 1, &one, integers, true, nullptr),
                 to.EndWriteSegments();
         }},
        {"TYPEINFO{TypeInfo} SWORD[]{BIN}", 2,
         [&](TCIOStream& to) {
             const TCTypeInfo ti;
             to.SetTI(&ti, false), to.WriteIntVec(integers, 2);
         }},
    };
    for (const auto& row : rows) {
        tc::StreamRecordReader reader;
        Record("type.xml", 1, [&](TCIOStream& writer, int) { row.write(writer); });
        ASSERT_TRUE(reader.Open("type.xml")) << reader.GetError();
        EXPECT_EQ(reader.GetTypeString(), row.type);
        EXPECT_EQ(reader.GetItemCount(), row.items);
    }
}

std::string ReadFile(const char* path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

TEST(StreamForms, DamagedRecordingsAreRefusedWithTheirReason) {
    const double numbers[] = {HUGE_VAL, 1, -HUGE_VAL};
    tc::StreamRecordWriter recorder;
    StreamLines lines;
    TCTypeInfo ti = State(COMPLETE);
    ti.SetSamplerate(HUGE_VAL);
    ti.GetUnit().FromString("m^2 s^-1");
    ti.GetUnit().SetFactor(0.75);
    lines.writer.SetTI(&ti, false);
    lines.writer.WriteDblVec(numbers, 3);
    lines.writer.WritePtr(numbers, 1);
    ASSERT_TRUE(recorder.Open("whole.xml", "DOUBLE[]{x}", 1));
    ASSERT_TRUE(recorder.Append(lines.Input()));
    EXPECT_FALSE(recorder.Append(lines.Input()));
    EXPECT_EQ(recorder.GetError(),
              "whole.xml: the block holds addresses, which mean nothing outside the program");
    EXPECT_FALSE(recorder.Append(lines.Input()));
    EXPECT_EQ(recorder.GetError(), "whole.xml: no block is waiting");
    ASSERT_TRUE(recorder.Close());
    WriteInts(lines.writer, {1});
    EXPECT_FALSE(recorder.Append(lines.Input())) << "it is closed";
    const std::string
        unit = "block 1: Error interpreting Unit/@Factor or @Exponents in TypeInfo",
        type =
            "Error interpreting Type in Port: its text is the type string, its attribute Items the "
            "number of items";
    const std::tuple<const char*, const char*, std::string> rows[] = {
        {" Factor=\"0x1.8000000000000p-1\"", "",
         "block 1: Unit has only one of the attributes Factor and Exponents"},
        {" Exponents=\"2 0 -1 0 0 0 0\"", "",
         "block 1: Unit has only one of the attributes Factor and Exponents"},
        {"0x1.8000000000000p-1", "0x1.8000000000000p-1x", unit},
        {"0x1.8000000000000p-1", "", unit},
        {"2 0 -1 0 0 0 0", "2 0 -1 0 0 0 x", unit},
        {"2 0 -1 0 0 0 0", "2 0 -1 0 0 0", unit},
        {"2 0 -1 0 0 0 0", "2 0 -1 0 0 0 0 0", unit},
        {"2 0 -1 0 0 0 0", "2 0 -1,0 0 0 0", unit},
        {"2 0 -1 0 0 0 0", "128 0 -1 0 0 0 0", unit},
        {"2 0 -1 0 0 0 0", "-129 0 -1 0 0 0 0", unit},
        {"2 0 -1 0 0 0 0", "-128 127 -1 0 0 0 0", ""},
        {"0x1.8000000000000p-1", "7ff0000000000000", ""},
        {"<Samplerate NotFinite=\"7ff0000000000000", "<Samplerate NotFinite=\"3ff0000000000000",
         "block 1: Error interpreting TypeInfo/Samplerate/@NotFinite"},
        {"<Samplerate NotFinite=\"7ff0000000000000", "<Samplerate NotFinite=\"7ff0000000000000 ", ""},
        {"<Samplerate NotFinite=\"7ff0000000000000", "<Samplerate NotFinite=\"7ff0000000000000 1",
         "block 1: Error interpreting TypeInfo/Samplerate/@NotFinite"},
        {" fff0000000000000", "", "block 1: Error interpreting Double/@NotFinite in Values"},
        {" fff0000000000000", " x", "block 1: Error interpreting Double/@NotFinite in Values"},
        {" fff0000000000000", " fff0000000000000 fff0000000000000",
         "block 1: Double/@NotFinite has more values than Double"},
        {"Items=\"1\"", "Items=\"0\"", type},
        {"Items=\"1\"", "Items=\"1x\"", type},
        {"Items=\"1\"", "Items=\"99\"", type},
        {" Items=\"1\"", "", type},
        {"<Length>3</Length>", "", "block 1: Error Length is missing in Segment"},
        {"<Length>3", "<Length>4",
         "block 1: TCIOStream::DataSegment::XMLToStream: Error at SetData: a segment's Length or DataType is "
         "none or does not fit its values, or its name is not the only one"},
    };
    for (const auto& [part, replacement, reason] : rows) {
        std::string text = ReadFile("whole.xml");
        const std::size_t at = text.find(part);
        ASSERT_NE(at, text.npos) << part;
        std::ofstream("damaged.xml", std::ios::binary) << text.replace(at, std::strlen(part), replacement);
        tc::StreamRecordReader reader;
        EXPECT_EQ(reader.Open("damaged.xml"), reason.empty()) << replacement;
        EXPECT_EQ(reader.GetError(), reason.empty() ? "" : "damaged.xml: " + reason) << part;
        EXPECT_EQ(reader.Next(), reason.empty() ? 1 : -1) << reader.GetError();
    }
    const std::string whole = ReadFile("whole.xml");
    std::ofstream("damaged.xml", std::ios::binary) << whole.substr(0, whole.find("<Name/>"));
    tc::StreamRecordReader reader;
    EXPECT_FALSE(reader.Open("damaged.xml"));
    EXPECT_EQ(reader.GetError().rfind("damaged.xml: block 1: ", 0), 0u) << reader.GetError();
}

// Numbers that are none come back exactly from frames and the older form, from documents as not-a-number.
TEST(StreamForms, WhatIsNoNumber) {
    const double infinity = std::numeric_limits<double>::infinity(),
                 nan = std::bit_cast<double>(~std::uint64_t{});
    const double values[] = {infinity, -infinity, nan, 1};
    for (const auto& through : {ThroughXml, ThroughFrame, ThroughOldForm}) {
        StreamLines lines, to;
        lines.writer.WriteDblVec(values, 4);
        ASSERT_EQ(through(lines.Input(), to.writer), 1);
        double read[4];
        ASSERT_EQ(to.Input().ReadDblVec(read, nullptr), 4);
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(through == ThroughXml ? std::isnan(read[i]) : SameBits(read[i], values[i])) << i;
        EXPECT_EQ(read[3], 1);
    }
}

// What no reader would take is not written either.
TEST(StreamForms, BlocksInBlocksHaveAnEnd) {
    for (const int levels : {32, 33, 255, 256}) {
        Block block;
        Block* inner = &block;
        const int one = 1;
        void* elements = nullptr;
        for (int i = 1; i < levels; ++i) {
            ASSERT_TRUE(inner->AddEmptySegment("", TCIOStream::BLOCK, 1, &one, elements));
            inner = *static_cast<Block**>(elements);
        }
        StreamLines lines;
        TCXML xml;
        ASSERT_EQ(lines.writer.WriteCopy(&block), 1);
        EXPECT_EQ(lines.Input().StreamToXML(xml, true, 0), levels <= 255);
        EXPECT_EQ(lines.Input().SerializeBlock(nullptr) > 0, levels <= 32);
        EXPECT_EQ(lines.Input().SerializeForOldStream(0).IsEmpty(), levels > 32);
    }
}

}  // namespace
