#include "sigweave/module/TCValidateActualPortType.h"

#include <algorithm>
#include <string_view>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/platform/Window.h"

namespace {

// More than any port has; a count out of a module that is wrong must not use up the memory.
constexpr int MOST_ITEMS = 65536;

struct Extent {
    bool open;                // no number between the brackets
    std::string_view digits;  // without leading zeros
};

Extent TakeExtent(const char*& p) {
    const char* begin = p;
    while (tc::IsDigit(*p)) ++p;
    const bool open = p == begin;
    while (begin != p && *begin == '0') ++begin;
    return {open, {begin, p}};
}

bool TakeBrackets(const char*& a, const char*& b) {
    const Extent extentA = TakeExtent(++a);
    const Extent extentB = TakeExtent(++b);
    const bool fits = extentA.open || extentB.open || extentA.digits == extentB.digits;
    return fits && *a++ == ']' && *b++ == ']';
}

// Equal but for the extents in brackets, where an empty pair takes any number.
bool AreTokensCompatible(const char* a, const char* b) {
    while (*a == *b) {
        if (*a == '\0') return true;
        if (*a == '[') {
            if (!TakeBrackets(a, b)) return false;
        } else {
            ++a;
            ++b;
        }
    }
    return false;
}

TCString MakeItem(const TCString& token, const TCString& declarator) {
    return token + "{" + declarator + "}";
}

TCString CutAt(char bracket, TCString& rest) {
    const int position = rest.Find(bracket);
    if (position < 0) return TCString();
    const TCString front = rest.Left(position);
    rest = rest.Mid(position + 1);
    rest.TrimLeft();
    return front;
}

}  // namespace

bool TCValidateActualPortType::ValidateTokenSet(const char* name, bool silent) {
    if (declaredCount == 0 && actualCount == 0) {
        if (!silent) PutErrorMessage(name, VALIDATION_STRUCT::NO_ITEMS, nullptr, nullptr);
        return false;
    }
    bool result = true;
    const int common = std::min(declaredCount, actualCount);
    for (int i = 0; i < common; ++i) result = ValidateToken(i, name, silent, result);
    return result;
}

bool TCValidateActualPortType::ValidateToken(int index, const char* name, bool silent, bool before) const {
    const TCString& declared = declaredTokens[index];
    const TCString& actual = actualTokens[index];
    if (declared != actual) {
        if (AreTokensCompatible(declared, actual)) return before;
        if (!silent) PutErrorMessage(name, VALIDATION_STRUCT::TOKEN_DIFFERS, declared, actual);
        return false;
    }
    if (declared.Find("POINTER") < 0) return before;
    // Deliberate: a pointer item that matches outweighs items before it that do not; modules rely on it.
    if (declaredDeclarators[index] == actualDeclarators[index]) return true;
    if (!silent) {
        PutErrorMessage(name, VALIDATION_STRUCT::TOKEN_DIFFERS,
                        MakeItem(declared, declaredDeclarators[index]),
                        MakeItem(actual, actualDeclarators[index]));
    }
    return false;
}

bool TCValidateActualPortType::ValidateDeclaratorSet(const char* name) {
    bool result = true;
    const int common = std::min(declaredCount, actualCount);
    for (int i = 0; i < common && result; ++i) {
        if (declaredDeclarators[i] == actualDeclarators[i]) continue;
        result = PutErrorMessage(name, VALIDATION_STRUCT::DECLARATOR_DIFFERS, declaredDeclarators[i],
                                 actualDeclarators[i]) != 0;
    }
    return result;
}

TCString TCValidateActualPortType::ExtractToken(TCString& rest) {
    return CutAt('{', rest);
}

TCString TCValidateActualPortType::ExtractDeclarator(TCString& rest) {
    return CutAt('}', rest);
}

void TCValidateActualPortType::FillValidation(int count, const char* typeString) {
    TCString rest(typeString);
    rest.TrimLeft();
    rest.TrimRight();
    ClearAll();
    for (int i = 0; i < std::min(count, MOST_ITEMS); ++i) {
        const TCString token = ExtractToken(rest);
        InsertPortToken(token, ExtractDeclarator(rest));
    }
}

void TCValidateActualPortType::ParsingPortType(const char* typeString, int count) {
    TCString rest(typeString);
    actualCount = 0;
    actualTokens.RemoveAll();
    actualDeclarators.RemoveAll();
    for (int i = 0; i < std::min(count, MOST_ITEMS); ++i) {
        actualTokens.Add(ExtractToken(rest));
        actualDeclarators.Add(ExtractDeclarator(rest));
        ++actualCount;
    }
}

void TCValidateActualPortType::InsertPortToken(const char* token, const char* declarator) {
    const TCString newToken(token), newDeclarator(declarator);  // they may be texts of this object
    if (!declaredTypeString.IsEmpty()) declaredTypeString += ' ';
    declaredTypeString += MakeItem(newToken, newDeclarator);
    declaredTokens.Add(newToken);
    declaredDeclarators.Add(newDeclarator);
    ++declaredCount;
}

void TCValidateActualPortType::ClearAll() {
    declaredTypeString.Empty();
    declaredCount = actualCount = 0;
    for (TCArray<TCString>* list :
         {&declaredTokens, &actualTokens, &declaredDeclarators, &actualDeclarators}) {
        list->RemoveAll();
    }
}

bool TCValidateActualPortType::GetInternalToken(int index, TCString& token, TCString& declarator) const {
    if (index < 0 || index >= declaredCount) return false;
    token = declaredTokens[index];
    declarator = declaredDeclarators[index];
    return true;
}

bool TCValidateActualPortType::GetActualToken(int index, TCString& token, TCString& declarator) const {
    if (index < 0 || index >= actualCount) return false;
    token = actualTokens[index];
    declarator = actualDeclarators[index];
    return true;
}

int TCValidateActualPortType::PutErrorMessage(const char* name, int code, const char* expected,
                                              const char* actual) {
    VALIDATION_STRUCT record{name != nullptr ? name : "No module", expected, actual, code, 0};
    ShowMessage(record);
    return record.answer;
}

void TCValidateActualPortType::ShowMessage(VALIDATION_STRUCT& record) {
    if (CWnd* window = TCGetMainWindow()) {
        window->SendMessageA(TC_HOST_MESSAGE, static_cast<unsigned long>(HostCommand::ValidatePortType),
                             &record);
    } else if (record.code == VALIDATION_STRUCT::DECLARATOR_DIFFERS) {
        record.answer = 1;
    }
}
