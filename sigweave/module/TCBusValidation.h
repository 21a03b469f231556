#pragma once

#include <string_view>

#include "sigweave/foundation/TCString.h"
#include "sigweave/module/TCPortHelper.h"
#include "sigweave/platform/Export.h"

// The operations of these names of TCBusSerializeHelper, for modules that were built with this class.
class TC_API TCBusValidation {
 public:
    static TCString SerializeValidation(TCPortHelper::TYPE code, const char* typeString, int count);
    static bool DeSerializeValidation(const char* validation, TCPortHelper::TYPE& code, TCString& typeString,
                                      int& count);
    static TCPortHelper::TYPE GetDataType(const char* validation);
    static bool SameDataType(const char* validation, TCPortHelper::TYPE code);
    static bool SameDataType(std::string_view validation, TCPortHelper::TYPE code);
    static int FindOutputPort(const TCPortHelper& helper, const char* busSegmentName);
};
