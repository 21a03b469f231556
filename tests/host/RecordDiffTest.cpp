#include <gmock/gmock.h>

#include <fstream>

#include "host/RecordDiff.h"

namespace {

using host::RecordVerdict;

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

const std::string SEGMENTS =
    "<Segments><Segment><Name>x</Name><DataType Value='2'/><Length>2</Length><Values><Double>0x1.8p+0 "
    "0x0.0p+0</Double></Values></Segment><Segment><Name>bus</Name><DataType Value='5'/><Length>1</Length>"
    "<Values><Block><Segments><Segment><Name/><DataType Value='3'/><Length>1</Length><Values><String>a"
    "</String></Values></Segment></Segments></Block></Values></Segment></Segments></Block>";
const std::string RECORDING = "<Stream><Block><TypeInfo><State Value='0'/><Unit>V</Unit></TypeInfo>" +
                              SEGMENTS + "<Block><TypeInfo><State Value='2'/><Unit>V</Unit></TypeInfo>" +
                              SEGMENTS + "</Stream>";

TEST(RecordDiff, ComparesMeaningAndNamesTheFirstDifference) {
    const std::string second = RECORDING.substr(RECORDING.find("Value='2'/><Unit"));
    const auto inSecond = [&](const char* from, const char* to) {
        return RECORDING.substr(0, RECORDING.size() - second.size()) + Replace(second, from, to);
    };
    const std::tuple<std::string, RecordVerdict, const char*> rows[] = {
        {Replace(RECORDING, "0x1.8p+0 ", " 1.5\n"), RecordVerdict::Equal, ""},
        {Replace(RECORDING, "<State Value='0'/>", "<State>start</State>"), RecordVerdict::Equal, ""},
        {inSecond("Value='2'/>", "Value='1'/>"), RecordVerdict::Different, "block 2, state: STOP and BUSY"},
        {inSecond("<Unit>V", "<Unit Factor='0x1.4p+1' Exponents='2 1 -3 -1 0 0 0'>V"),
         RecordVerdict::Different, "block 2, unit: 'V' with factor 1 and 'V' with factor 2.5"},
        {inSecond("<Unit>V", "<Unit Factor='0x1.0p+0' Exponents='3 1 -3 -1 0 0 0'>V"),
         RecordVerdict::Different, "block 2, unit: 'V' with factor 1 and 'm^3 kg s^-3 A^-1' with factor 1"},
        {inSecond("<Unit>V", "<Unit Factor='0x1.0p+0' Exponents='2 1 -3 -1 0 0 1'>V"),
         RecordVerdict::Different,
         "block 2, unit: 'V' with factor 1 and 'm^2 kg s^-3 A^-1 cd' with factor 1"},
        {inSecond("<Unit>", "<Name>n</Name><Unit>"), RecordVerdict::Different,
         "block 2, signal name: '' and 'n'"},
        {inSecond("<Unit>", "<Timestamp>0x1.0p+1</Timestamp><Unit>"), RecordVerdict::Different,
         "block 2, timestamp: 0 and 2"},
        {inSecond("<Unit>", "<Samplerate>0x1.0p+1</Samplerate><Unit>"), RecordVerdict::Different,
         "block 2, samplerate: 1 and 2"},
        {inSecond("<Unit>", "<Range><Min>-0x1.0p+0</Min><Max>0x1.0p+0</Max></Range><Unit>"),
         RecordVerdict::Different, "block 2, range minimum: 0 and -1"},
        {inSecond("<Unit>", "<Range><Min>0x0.0p+0</Min><Max>0x1.0p+1</Max></Range><Unit>"),
         RecordVerdict::Different, "block 2, range maximum: 1 and 2"},
        {Replace(RECORDING, "<TypeInfo><State Value='2'/><Unit>V</Unit></TypeInfo>", ""),
         RecordVerdict::Different, "block 2, metadata: some and none"},
        {inSecond("0x1.8p+0 0x0.0p+0", "nan nan"), RecordVerdict::Different,
         "block 2, segment 1 'x', element 1: 1.5 and nan (0x7ff8000000000000)"},
        {inSecond(" 0x0.0p+0", " -0x0.0p+0"), RecordVerdict::Different,
         "block 2, segment 1 'x', element 2: 0 and -0"},
        {inSecond(">a<", ">b\\n<"), RecordVerdict::Different,
         "block 2, segment 2 'bus', block 1, segment 1, element 1: 'a' and 'b\\n'"},
        {Replace(RECORDING, "<Name>x", "<Name>1\\r\\nx\\r\\nabc\\r\\nDT_04000040"), RecordVerdict::Different,
         "block 1, segment 1, name: 'x' and '1\\r\\nx\\r\\nabc\\r\\nDT_04000040'"},
        {inSecond("<Name>x", "<Name>y"), RecordVerdict::Different, "block 2, segment 1, name: 'x' and 'y'"},
        {inSecond("<Length>2", "<Length>1 2"), RecordVerdict::Different,
         "block 2, segment 1 'x', length: 2 and 1 x 2"},
        {inSecond("</Stream>", "<Block/></Stream>"), RecordVerdict::Different, "block 3 is only in b.xml"},
        {Replace(RECORDING, "<Stream>", "<Stream><Port><Type Items='1'>A{b}</Type></Port>"),
         RecordVerdict::Different,
         "type of the port: TYPEINFO{TypeInfo} NULL{no_parameters} (2 items) and A{b} (1 item)"},
        {inSecond("0x1.8p", "1,5p"), RecordVerdict::Unreadable,
         "b.xml: block 2: Error interpreting value in Double"}};
    const std::string damaged = Replace(RECORDING, "0x1.8p", "1,5p");
    for (const auto& [a, b] : {std::pair(damaged, RECORDING), std::pair(damaged, damaged)}) {
        std::ofstream("a.xml") << a;
        std::ofstream("b.xml") << b;
        const host::RecordComparison found = host::CompareRecords("a.xml", "b.xml");
        EXPECT_EQ(found.verdict, RecordVerdict::Unreadable);
        EXPECT_EQ(found.text, "a.xml: block 1: Error interpreting value in Double");
    }
    std::ofstream("a.xml") << RECORDING;
    for (const auto& [text, verdict, told] : rows) {
        std::ofstream("b.xml") << text;
        const host::RecordComparison found = host::CompareRecords("a.xml", "b.xml");
        EXPECT_EQ(found.verdict, verdict) << found.text;
        EXPECT_EQ(found.text, told);
    }
}

}  // namespace
