#include "sigweave/module/TCBusValidation.h"

#include <charconv>
#include <string_view>

#include "sigweave/module/PortDataType.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace {

using DATATYPE = TCPortHelper::TCPortHelperImpl::DATATYPE;
using TYPE = TCPortHelper::TYPE;

constexpr std::string_view CODE_PREFIX = "DT_";
constexpr std::size_t CODE_DIGITS = 8;
constexpr TYPE KIND_MASK = 0x00FFFFFF;

// Single values and arrays of one element type are read as each other.
constexpr TYPE EXCHANGEABLE[] = {TCPortHelper::TYPE_SWORD1 | TCPortHelper::TYPE_SWORDARRAY,
                                 TCPortHelper::TYPE_DOUBLE1 | TCPortHelper::TYPE_DOUBLEARRAY,
                                 TCPortHelper::TYPE_TEXT | TCPortHelper::TYPE_TEXTARRAY};

template <typename Number>
bool ReadNumber(std::string_view text, int base, Number& number, std::string_view& rest) {
    const char* end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number, base);
    rest = {stop, end};
    return failure == std::errc();
}

bool ReadCode(std::string_view validation, TYPE& code) {
    if (!validation.starts_with(CODE_PREFIX)) return false;
    std::string_view digits = validation.substr(CODE_PREFIX.size());
    std::string_view rest;
    return digits.size() == CODE_DIGITS && ReadNumber(digits, 16, code, rest) && rest.empty();
}

bool ReadItems(std::string_view validation, int& count, std::string_view& items) {
    if (!ReadNumber(validation, 10, count, items) || !items.starts_with(' ')) return false;
    items.remove_prefix(1);
    return true;
}

TYPE CodeOf(std::string_view validation) {
    TYPE code = 0;
    int count = 0;
    if (ReadCode(validation, code)) return code;
    std::string_view items;
    if (!ReadItems(validation, count, items)) return 0;
    return DATATYPE::FindType(TCString(items.data(), static_cast<int>(items.size())), count);
}

bool AreKindsExchangeable(TYPE a, TYPE b) {
    for (TYPE family : EXCHANGEABLE)
        if ((a & family) != 0 && (b & family) != 0) return true;
    return false;
}

}  // namespace

TCString TCBusSerializeHelper::SerializeValidation(std::uint32_t code, const char* typeString, int count) {
    TCBusSerializeHelper name;
    name.ParseSegmentName(TCBusSerializeHelper::GenSegmentName(code, typeString, count, 0, "", ""));
    return name.GetValidation();
}

bool TCBusSerializeHelper::DeSerializeValidation(const char* validation, std::uint32_t& code,
                                                 TCString& typeString, int& count) {
    const std::string_view text(validation != nullptr ? validation : "");
    TYPE readCode = 0;
    if (ReadCode(text, readCode)) {
        code = readCode;
        typeString = DATATYPE::GetTypeStr(readCode, nullptr, &count);
        return true;
    }
    int readCount = 0;
    std::string_view items;
    if (!ReadItems(text, readCount, items)) return false;
    typeString = TCString(items.data(), static_cast<int>(items.size()));
    count = readCount;
    code = DATATYPE::FindType(typeString, count);
    return true;
}

std::uint32_t TCBusSerializeHelper::GetDataType(const char* validation) {
    return validation != nullptr ? CodeOf(validation) : 0;
}

bool TCBusSerializeHelper::SameDataType(const char* validation, std::uint32_t code) {
    return SameDataType(std::string_view(validation != nullptr ? validation : ""), code);
}

bool TCBusSerializeHelper::SameDataType(std::string_view validation, std::uint32_t code) {
    const TYPE signal = CodeOf(validation) & ~TCPortHelper::TYPE_TYPEINFO;
    const TYPE wanted = code & ~TCPortHelper::TYPE_TYPEINFO;
    if (((signal | wanted) & KIND_MASK) == 0) return signal == wanted && signal != 0;
    return (signal & KIND_MASK) == (wanted & KIND_MASK) || AreKindsExchangeable(signal, wanted);
}

int TCBusSerializeHelper::FindOutputPort(const TCPortHelper& helper, const char* busSegmentName) {
    TCBusSerializeHelper segment;
    if (!segment.ParseSegmentName(busSegmentName)) return -1;
    const auto fits = [&](int port) {
        return helper.GetPortName(OUTPUT, port) == segment.GetSegmentName() &&
               SameDataType(segment.GetValidation(), helper.DataType(OUTPUT, port));
    };
    if (fits(segment.PortIdx())) return segment.PortIdx();
    const int ports = helper.GetPortCnt(OUTPUT);
    for (int port = 0; port < ports; ++port)
        if (fits(port)) return port;
    return -1;
}

TCString TCBusValidation::SerializeValidation(TYPE code, const char* typeString, int count) {
    return TCBusSerializeHelper::SerializeValidation(code, typeString, count);
}

bool TCBusValidation::DeSerializeValidation(const char* validation, TYPE& code, TCString& typeString,
                                            int& count) {
    return TCBusSerializeHelper::DeSerializeValidation(validation, code, typeString, count);
}

TYPE TCBusValidation::GetDataType(const char* validation) {
    return TCBusSerializeHelper::GetDataType(validation);
}

bool TCBusValidation::SameDataType(const char* validation, TYPE code) {
    return TCBusSerializeHelper::SameDataType(validation, code);
}

bool TCBusValidation::SameDataType(std::string_view validation, TYPE code) {
    return TCBusSerializeHelper::SameDataType(validation, code);
}

int TCBusValidation::FindOutputPort(const TCPortHelper& helper, const char* busSegmentName) {
    return TCBusSerializeHelper::FindOutputPort(helper, busSegmentName);
}
