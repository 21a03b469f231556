#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "sigweave/module/PortDataType.h"
#include "sigweave/module/ValidationQuote.h"
#include "sigweave/persistence/ArchiveParser.h"
#include "tests/support/FakeWindow.h"

namespace {

using DATATYPE = TCPortHelper::TCPortHelperImpl::DATATYPE;
using Helper = TCPortHelper;

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
    EXPECT_STREQ(DATATYPE::GetTypeStr(0x10000080, "x", nullptr), "POINTER{x}");
}

TEST(PortDataType, CodesAreMatchedAndMeasured) {
    using Row = std::tuple<Helper::TYPE, int, bool>;
    for (const auto& [code, size, scalar] :
         {Row(0x01, 4, false), Row(0x02, 4, true), Row(0x04, 4, false), Row(0x10000008, 4, false),
          Row(0x10, 8, false), Row(0x20, 8, true), Row(0x04000040, 8, false), Row(0x10000080, 8, false),
          Row(0x100, 1, false), Row(0x200, 1, false), Row(0x01000000, 0, false), Row(0x10000000, 0, false)}) {
        Helper helper(nullptr);
        helper.SetPort(OUTPUT, 0, "Out", code);
        EXPECT_EQ(helper.ElemSize(OUTPUT, 0), size) << code;
        EXPECT_EQ(helper.IsScalarDataType(OUTPUT, 0), scalar) << code;
    }
    Helper helper(nullptr);
    helper.SetPort(INPUT, 1, "Unknown", Helper::TYPE_UNKNOWN);
    EXPECT_STREQ(helper.GetPortType(INPUT, 1, nullptr), "{}");
    helper.SetPort(INPUT, 0, "In", "DOUBLE[]", "", true);  // 0x04000040
    // Whether any, all, exactly these bits are there, and by a mode that there is not.
    for (const auto& [mask, fits] :
         {std::pair(0, "1100"), {0x04000040, "1110"}, {0x40, "1100"}, {0xF0, "1000"}, {4, "0000"}})
        for (int mode = 0; mode < 4; ++mode)
            EXPECT_EQ(helper.DoesDataTypeMatch(INPUT, 0, static_cast<unsigned>(mask),
                                               static_cast<Helper::CHECK_DT>(mode)),
                      fits[mode] == '1')
                << mask << " " << mode;
    EXPECT_FALSE(helper.DoesDataTypeMatch(INPUT, 7, 0) || helper.ElemSize(INPUT, 1) != 0);
    EXPECT_EQ(Helper::Datatype(2, "TYPEINFO{TypeInfo} DOUBLE[]{x}"), 0x04000040u);
}

TEST(PortDataType, CodesOfUnusualTypeStrings) {
    const std::tuple<const char*, int, unsigned long, bool> rows[] = {
        {"DOUBLE[]{TIME_DOMAIN}", 2, 0, true},
        {"TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}", 1, 0x04000000, true},
        {"DOUBLE[]", 1, 0x02000000, true},
        {nullptr, 1, 0x02000000, true},
        {"MultiType{}", 1, 0x01000000, false},
        {"EXT/DB{}", 1, 0x01000000, false},
        {" STRUCT_BUS{BUS} ", 1, 0x01000000, true},
        {"POINTER{SWORD[][]}", 1, 0x10000008, true},
        {"POINTER{DOUBLE[][]}", 1, 0x10000080, true},
        {"POINTER[]{x}", 1, 0x20000000, true},
        {"DOUBLE[][]{x}", 1, 0x40000000, true},
        {"double[]{x}", 1, 0x40000000, true}};
    for (const auto& [text, count, code, isPlain] : rows) {
        bool plain = !isPlain;
        EXPECT_EQ(DATATYPE::FindType(text, count, &plain), code) << text << " " << count;
        EXPECT_EQ(plain, isPlain) << text;
    }
}

TEST(PortDataType, DeclarationsAsTheHostSeesThem) {
    const std::tuple<const char*, const char*, bool, const char*> rows[] = {
        {"DOUBLE[]", nullptr, true, "2 TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}"},
        {"SWORD[]", "", false, "1 SWORD[]{BIN}"},
        {"UBYTE[]", "", false, "1 UBYTE[]{Text}"},
        {"POINTER", "", false, "1 POINTER{}"},
        {"STRUCT_BUS", "", true, "2 TYPEINFO{TypeInfo} STRUCT_BUS{BUS}"},
        {"MultiType", "", false, "1 NULL{no_parameters}"},
        {"", "", true, "0 null"}};
    for (const auto& [token, declarator, withTypeInfo, type] : rows)
        EXPECT_EQ(TypeOf(Declared(token, declarator, withTypeInfo)), type) << token;
}

// Plays lines to a type and answers it after each step: + a line is drawn, - removed, S or D one of ints or
// doubles brings its type, which begins with ! when it is refused.
std::string Wired(DATATYPE type, const char* script) {
    std::string log;
    for (; *script != '\0'; ++script) {
        if (*script == '+') type.AddLine(1);
        if (*script == '-') type.DelLine();
        if (*script == 'S' || *script == 'D')
            log += type.ValidatePortType(*script == 'S' ? "SWORD{x}" : "DOUBLE{x}", 1, "m") ? "" : "!";
        if (*script == '?') log += TypeOf(type) + ", ";
    }
    return log;
}

TEST(PortDataType, AdoptsTheLineInEitherOrderOfWiring) {
    const char* both = "1 SWORD{x}, !0 null, 1 DOUBLE{x}, !0 null, ";
    EXPECT_EQ(Wired(Declared(""), "S+?D-?D+?S-?"), both);
    EXPECT_EQ(Wired(Declared(""), "+S?D-?+D?S-?"), both);
    EXPECT_EQ(Wired(Declared(""), "S++-?---+?"), "1 SWORD{x}, 1 SWORD{x}, ") << "never fewer than no lines";
    EXPECT_EQ(Wired(Declared("MultiType"), "S?D?"), "1 SWORD{x}, !1 SWORD{x}, ");
    DATATYPE type = Declared("");
    EXPECT_FALSE(type.ParseType("SWORD{x}", 0) || type.ParseType("", 1) || type.ParseType(nullptr, 1));
    EXPECT_EQ(type, 0x02000000u);
    EXPECT_TRUE(type.ParseType("DOUBLE[]{x}", 1));
    EXPECT_EQ(type, 0x02000040u) << "it may adopt again";
    DATATYPE list = Declared("MultiType");
    EXPECT_TRUE(list.ValidatePortType("SWORD{BIN} DOUBLE{x}", 2, "m"));
    EXPECT_EQ(TypeOf(list), "2 SWORD{BIN} DOUBLE{x}");
    EXPECT_EQ(list, 0x01000000u);
}

TEST(PortDataType, DifferencesGoToTheHost) {
    const std::tuple<const char*, int, const char*, int, bool, const char*> rows[] = {
        {"DOUBLE[]{TIME_DOMAIN}", 1, "DOUBLE[1]{TIME_DOMAIN}", 1, true, ""},
        {"DOUBLE[512]{x}", 1, "DOUBLE[]{x}", 1, true, ""},
        {"DOUBLE[09]{x}", 1, "DOUBLE[9]{x}", 1, true, ""},
        {"DOUBLE[2]{x}", 1, "DOUBLE[3]{x}", 1, false, "102 DOUBLE[2]/DOUBLE[3]"},
        {"DOUBLE[]{x}", 1, "DOUBLE{x}", 1, false, "102 DOUBLE[]/DOUBLE"},
        {"DOUBLE[]{x}", 1, "DOUBLE[x]{x}", 1, false, "102 DOUBLE[]/DOUBLE[x]"},
        {"DOUBLE[]{A}", 1, "DOUBLE[]{B}", 1, true, "101 A/B"},
        {"POINTER{DOUBLE[][]}", 1, "POINTER{SWORD[][]}", 1, false,
         "102 POINTER{DOUBLE[][]}/POINTER{SWORD[][]}"},
        {"SWORD{A} POINTER{B}", 2, "DOUBLE{A} POINTER{B}", 2, true, "102 SWORD/DOUBLE"},
        {"SWORD{A}", 1, "SWORD{A} UBYTE{B}", 2, true, ""},
        {"DOUBLE[2][]{x}", 1, "DOUBLE[][3]{x}", 1, true, ""},
        {"DOUBLE[]{x}", 1, "DOUBLE[]x{x}", 1, false, "102 DOUBLE[]/DOUBLE[]x"},
        {"DOUBLE{x}", 1, "DOUBLF{x}", 1, false, "102 DOUBLE/DOUBLF"},
        {"SWORD{A} SWORD{B} SWORD{C}", 3, "SWORD{A} SWORD{x} SWORD{y}", 3, true, "101 B/x101 C/y"},
        {"POINTER[]{A}", 1, "POINTER[]{B}", 1, false, "102 POINTER[]{A}/POINTER[]{B}"}};
    for (const auto& [declared, declaredCount, actual, actualCount, accepted, questions] : rows) {
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
        type.ParseType(declared, declaredCount);
        EXPECT_EQ(type.ValidatePortType(actual, actualCount, "Filter3"), accepted) << actual;
        EXPECT_EQ(reported, questions);
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
    TCString token("kept"), declarator;
    EXPECT_FALSE(list.GetInternalToken(-1, token, declarator) || list.GetInternalToken(2, token, declarator));
    EXPECT_STREQ(token, "kept");
    EXPECT_TRUE(list.GetInternalToken(1, token, declarator));
    EXPECT_STREQ(token + declarator, "xDOUBLE{}");
    list.ClearNoOfOwnPortToken();
    EXPECT_FALSE(list.GetInternalToken(0, token, declarator));
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
    const DATATYPE declared = Declared("DOUBLE[]", "x");
    EXPECT_EQ(TypeOf(DATATYPE(declared)), "1 DOUBLE[]{x}");
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
    int count = 9;
    EXPECT_EQ(helper.GetPortType(INPUT, 7, &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_FALSE(helper.ValidatePortType(INPUT, 7, "SWORD{BIN}", 1));
    EXPECT_TRUE(helper.ValidatePortType(INPUT, 0, "SWORD{BIN}", 1));
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
    for (const auto& [code, count] : {std::pair(4ll, 2000000000ll), {4, -1}, {-1, 2}, {1ll << 32, 2}}) {
        archive.code = code;
        archive.count = count;
        EXPECT_FALSE(loaded.Serialize(&archive)) << code;
    }
    EXPECT_EQ(loaded, 0x04000040u);
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
