#pragma once

#include <string_view>

#include "sigweave/foundation/TCString.h"
#include "sigweave/module/TCPortHelper.h"
#include "sigweave/platform/Export.h"

// The last part of a bus segment name tells the type of the signal, in one of two forms: the code as
// "DT_%08x", or the number of items and the type string as "1 DOUBLE[]{TIME_DOMAIN}". These operations read
// and write both forms and compare them with port types; they keep nothing. They stand beside
// TCBusSerializeHelper because that class does not know port types.
class TC_API TCBusValidation {
 public:
    // The code form when the code names a kind of elements, else the other one, as in
    // TCBusSerializeHelper::GenSegmentName.
    static TCString SerializeValidation(TCPortHelper::TYPE code, const char* typeString, int count);
    // Reads either form. The code form also answers the type string that belongs to the code. False, with
    // nothing written, for a text of neither form.
    static bool DeSerializeValidation(const char* validation, TCPortHelper::TYPE& code, TCString& typeString,
                                      int& count);
    // The code of either form; 0 for a text of neither form.
    static TCPortHelper::TYPE GetDataType(const char* validation);
    // Whether a signal of that type can be read as `code`. Metadata does not count; a scalar can be read as
    // an array and the other way round, as between ports. A type without a kind of elements agrees with its
    // own flags only.
    static bool SameDataType(const char* validation, TCPortHelper::TYPE code);
    static bool SameDataType(std::string_view validation, TCPortHelper::TYPE code);
    // The output port that a bus segment belongs to: it bears the segment's signal name and has a type as
    // which the signal can be read. The one at the segment's port index goes before others. -1 when there is
    // none, or when the name is no bus segment name.
    static int FindOutputPort(const TCPortHelper& helper, const char* busSegmentName);
};
