#include "sigweave/persistence/TCSerializeHelper.h"
#include "sigweave/signal/TCTypeInfo.h"

int TCTypeInfo::SerializeWithStatus(char* buffer) const {
    return TCSerializeHelper::SerializeWithStatus(buffer, *this);
}

void TCTypeInfo::DeSerializeWithStatus(const TCString& record) {
    TCSerializeHelper::DeSerializeWithStatus(*this, record);
}
