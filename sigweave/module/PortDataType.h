#pragma once

#include <cstdint>
#include <memory>

#include "sigweave/module/TCPortHelperImpl.h"
#include "sigweave/module/TCValidateActualPortType.h"
#include "sigweave/platform/Export.h"

class ArchiveParser;

// One port type, in its two forms that always agree: the numeric code that module code tests, and the type
// string that the host shows, stores and compares. The helper keeps one entry per declaration in its type
// table; ports refer to an entry by index and may share it.
//
// An entry without a type of its own (TYPE_ADOPT, or TYPE_MULTI without items) takes over the type of the
// line. Used on the thread that edits the graph.
class TC_API TCPortHelper::TCPortHelperImpl::DATATYPE {
 public:
    // No type, no lines.
    DATATYPE();
    // A copy has the code and the declared items, not the lines nor the actual items.
    DATATYPE(const DATATYPE& other);
    DATATYPE& operator=(const DATATYPE& other);
    // Moving keeps everything, so that a growing type table loses no lines.
    DATATYPE(DATATYPE&& other);
    DATATYPE& operator=(DATATYPE&& other) noexcept;
    ~DATATYPE();

    // The code of a type string with `count` items. A string of several items has only flags, because there
    // is no single kind of elements. `plain` gets false for a token that means a list of items still to come.
    static TYPE FindType(const char* typeString, int count, bool* plain = nullptr);
    // The type string of a code; `declarator` is that of a pointer. A code without a token, and a pointer
    // without a declarator, give an item that is empty on both sides. `count` gets the number of items.
    static TCString GetTypeStr(unsigned long code, const char* declarator, int* count = nullptr);

    // Declares the type from one token; a null or empty declarator means the token's usual one.
    void ParseType(const char* token, const char* declarator, bool withTypeInfo);
    // Takes over a whole type string, and keeps the right to adopt another one later. False, and nothing
    // changed, for a null or empty string or no items.
    bool ParseType(const char* typeString, int count);
    // Declares the type that GetTypeStr answers for the code.
    void GenType(TYPE newCode);
    // Adds one item; only a TYPE_MULTI entry takes it. A null or empty declarator means the token's usual
    // one.
    void AddMultitype(const char* token, const char* declarator);

    // What the port says to the host: null and 0 while the type is still to be adopted. Valid until the type
    // changes.
    const char* GetPortType(int* count) const;
    // Checks the type that a line brings, or adopts it. Differences go to the host under `name`.
    bool ValidatePortType(const char* typeString, int count, const char* name);
    bool DoesDataTypeMatch(TYPE mask) const { return DoesDataTypeMatch(mask, CHECK_ANY); }
    bool DoesDataTypeMatch(TYPE mask, CHECK_DT mode) const;
    operator unsigned long() const { return code; }
    // Bytes per element; 0 when there is no single kind.
    int ElemSize() const;

    TCValidateActualPortType& Validation() { return *validation; }
    const TCValidateActualPortType& Validation() const { return *validation; }

    // Lines that are drawn to ports of this type.
    void AddLine(int n) { lines += n; }
    void DelLine();

    // Stores or loads the code and the declared items. False, and nothing changed, when the archive does not
    // hold them or they do not fit together.
    bool Serialize(ArchiveParser* archive);

 private:
    TC_LOCAL void AddItem(const char* token, const char* declarator);
    TC_LOCAL const char* DefaultDeclarator(const char* token) const;
    TC_LOCAL bool IsToBeAdopted() const;

    std::uint32_t code = 0;
    std::int32_t lines = 0;
    std::unique_ptr<TCValidateActualPortType> validation;
    bool adopted = false;  // the items are the line's; ends with the last line
};
