// The part of TCPortHelper that reads, checks and changes the types of ports.
#include "sigweave/module/PortDataType.h"
#include "sigweave/module/PortRecord.h"
#include "sigweave/module/TCPortHelper.h"

namespace {
constexpr TCPortHelper::TYPE SCALARS = TCPortHelper::TYPE_SWORD1 | TCPortHelper::TYPE_DOUBLE1;
}

TCPortHelper::TYPE TCPortHelper::DataType(PORTTYPE kind, unsigned index, unsigned* typeIndex) const {
    const TCPortHelperImpl::DATATYPE* type = impl->Type(kind, index);
    if (type == nullptr) return 0;
    if (typeIndex != nullptr) *typeIndex = impl->Port(kind, index)->typeIndex;
    return static_cast<TYPE>(*type);
}

TCPortHelper::TYPE TCPortHelper::Datatype(int count, const char* typeString) {
    return TCPortHelperImpl::DATATYPE::FindType(typeString, count);
}

bool TCPortHelper::DoesDataTypeMatch(PORTTYPE kind, unsigned index, TYPE mask, CHECK_DT mode) const {
    const TCPortHelperImpl::DATATYPE* type = impl->Type(kind, index);
    return type != nullptr && type->DoesDataTypeMatch(mask, mode);
}

bool TCPortHelper::DoesDataTypeMatch(const char* declared, int declaredCount, const char* actual,
                                     int actualCount, const char* name) {
    TCValidateActualPortType validation;
    validation.FillValidation(declaredCount, declared);
    validation.ParsingPortType(actual, actualCount);
    return validation.ValidateTokenSet(name, name == nullptr);
}

const char* TCPortHelper::GetPortType(PORTTYPE kind, unsigned index, int* count) const {
    if (const TCPortHelperImpl::DATATYPE* type = impl->Type(kind, index)) return type->GetPortType(count);
    if (count != nullptr) *count = 0;
    return nullptr;
}

bool TCPortHelper::ValidatePortType(PORTTYPE kind, unsigned index, const char* typeString, int count) {
    TCPortHelperImpl::DATATYPE* type = impl->Type(kind, index);
    return type != nullptr && type->ValidatePortType(typeString, count, GetModuleName());
}

void TCPortHelper::ChangeType(PORTTYPE kind, unsigned index, const char* token, const char* declarator,
                              bool withTypeInfo) {
    if (TCPortHelperImpl::DATATYPE* type = impl->Type(kind, index))
        type->ParseType(token, declarator, withTypeInfo);
}

void TCPortHelper::AddMultitype(unsigned typeIndex, const char* token, const char* declarator) {
    const unsigned types = static_cast<unsigned>(impl->typeTable.GetSize());
    // Deliberate: the index one beyond the last entry is accepted as any other, and reaches no entry.
    if (typeIndex < types) impl->typeTable[static_cast<int>(typeIndex)].AddMultitype(token, declarator);
}

int TCPortHelper::ElemSize(PORTTYPE kind, unsigned index) const {
    const TCPortHelperImpl::DATATYPE* type = impl->Type(kind, index);
    return type != nullptr ? type->ElemSize() : 0;
}

bool TCPortHelper::IsScalarDataType(PORTTYPE kind, unsigned index) const {
    return (DataType(kind, index) & SCALARS) != 0;
}
