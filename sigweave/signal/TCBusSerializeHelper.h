#pragma once

#include <cstdint>
#include <string_view>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

class TCPortHelper;

// The name of a bus segment: it says which of a bus's channels the segment holds, and what its data are.
// Four texts joined by carriage return and line feed (stored; never change):
//
//   port index     decimal
//   segment name   the signal's name
//   comp check     a text that distinguishes the blocks of one module from those of another
//   validation     the data type: "DT_" and eight hexadecimal digits of its code, or, without a code, the
//                  item count, a blank and the port type string
//
// One block may have both plain names and bus names. A value class.
class TC_API TCBusSerializeHelper {
 public:
    // A name taken apart without copying it: the texts point into the name.
    struct Parts {
        int portIdx = 0;
        std::string_view segmentName;
        std::string_view compCheck;
        std::string_view validation;
    };

    TCBusSerializeHelper() = default;

    // The validation text is made from `dataType` when any of its low 24 bits is set, else from the type
    // string and the count. Null texts count as empty.
    static TCString GenSegmentName(unsigned long dataType, const char* typeString, int itemCount, int portIdx,
                                   const char* segmentName, const char* compCheck);

    // False, and nothing changes, when the name is no bus name: fewer than four texts, or an empty last one.
    // What follows the fourth text is ignored.
    bool ParseSegmentName(const char* name);
    static bool SplitSegmentName(const char* name, Parts& parts);

    // Negative, 0 or positive. Two bus names go by port index, then by segment name: a channel stays the same
    // segment when its data type changes. Otherwise the bytes of both names decide. Null counts as empty.
    static int CompareSegmentNames(const char* a, const char* b);

    // The last text, the validation, and port types (TCPortHelper::TYPE) as codes. These four keep nothing
    // and read and write both of its forms; those that read take null as a text of neither form.

    // The code form when the code names a kind of elements, else the other one, as in GenSegmentName.
    static TCString SerializeValidation(std::uint32_t dataType, const char* typeString, int itemCount);
    // The code form also answers the type string that belongs to the code. False, with nothing written, for a
    // text of neither form.
    static bool DeSerializeValidation(const char* validation, std::uint32_t& dataType, TCString& typeString,
                                      int& itemCount);
    // 0 for a text of neither form.
    static std::uint32_t GetDataType(const char* validation);
    // Whether a signal of that type can be read as `dataType`. Metadata does not count; single values can be
    // read as an array and the other way round, as between ports. A type without a kind of elements agrees
    // with its own flags only.
    static bool SameDataType(const char* validation, std::uint32_t dataType);
    static bool SameDataType(std::string_view validation, std::uint32_t dataType);
    // The output port that a bus segment belongs to: it bears the segment's signal name and has a type as
    // which the signal can be read. The one at the segment's port index goes before others. -1 when there is
    // none, or when the name is no bus segment name.
    static int FindOutputPort(const TCPortHelper& helper, const char* busSegmentName);

    int& PortIdx() { return portIdx; }
    const TCString& GetSegmentName() const { return segmentName; }
    const TCString& CompCheck() const { return compCheck; }
    const TCString& GetValidation() const { return validation; }

 private:
    std::int32_t portIdx = 0;
    TCString segmentName;
    TCString validation;
    TCString compCheck;
};
