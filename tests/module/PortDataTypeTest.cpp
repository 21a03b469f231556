#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sigweave/module/PortDataType.h"
#include "sigweave/module/ValidationQuote.h"
#include "sigweave/persistence/ArchiveParser.h"
#include "tests/support/FakeWindow.h"

namespace {

using DATATYPE = TCPortHelper::TCPortHelperImpl::DATATYPE;

DATATYPE Declared(const char* token, const char* declarator = "", bool withTypeInfo = false) {
    DATATYPE type;
    type.ParseType(token, declarator, withTypeInfo);
    return type;
}

std::string TypeOf(const DATATYPE& type) {
    int count = -1;
    const char* text = type.GetPortType(&count);
    return std::to_string(count) + " " + (text != nullptr ? text : "null");
}

TEST(PortDataType, EveryKindHasOneCodeAndOneString) {
    const std::pair<unsigned long, const char*> kinds[] = {
        {0x1, "SWORD{BIN}"},
        {0x2, "SWORD[1]{BIN}"},
        {0x4, "SWORD[]{BIN}"},
        {0x10, "DOUBLE{TIME_DOMAIN}"},
        {0x20, "DOUBLE[1]{TIME_DOMAIN}"},
        {0x40, "DOUBLE[]{TIME_DOMAIN}"},
        {0x100, "UBYTE[]{Text}"},
        {0x200, "UBYTE[][]{Text}"},
        {0x04000020, "TYPEINFO{TypeInfo} DOUBLE[1]{TIME_DOMAIN}"}};
    for (const auto& [code, text] : kinds) {
        int count = 0;
        EXPECT_STREQ(DATATYPE::GetTypeStr(code, nullptr, &count), text);
        EXPECT_EQ(count, code == 0x04000020 ? 2 : 1);
        EXPECT_EQ(DATATYPE::FindType(text, count), code) << text;
    }
    EXPECT_STREQ(DATATYPE::GetTypeStr(0x8, nullptr, nullptr), "POINTER{SWORD[][]}");
    EXPECT_STREQ(DATATYPE::GetTypeStr(0x80, nullptr, nullptr), "POINTER{DOUBLE[][]}");
    EXPECT_STREQ(DATATYPE::GetTypeStr(0x20000000, "Image", nullptr), "POINTER[]{Image}");
    for (unsigned long none : {0x10000000, 0x01000000, 0x02000000, 0x40000000})
        EXPECT_STREQ(DATATYPE::GetTypeStr(none, nullptr, nullptr), "{}") << none;
}

TEST(PortDataType, CodesOfUnusualTypeStrings) {
    const struct {
        const char* text;
        int count;
        unsigned long code;
        bool plain;
    } rows[] = {
        {"DOUBLE[]{TIME_DOMAIN}", 2, 0, true},
        {"TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}", 1, 0x04000000, true},
        {"DOUBLE[]", 1, 0x02000000, true},
        {nullptr, 1, 0x02000000, true},
        {"MultiType{}", 1, 0x01000000, false},
        {"EXT/DB{}", 3, 0x01000000, false},
        {" STRUCT_BUS{BUS} ", 1, 0x01000000, true},
        {"POINTER{SWORD[][]}", 1, 0x10000008, true},
        {"POINTER{DOUBLE[][]}", 1, 0x10000080, true},
        {"POINTER{DOUBLE[][]}", 2, 0x10000000, true},
        {"POINTER{MyStruct}", 1, 0x10000000, true},
        {"POINTER[]{MyStruct}", 1, 0x20000000, true},
        {"DOUBLE[][]{x}", 1, 0x40000000, true},
        {"double[]{x}", 1, 0x40000000, true},
    };
    for (const auto& row : rows) {
        bool plain = !row.plain;
        EXPECT_EQ(DATATYPE::FindType(row.text, row.count, &plain), row.code) << row.text << " " << row.count;
        EXPECT_EQ(plain, row.plain) << row.text;
    }
}

TEST(PortDataType, DeclarationsAsTheHostSeesThem) {
    const struct {
        const char* token;
        const char* declarator;
        bool withTypeInfo;
        const char* type;
    } rows[] = {
        {"SWORD[]", "", false, "1 SWORD[]{BIN}"},
        {"DOUBLE[]", nullptr, true, "2 TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}"},
        {"DOUBLE[]", "FREQ_DOMAIN", false, "1 DOUBLE[]{FREQ_DOMAIN}"},
        {"POINTER", "", false, "1 POINTER{}"},
        {"STRUCT_BUS", "", true, "2 TYPEINFO{TypeInfo} STRUCT_BUS{BUS}"},
        {"MultiType", "", false, "1 NULL{no_parameters}"},
        {"", "", true, "0 null"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(TypeOf(Declared(row.token, row.declarator, row.withTypeInfo)), row.type) << row.token;
}

TEST(PortDataType, AdoptsTheLineInEitherOrderOfWiring) {
    for (const bool lineFirst : {false, true}) {
        DATATYPE type = Declared("");
        for (const char* line : {"SWORD[]{BIN}", "DOUBLE[]{TIME_DOMAIN}"}) {
            if (lineFirst) type.AddLine(1);
            EXPECT_TRUE(type.ValidatePortType(line, 1, "m"));
            if (!lineFirst) type.AddLine(1);
            EXPECT_EQ(TypeOf(type), std::string("1 ") + line);
            EXPECT_FALSE(type.ValidatePortType("UBYTE[]{Text}", 1, "m")) << "a second line must fit";
            type.DelLine();
            EXPECT_EQ(TypeOf(type), "0 null");
        }
        EXPECT_EQ(type, 0x02000040u) << "it may adopt again";
    }
    EXPECT_FALSE(Declared("").ValidatePortType("", 1, "m"));
    EXPECT_FALSE(Declared("").ValidatePortType("SWORD{BIN}", 0, "m"));
}

TEST(PortDataType, DifferencesGoToTheHost) {
    const struct {
        const char* declared;
        int declaredCount;
        const char* actual;
        int actualCount;
        bool accepted;
        const char* reported;
    } rows[] = {
        {"DOUBLE[]{TIME_DOMAIN}", 1, "DOUBLE[1]{TIME_DOMAIN}", 1, true, ""},
        {"DOUBLE[512]{x}", 1, "DOUBLE[]{x}", 1, true, ""},
        {"DOUBLE[02]{x}", 1, "DOUBLE[2]{x}", 1, true, ""},
        {"DOUBLE[2]{x}", 1, "DOUBLE[3]{x}", 1, false, "102 DOUBLE[2]/DOUBLE[3]"},
        {"DOUBLE[]{x}", 1, "DOUBLE{x}", 1, false, "102 DOUBLE[]/DOUBLE"},
        {"DOUBLE[]{x}", 1, "DOUBLE[][]{x}", 1, false, "102 DOUBLE[]/DOUBLE[][]"},
        {"DOUBLE[]{x}", 1, "DOUBLE[x]{x}", 1, false, "102 DOUBLE[]/DOUBLE[x]"},
        {"DOUBLE[]{x}", 1, "SWORD[]{BIN}", 1, false, "102 DOUBLE[]/SWORD[]"},
        {"DOUBLE[]{A}", 1, "DOUBLE[]{B}", 1, true, "101 A/B"},
        {"POINTER{DOUBLE[][]}", 1, "POINTER{SWORD[][]}", 1, false,
         "102 POINTER{DOUBLE[][]}/POINTER{SWORD[][]}"},
        {"SWORD{A} POINTER{B}", 2, "DOUBLE{A} POINTER{B}", 2, true, "102 SWORD/DOUBLE"},
        {"POINTER{B} SWORD{A}", 2, "POINTER{B} DOUBLE{A}", 2, false, "102 SWORD/DOUBLE"},
        {"SWORD{A}", 1, "SWORD{A} UBYTE{B}", 2, true, ""},
    };
    for (const auto& row : rows) {
        std::string reported;
        FakeMainWindow host;
        host.onCommand = [&](unsigned long command, void* record) {
            EXPECT_EQ(command, 2u);
            auto& question = *static_cast<VALIDATION_STRUCT*>(record);
            EXPECT_STREQ(question.name, "Filter3");
            reported += std::to_string(question.code) + " " + question.expected + "/" + question.actual;
            question.answer = 1;
        };
        DATATYPE type;
        type.ParseType(row.declared, row.declaredCount);
        EXPECT_EQ(type.ValidatePortType(row.actual, row.actualCount, "Filter3"), row.accepted) << row.actual;
        EXPECT_EQ(reported, row.reported);
    }
}

TEST(PortDataType, QuestionsWithoutTheHostsConsent) {
    DATATYPE type = Declared("DOUBLE[]", "A");
    EXPECT_TRUE(type.ValidatePortType("DOUBLE[]{B}", 1, "m")) << "accepted where nobody can be asked";
    EXPECT_FALSE(type.ValidatePortType("SWORD[]{B}", 1, "m"));

    std::vector<int> codes;
    FakeMainWindow refusing;
    refusing.onCommand = [&](unsigned long, void* record) {
        codes.push_back(static_cast<VALIDATION_STRUCT*>(record)->code);
    };
    EXPECT_FALSE(type.ValidatePortType("DOUBLE[]{B}", 1, "m"));
    EXPECT_FALSE(TCPortHelper::DoesDataTypeMatch("", 0, "", 0, "m"));
    EXPECT_FALSE(TCPortHelper::DoesDataTypeMatch("SWORD{x}", 1, "DOUBLE{x}", 1, nullptr));
    EXPECT_EQ(codes, (std::vector<int>{101, 104}));
}

TEST(PortDataType, MasksAndElementSizes) {
    const DATATYPE type = Declared("DOUBLE[]", "", true);
    EXPECT_TRUE(type.DoesDataTypeMatch(0));
    EXPECT_TRUE(type.DoesDataTypeMatch(0xF0));
    EXPECT_FALSE(type.DoesDataTypeMatch(0xF0, TCPortHelper::CHECK_ALL));
    EXPECT_TRUE(type.DoesDataTypeMatch(0x04000040, TCPortHelper::CHECK_EXACT));
    EXPECT_FALSE(type.DoesDataTypeMatch(0, static_cast<TCPortHelper::CHECK_DT>(3)));
    EXPECT_EQ(type.ElemSize(), 8);
    EXPECT_EQ(Declared("POINTER", "SWORD[][]").ElemSize(), 4);
    EXPECT_EQ(Declared("UBYTE[][]").ElemSize(), 1);
    EXPECT_EQ(Declared("STRUCT_BUS").ElemSize(), 0);
}

TEST(PortDataType, LinesStayWithTheEntryWhenTheTableGrows) {
    TCArray<DATATYPE> table;
    table.SetSize(1);
    table[0].ParseType("", "", false);
    table[0].AddLine(2);
    table[0].ParseType("SWORD[]{BIN}", 1);
    table.SetSize(100);
    EXPECT_EQ(TypeOf(table[0]), "1 SWORD[]{BIN}");
    table[1] = table[0];
    EXPECT_EQ(TypeOf(table[1]), "0 null") << "a copy has no lines";
}

TEST(PortDataType, PortsReadAndChangeTheirEntry) {
    TCPortHelper helper(nullptr);
    const unsigned scalar = helper.SetPort(INPUT, 0, "a", "DOUBLE[1]", "", false);
    const unsigned list = helper.SetPort(OUTPUT, 0, "b", "MultiType", "", true);
    helper.AddMultitype(list, "SWORD", "BIN");
    helper.AddMultitype(list, "STRUCT_BUS", nullptr);
    for (unsigned noList : {scalar, list + 1}) helper.AddMultitype(noList, "SWORD", "BIN");
    unsigned typeIndex = 9;
    EXPECT_EQ(helper.DataType(OUTPUT, 0, &typeIndex), 0x05000000u);
    EXPECT_EQ(typeIndex, list);
    int count = 0;
    EXPECT_STREQ(helper.GetPortType(OUTPUT, 0, &count), "TYPEINFO{TypeInfo} SWORD{BIN} STRUCT_BUS{BUS}");
    EXPECT_STREQ(helper.GetPortType(INPUT, 0, &count), "DOUBLE[1]{TIME_DOMAIN}");
    EXPECT_TRUE(helper.IsScalarDataType(INPUT, 0));
    helper.ChangeType(INPUT, 0, "SWORD", "", false);
    EXPECT_FALSE(helper.IsScalarDataType(INPUT, 0));
    EXPECT_EQ(helper.ElemSize(INPUT, 0), 4);

    std::string name;
    FakeMainWindow host;
    host.onCommand = [&](unsigned long, void* record) {
        name = static_cast<VALIDATION_STRUCT*>(record)->name;
    };
    EXPECT_FALSE(helper.ValidatePortType(INPUT, 0, "DOUBLE{x}", 1));
    EXPECT_EQ(name, "No module");
    EXPECT_FALSE(helper.ValidatePortType(INPUT, 1, "DOUBLE{x}", 1));
    EXPECT_EQ(helper.GetPortType(INPUT, 1, &count), nullptr);
    EXPECT_FALSE(helper.DoesDataTypeMatch(INPUT, 1, 0));
}

struct FakeArchive : ArchiveParser {
    bool IsStoring() const override { return storing; }
    bool Integer(int number, const char* label, std::int64_t& value) override {
        return Exchange(integers[std::to_string(number) + label], value);
    }
    bool String(int number, const char* label, TCString& value) override {
        return Exchange(strings[std::to_string(number) + label], value);
    }
    template <typename Value>
    bool Exchange(Value& item, Value& value) const {
        storing ? item = value : value = item;
        return true;
    }

    bool storing = true;
    std::map<std::string, std::int64_t> integers;
    std::map<std::string, TCString> strings;
};

TEST(PortDataType, StoredAndLoaded) {
    FakeArchive archive;
    EXPECT_TRUE(Declared("DOUBLE[]", "A\\ B", true).Serialize(&archive));
    EXPECT_EQ(archive.integers["1Data type enum"], 0x04000040);
    EXPECT_EQ(archive.integers["2Port token"], 2);
    EXPECT_STREQ(archive.strings["3Port type"], "TYPEINFO{TypeInfo} DOUBLE[]{A\\ B}");

    archive.storing = false;
    DATATYPE loaded;
    EXPECT_TRUE(loaded.Serialize(&archive));
    EXPECT_EQ(TypeOf(loaded), "2 TYPEINFO{TypeInfo} DOUBLE[]{A\\ B}");
    archive.integers["2Port token"] = 2000000000;
    EXPECT_FALSE(loaded.Serialize(&archive));
    EXPECT_EQ(TypeOf(loaded), "2 TYPEINFO{TypeInfo} DOUBLE[]{A\\ B}");
}

TEST(ValidationQuote, RestoresEveryDeclarator) {
    EXPECT_EQ(TCValidationQuote(CString("a b\\c")), "a\\ b\\\\c");
    for (const char* text : {"", "a b\\c", "\\ ", " \\", "\\\\  \\x"}) {
        EXPECT_STREQ(TCValidationUnQuote(TCValidationQuote(TCString(text))), text);
        EXPECT_EQ(TCValidationUnQuote(TCValidationQuote(CString(text))), text);
    }
}

}  // namespace
