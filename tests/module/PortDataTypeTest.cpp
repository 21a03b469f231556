#include <gtest/gtest.h>

#include <string>
#include <utility>

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
    const char* kinds[] = {"SWORD{BIN}",          "SWORD[1]{BIN}",          "SWORD[]{BIN}",          nullptr,
                           "DOUBLE{TIME_DOMAIN}", "DOUBLE[1]{TIME_DOMAIN}", "DOUBLE[]{TIME_DOMAIN}", nullptr,
                           "UBYTE[]{Text}",       "UBYTE[][]{Text}"};
    unsigned long code = 1;
    for (const char* kind : kinds) {
        if (kind != nullptr) {
            int count = 0;
            EXPECT_STREQ(DATATYPE::GetTypeStr(0x04000000 | code, nullptr, &count),
                         TCString("TYPEINFO{TypeInfo} ") + kind);
            EXPECT_EQ(count, 2);
            EXPECT_EQ(DATATYPE::FindType(kind, 1), code) << kind;
        }
        code *= 2;
    }
    EXPECT_STREQ(DATATYPE::GetTypeStr(0x80, nullptr, nullptr), "POINTER{DOUBLE[][]}");
    EXPECT_STREQ(DATATYPE::GetTypeStr(0x20000000, "Image", nullptr), "POINTER[]{Image}");
    EXPECT_STREQ(DATATYPE::GetTypeStr(0x10000000, nullptr, nullptr), "{}");
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
        {" STRUCT_BUS{BUS} ", 1, 0x01000000, true},
        {"POINTER{SWORD[][]}", 1, 0x10000008, true},
        {"POINTER{DOUBLE[][]}", 1, 0x10000080, true},
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
        {"DOUBLE[]", nullptr, true, "2 TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}"},
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
        {"DOUBLE[]{x}", 1, "DOUBLE[x]{x}", 1, false, "102 DOUBLE[]/DOUBLE[x]"},
        {"DOUBLE[]{A}", 1, "DOUBLE[]{B}", 1, true, "101 A/B"},
        {"POINTER{DOUBLE[][]}", 1, "POINTER{SWORD[][]}", 1, false,
         "102 POINTER{DOUBLE[][]}/POINTER{SWORD[][]}"},
        {"SWORD{A} POINTER{B}", 2, "DOUBLE{A} POINTER{B}", 2, true, "102 SWORD/DOUBLE"},
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
    std::string codes;
    FakeMainWindow refusing;
    refusing.onCommand = [&](unsigned long, void* record) {
        codes += std::to_string(static_cast<VALIDATION_STRUCT*>(record)->code) + " ";
    };
    EXPECT_FALSE(type.ValidatePortType("DOUBLE[]{B}", 1, "m"));
    EXPECT_FALSE(TCPortHelper::DoesDataTypeMatch("", 0, "", 0, "m"));
    EXPECT_FALSE(TCPortHelper::DoesDataTypeMatch("SWORD{x}", 1, "DOUBLE{x}", 1, nullptr));
    EXPECT_EQ(codes, "101 104 ");
}

TEST(PortDataType, TakesItsOwnTexts) {
    DATATYPE type = Declared("DOUBLE[]", "longer than a freed block leaves alone");
    type.ParseType("POINTER", type.GetPortType(nullptr), false);
    EXPECT_EQ(TypeOf(type), "1 POINTER{DOUBLE[]{longer than a freed block leaves alone}}");
    TCValidateActualPortType list;
    for (const char* text : {"DOUBLE", "x"}) list.InsertPortToken(text, list.GetInternalPortType());
    EXPECT_STREQ(list.GetInternalPortType(), "DOUBLE{} x{DOUBLE{}}");
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
    EXPECT_STREQ(helper.GetPortType(OUTPUT, 0, nullptr), "TYPEINFO{TypeInfo} SWORD{BIN} STRUCT_BUS{BUS}");
    EXPECT_STREQ(helper.GetPortType(INPUT, 0, nullptr), "DOUBLE[1]{TIME_DOMAIN}");
    helper.ChangeType(INPUT, 0, "SWORD", "", false);
    EXPECT_FALSE(helper.IsScalarDataType(INPUT, 0)) << "deliberately, only one-element arrays are";
    EXPECT_TRUE(helper.DoesDataTypeMatch(INPUT, 0, 0)) << "no mask fits any type";
}

struct FakeArchive : ArchiveParser {
    bool IsStoring() const override { return storing; }
    bool Integer(int number, const char*, std::int64_t& value) override {
        std::int64_t& item = number == 1 ? code : count;
        storing ? item = value : value = item;
        return true;
    }
    bool String(int, const char*, TCString& value) override {
        storing ? text = value : value = text;
        return true;
    }
    bool storing = true;
    std::int64_t code = 0;
    std::int64_t count = 0;
    TCString text;
};

TEST(PortDataType, StoredAndLoaded) {
    FakeArchive archive;
    EXPECT_TRUE(Declared("DOUBLE[]", "A\\ B", true).Serialize(&archive));
    EXPECT_EQ(archive.code, 0x04000040);
    archive.storing = false;
    DATATYPE loaded;
    EXPECT_TRUE(loaded.Serialize(&archive));
    archive.count = 2000000000;
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
