#pragma once

#include <cstddef>
#include <cstdint>

#include "sigweave/foundation/TCArray.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// What the host's main window is asked or shown about a type that arrives on a line. The record travels with
// HostCommand::ValidatePortType; the texts live as long as the call.
struct VALIDATION_STRUCT {
    // Never change, only append.
    enum Code : int { DECLARATOR_DIFFERS = 101, TOKEN_DIFFERS = 102, NO_ITEMS = 104 };

    const char* name;      // the module, or "No module"
    const char* expected;  // what the port declares; null for NO_ITEMS
    const char* actual;    // what the line brings; null for NO_ITEMS
    int code;
    int answer;  // written by the host: not 0 accepts a declarator that differs
};
static_assert(offsetof(VALIDATION_STRUCT, code) == 24 && sizeof(VALIDATION_STRUCT) == 32);

// Compares the type that a port declares with the type that a line brings. A type string is a list of items
// token{declarator}, separated by blanks; the number of items always travels with the string. Tokens name
// the kind of the elements and must be compatible; declarators name their meaning, and a difference is a
// question to the user.
//
// A module may derive from it to split or compare items in another way. The order of the virtual operations
// is part of the binary interface; the destructor is not virtual, so delete it as the class that it is. Used
// on the thread that edits the graph; the host is asked synchronously.
class TC_API TCValidateActualPortType {
 public:
    TCValidateActualPortType() = default;
    TCValidateActualPortType(const TCValidateActualPortType&) = delete;
    TCValidateActualPortType& operator=(const TCValidateActualPortType&) = delete;

    // 0: whether the tokens are compatible, item by item as far as both sides have one. A pointer item also
    // compares declarators, and its result replaces that of the items before it. Differences are reported
    // under `name` unless `silent`.
    virtual bool ValidateTokenSet(const char* name, bool silent);
    // 1: whether the declarators are equal or the host accepts the difference; ends at the first refusal.
    virtual bool ValidateDeclaratorSet(const char* name);
    // 2, 3: cut the next token or declarator off the front of `rest`. Without its bracket the answer is empty
    // and `rest` stays.
    virtual TCString ExtractToken(TCString& rest);
    virtual TCString ExtractDeclarator(TCString& rest);

    // Replaces the declared side by `count` items of the string, and empties the actual side. Items that the
    // string does not have are empty. Of more than 65,536 items the first ones are taken, here and below.
    void FillValidation(int count, const char* typeString);
    // Replaces the actual side by `count` items of the string.
    void ParsingPortType(const char* typeString, int count);
    // Adds one item to the declared side.
    void InsertPortToken(const char* token, const char* declarator);
    void ClearAll();

    // The declared items, joined in the order in which they were added. Valid until that side changes.
    const TCString& GetInternalPortType() const { return declaredTypeString; }
    int GetNoOfInternalPortToken() const { return declaredCount; }
    // Sets the declared count to 0 and keeps the items.
    void ClearNoOfOwnPortToken() { declaredCount = 0; }
    // False, and nothing written, for an index out of range.
    bool GetInternalToken(int index, TCString& token, TCString& declarator) const;

    // Sends one record and answers what the host wrote; see ShowMessage.
    static int PutErrorMessage(const char* name, int code, const char* expected, const char* actual);
    // Sends the record to the main window. Without one a differing declarator is accepted, and other records
    // go nowhere.
    static void ShowMessage(VALIDATION_STRUCT& record);

 protected:
    int GetNoOfActualPortToken() const { return actualCount; }
    bool GetActualToken(int index, TCString& token, TCString& declarator) const;

 private:
    TC_LOCAL bool ValidateToken(int index, const char* name, bool silent, bool before) const;

    std::int32_t actualCount = 0;
    std::int32_t declaredCount = 0;
    TCString declaredTypeString;
    TCArray<TCString> declaredTokens;
    TCArray<TCString> actualTokens;
    TCArray<TCString> declaredDeclarators;
    TCArray<TCString> actualDeclarators;
};
