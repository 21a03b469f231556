// Port types: their strings, codes and comparison. Parts of an input: a number of items and a type string,
// the same of a second type, and a declarator.
#include "fuzz/Fuzz.h"
#include "sigweave/module/PortDataType.h"
#include "sigweave/module/TCPortHelper.h"
#include "sigweave/module/ValidationQuote.h"

namespace {

using PortType = TCPortHelper::TCPortHelperImpl::DATATYPE;

constexpr unsigned NO_KIND = 0xFF000000u & ~static_cast<unsigned>(TCPortHelper::TYPE_TYPEINFO);

std::string Trimmed(const std::string& text) {
    return fuzz::Bytes(TCString(text.c_str()).TrimLeft().TrimRight());
}

void CheckCode(const std::string& text, int count) {
    bool plain = false;
    const unsigned code = PortType::FindType(text.c_str(), count, &plain);
    fuzz::Require(TCPortHelper::Datatype(count, text.c_str()) == code, "both ways give one code");
    if ((code & NO_KIND) != 0 || (code & 0xFFFFFF) == 0) return;
    int items = 0;
    const TCString canonical = PortType::GetTypeStr(code, nullptr, &items);
    fuzz::Require(PortType::FindType(canonical, items) == static_cast<TCPortHelper::TYPE>(code),
                  "the type string of a code has that code");
    PortType generated;
    generated.GenType(static_cast<TCPortHelper::TYPE>(code));
    int told = 0;
    fuzz::RequireSame(fuzz::Bytes(canonical), generated.GetPortType(&told),
                      "a generated type tells that string");
    fuzz::Require(told == items, "and its number of items");
}

void CheckEntry(const std::string& text, int count) {
    PortType type;
    fuzz::Require(type.ParseType(text.c_str(), count) == (!text.empty() && count > 0),
                  "every string with items can be adopted");
    type.AddLine(1);
    int items = 0;
    const char* const told = type.GetPortType(&items);
    if (told == nullptr || text.empty() || count <= 0) return;
    fuzz::Require(items == count, "an adopted type has the items of its string");
    PortType again;
    again.ParseType(told, items);
    again.AddLine(1);
    fuzz::RequireSame(again.GetPortType(&items), told, "what is told reads as the same type");
    fuzz::Require(type.ValidatePortType(told, count, nullptr), "a type fits itself");
    PortType copy(type);
    fuzz::Require(static_cast<unsigned long>(copy) == static_cast<unsigned long>(type),
                  "a copy has the same code");
}

void CheckDeclaration(const std::string& token, const std::string& declarator, bool withTypeInfo) {
    PortType type;
    type.ParseType(token.c_str(), declarator.c_str(), withTypeInfo);
    type.AddMultitype("DOUBLE[]", declarator.c_str());
    int items = 0;
    type.GetPortType(&items);
    fuzz::Require(items >= 0 && type.ElemSize() <= 8, "a declared type has a size");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    const int count = parts.NextInt(-1, 20);
    const std::string first = parts.Next();
    const int otherCount = parts.NextInt(-1, 20);
    const std::string second = parts.Next();
    const std::string declarator = parts.Next();
    CheckCode(first, count);
    CheckEntry(first, count);
    CheckDeclaration(first, declarator, count % 2 == 0);
    // A declared type is trimmed, that of a line is not.
    const std::string a = Trimmed(first);
    const std::string b = Trimmed(second);
    fuzz::Require(TCPortHelper::DoesDataTypeMatch(a.c_str(), count, b.c_str(), otherCount, nullptr) ==
                      TCPortHelper::DoesDataTypeMatch(b.c_str(), otherCount, a.c_str(), count, nullptr),
                  "types fit each other or do not");
    fuzz::RequireSame(TCValidationUnQuote(TCValidationQuote(CString(declarator))), declarator,
                      "a declarator survives its quoting");
    return 0;
}
