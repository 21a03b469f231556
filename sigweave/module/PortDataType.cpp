#include "sigweave/module/PortDataType.h"

#include <utility>

#include "sigweave/persistence/ArchiveParser.h"

namespace {

using DATATYPE = TCPortHelper::TCPortHelperImpl::DATATYPE;
using TYPE = TCPortHelper::TYPE;

constexpr TYPE KIND_MASK = 0x00FFFFFF;
constexpr TYPE FLAG_MASK = 0xFF000000;
constexpr TYPE LIST_OR_ADOPT = TCPortHelper::TYPE_MULTI | TCPortHelper::TYPE_ADOPT;

constexpr char TYPEINFO_ITEM[] = "TYPEINFO{TypeInfo}";

// A matrix is only ever a pointer, recognised by its declarator.
struct Kind {
    TYPE code;
    const char* token;
    const char* declarator;
};
constexpr Kind KINDS[] = {
    {TCPortHelper::TYPE_SWORD, "SWORD", "BIN"},
    {TCPortHelper::TYPE_SWORD1, "SWORD[1]", "BIN"},
    {TCPortHelper::TYPE_SWORDARRAY, "SWORD[]", "BIN"},
    {TCPortHelper::TYPE_SWORDMATRIX, "POINTER", "SWORD[][]"},
    {TCPortHelper::TYPE_DOUBLE, "DOUBLE", "TIME_DOMAIN"},
    {TCPortHelper::TYPE_DOUBLE1, "DOUBLE[1]", "TIME_DOMAIN"},
    {TCPortHelper::TYPE_DOUBLEARRAY, "DOUBLE[]", "TIME_DOMAIN"},
    {TCPortHelper::TYPE_DOUBLEMATRIX, "POINTER", "DOUBLE[][]"},
    {TCPortHelper::TYPE_TEXT, "UBYTE[]", "Text"},
    {TCPortHelper::TYPE_TEXTARRAY, "UBYTE[][]", "Text"},
};

struct FlagToken {
    const char* token;
    TYPE code;
    bool plain;
};
constexpr FlagToken FLAG_TOKENS[] = {
    {"", TCPortHelper::TYPE_ADOPT, true},          {"MultiType", TCPortHelper::TYPE_MULTI, false},
    {"EXT/DB", TCPortHelper::TYPE_MULTI, false},   {"STRUCT_BUS", TCPortHelper::TYPE_MULTI, true},
    {"POINTER", TCPortHelper::TYPE_POINTER, true}, {"POINTER[]", TCPortHelper::TYPE_POINTERARRAY, true},
};

// Element sizes by family; the first one that applies.
struct Family {
    TYPE mask;
    int elementSize;
};
constexpr Family FAMILIES[] = {{0xF0, 8}, {0x0F, 4}, {0x300, 1}};

// The declarators that a token has when none is given. The matrices have none: theirs is what makes them one.
constexpr std::pair<TYPE, const char*> DEFAULT_DECLARATORS[] = {
    {0x70, "TIME_DOMAIN"}, {0x07, "BIN"}, {0x300, "Text"}};

bool IsEmptyText(const char* text) {
    return text == nullptr || *text == '\0';
}

// The code of one item without metadata, and whether its token is an item of its own.
std::pair<TYPE, bool> FindItem(const TCString& token, const TCString& declarator) {
    const TYPE pointer = token == "POINTER" ? TCPortHelper::TYPE_POINTER : 0;
    for (const Kind& kind : KINDS) {
        if (token == kind.token && (pointer == 0 || declarator == kind.declarator))
            return {kind.code | pointer, true};
    }
    for (const FlagToken& flag : FLAG_TOKENS)
        if (token == flag.token) return {flag.code, flag.plain};
    return {TCPortHelper::TYPE_UNKNOWN, true};
}

Kind DescribeItem(TYPE code, const char* declarator) {
    const bool single = (code & TCPortHelper::TYPE_POINTER) != 0;
    if (single || (code & TCPortHelper::TYPE_POINTERARRAY) != 0) {
        if (declarator == nullptr) return {code, "", ""};
        return {code, single ? "POINTER" : "POINTER[]", declarator};
    }
    for (const Kind& kind : KINDS)
        if (kind.code == (code & KIND_MASK)) return kind;
    return {code, "", ""};
}

}  // namespace

DATATYPE::DATATYPE() : validation(std::make_unique<TCValidateActualPortType>()) {}

DATATYPE::DATATYPE(const DATATYPE& other) : DATATYPE() {
    *this = other;
}

DATATYPE::DATATYPE(DATATYPE&& other) : DATATYPE() {
    *this = std::move(other);
}

DATATYPE& DATATYPE::operator=(const DATATYPE& other) {
    code = other.code;
    adopted = other.adopted;
    validation->FillValidation(other.validation->GetNoOfInternalPortToken(),
                               other.validation->GetInternalPortType());
    return *this;
}

DATATYPE& DATATYPE::operator=(DATATYPE&& other) noexcept {
    std::swap(code, other.code);
    std::swap(lines, other.lines);
    std::swap(adopted, other.adopted);
    std::swap(validation, other.validation);
    return *this;
}

DATATYPE::~DATATYPE() = default;

TYPE DATATYPE::FindType(const char* typeString, int count, bool* plain) {
    TCString text(typeString);
    TYPE flags = 0;
    const int metadata = text.Find(TYPEINFO_ITEM);
    if (metadata >= 0) {
        flags = TYPE_TYPEINFO;
        text = text.Mid(metadata + static_cast<int>(sizeof(TYPEINFO_ITEM)) - 1);
        --count;
    }
    text.TrimLeft();
    text.TrimRight();
    const TCString token = text.LeftOf("{");
    const TCString declarator = text.Mid(token.GetLength() + 1).LeftOf("}");
    const auto [item, isPlain] = FindItem(token, declarator);
    if (plain != nullptr) *plain = isPlain;
    const TYPE found = item | flags;
    return count == 1 ? found : found & FLAG_MASK;
}

TCString DATATYPE::GetTypeStr(unsigned long code, const char* declarator, int* count) {
    const TYPE type = static_cast<TYPE>(code);
    const bool withTypeInfo = (type & TYPE_TYPEINFO) != 0;
    const Kind item = DescribeItem(type, declarator);
    if (count != nullptr) *count = withTypeInfo ? 2 : 1;
    TCString result(withTypeInfo ? "TYPEINFO{TypeInfo} " : "");
    result.FormatAppend("%s{%s}", item.token, item.declarator);
    return result;
}

void DATATYPE::ParseType(const char* token, const char* declarator, bool withTypeInfo) {
    const TCString newToken(token), newDeclarator(declarator);  // they may be texts of this entry
    const TCString typeString =
        TCString::FormatS("%s%s{%s}", withTypeInfo ? "TYPEINFO{TypeInfo} " : "",
                          static_cast<const char*>(newToken), static_cast<const char*>(newDeclarator));
    bool plain = false;
    code = FindType(typeString, withTypeInfo ? 2 : 1, &plain);
    adopted = false;
    validation->ClearAll();
    if ((code & TYPE_ADOPT) != 0) return;
    if (withTypeInfo) validation->InsertPortToken("TYPEINFO", "TypeInfo");
    if (plain) AddItem(newToken, newDeclarator);
}

bool DATATYPE::ParseType(const char* typeString, int count) {
    if (IsEmptyText(typeString) || count <= 0) return false;
    code = (code & LIST_OR_ADOPT) | FindType(typeString, count);
    validation->FillValidation(count, typeString);
    adopted = true;
    return true;
}

void DATATYPE::GenType(TYPE newCode) {
    int count = 0;
    const TCString typeString = GetTypeStr(newCode, nullptr, &count);
    code = newCode;
    adopted = false;
    validation->FillValidation(count, typeString);
}

void DATATYPE::AddMultitype(const char* token, const char* declarator) {
    if ((code & TYPE_MULTI) != 0) AddItem(token, declarator);
}

void DATATYPE::AddItem(const char* token, const char* declarator) {
    validation->InsertPortToken(token, IsEmptyText(declarator) ? DefaultDeclarator(token) : declarator);
}

const char* DATATYPE::DefaultDeclarator(const char* token) const {
    for (const auto& [mask, declarator] : DEFAULT_DECLARATORS)
        if ((code & mask) != 0) return declarator;
    return TCString(token) == "STRUCT_BUS" ? "BUS" : "";
}

const char* DATATYPE::GetPortType(int* count) const {
    int items = validation->GetNoOfInternalPortToken();
    const char* typeString = validation->GetInternalPortType();
    if ((code & TYPE_ADOPT) != 0 && lines == 0) {
        items = 0;
        typeString = nullptr;
    } else if ((code & TYPE_MULTI) != 0 && items == 0) {
        items = 1;
        typeString = "NULL{no_parameters}";
    }
    if (count != nullptr) *count = items;
    return typeString;
}

// A line may be counted before its type is checked or after.
bool DATATYPE::IsToBeAdopted() const {
    if ((code & TYPE_ADOPT) != 0 && (lines == 0 || !adopted)) return true;
    return (code & TYPE_MULTI) != 0 && validation->GetNoOfInternalPortToken() == 0;
}

bool DATATYPE::ValidatePortType(const char* typeString, int count, const char* name) {
    if (IsToBeAdopted()) return ParseType(typeString, count);
    validation->ParsingPortType(typeString, count);
    return validation->ValidateTokenSet(name, false) && validation->ValidateDeclaratorSet(name);
}

void DATATYPE::DelLine() {
    if (lines != 0) --lines;
    if (lines == 0) adopted = false;
}

bool DATATYPE::DoesDataTypeMatch(TYPE mask, CHECK_DT mode) const {
    switch (mode) {
        case CHECK_ANY:
            return mask == 0 || (code & mask) != 0;
        case CHECK_ALL:
            return (code & mask) == mask;
        case CHECK_EXACT:
            return code == mask;
    }
    return false;
}

int DATATYPE::ElemSize() const {
    for (const Family& family : FAMILIES)
        if ((code & family.mask) != 0) return family.elementSize;
    return 0;
}

bool DATATYPE::Serialize(ArchiveParser* archive) {
    std::int64_t storedCode = code;
    std::int64_t count = validation->GetNoOfInternalPortToken();
    TCString typeString = validation->GetInternalPortType();
    if (!archive->Integer(1, "Data type enum", storedCode) || !archive->Integer(2, "Port token", count) ||
        !archive->String(3, "Port type", typeString)) {
        return false;
    }
    if (archive->IsStoring()) return true;
    // An item takes at least its two brackets.
    if (storedCode < 0 || storedCode > UINT32_MAX || count < 0 || count > typeString.GetLength() / 2)
        return false;
    code = static_cast<TYPE>(storedCode);
    adopted = count > 0;
    validation->FillValidation(static_cast<int>(count), typeString);
    return true;
}
